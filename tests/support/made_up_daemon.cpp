// SPDX-License-Identifier: Apache-2.0
#include "made_up_daemon.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <stdexcept>

#include "file_text.h"

namespace ardv::test {

namespace {

constexpr int kPatience = 10'000;  // milliseconds
constexpr int kReady = 0;          // which is no signal
constexpr const char kStatusFile[] = "/tmp/.ardvrelayd.status";

sigset_t AnsweredSignals() {
    sigset_t signals = {};
    sigemptyset(&signals);
    for (const int number : {SIGHUP, SIGTERM, SIGUSR1, SIGRTMIN + 1}) {
        sigaddset(&signals, number);
    }
    return signals;
}

// In place, as the file is locked by the one who asks.
void WriteReport(const DaemonHabits& habits) {
    usleep(static_cast<useconds_t>(std::chrono::microseconds(habits.thinks).count()));
    const auto path = "/tmp/.ardvrelayd." + std::to_string(getpid()) + ".debug";
    const int file = open(path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
    if (file >= 0) {
        [[maybe_unused]] const ssize_t written = write(file, habits.report.data(), habits.report.size());
        close(file);
    }
}

void Tell(int pipe, int number) {
    [[maybe_unused]] const ssize_t written = write(pipe, &number, sizeof number);
}

[[noreturn]] void Serve(const DaemonHabits& habits, int pipe) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    prctl(PR_SET_NAME, habits.name.c_str());
    const sigset_t signals = AnsweredSignals();
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    WriteText(habits.pidFile, std::to_string(getpid()) + "\n");
    Tell(pipe, kReady);
    for (;;) {
        const int number = sigwaitinfo(&signals, nullptr);
        Tell(pipe, number);
        if (number == SIGTERM && habits.endsOnTerm) {
            _exit(0);
        }
        if (number == SIGUSR1 && !habits.report.empty()) {
            WriteReport(habits);
        }
    }
}

}  // namespace

MadeUpDaemon::MadeUpDaemon(const DaemonHabits& habits) {
    std::array<int, 2> ends = {};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::runtime_error("there is no pipe");
    }
    pid_ = fork();
    if (pid_ == 0) {
        Serve(habits, ends[1]);
    }
    close(ends[1]);
    signals_ = ends[0];
    if (pid_ < 0 || NextSignal() != kReady) {
        throw std::runtime_error("the made-up daemon does not start");
    }
}

MadeUpDaemon::~MadeUpDaemon() {
    Die();
    waitpid(pid_, nullptr, 0);
    close(signals_);
}

int MadeUpDaemon::NextSignal() {
    pollfd polled = {signals_, POLLIN, 0};
    int number = -1;
    if (poll(&polled, 1, kPatience) <= 0 || read(signals_, &number, sizeof number) != sizeof number) {
        throw std::runtime_error("the made-up daemon got no signal");
    }
    return number;
}

int MadeUpDaemon::SignalsLeft() const {
    int bytes = 0;
    ioctl(signals_, FIONREAD, &bytes);
    return bytes / static_cast<int>(sizeof(int));
}

void MadeUpDaemon::Publish(const std::string& members) const {
    const std::string temporary = std::string(kStatusFile) + ".new";
    WriteText(temporary, "{\"pid\":" + std::to_string(pid_) + (members.empty() ? "" : ",") + members + "}");
    std::filesystem::rename(temporary, kStatusFile);
}

void MadeUpDaemon::Die() const {
    kill(pid_, SIGKILL);
    siginfo_t info = {};
    waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOWAIT);
}

}  // namespace ardv::test
