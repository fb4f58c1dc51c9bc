// SPDX-License-Identifier: Apache-2.0
#include "signalled_process.h"

#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <stdexcept>

namespace ardv::test {

namespace {

constexpr int kPatience = 10'000;  // ms

[[noreturn]] void NoteSignals(int notes, const sigset_t& all, const std::function<void(int)>& onSignal) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (;;) {
        int signal = 0;
        sigwait(&all, &signal);
        onSignal(signal);
        if (write(notes, &signal, sizeof signal) != sizeof signal) {
            _exit(1);
        }
    }
}

int NextFrom(int notes) {
    pollfd waited = {notes, POLLIN, 0};
    int signal = 0;
    if (poll(&waited, 1, kPatience) != 1 || read(notes, &signal, sizeof signal) != sizeof signal) {
        throw std::runtime_error("the process notes no signal any more");
    }
    return signal;
}

}  // namespace

SignalledProcess::SignalledProcess(const std::function<void(int)>& onSignal) {
    std::array<int, 2> ends = {};
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    if (pipe(ends.data()) != 0) {
        throw std::runtime_error("no pipe");
    }
    sigprocmask(SIG_SETMASK, &all, &before);  // so that the child misses none
    pid_ = fork();
    if (pid_ == 0) {
        close(ends[0]);
        NoteSignals(ends[1], all, onSignal);
    }
    sigprocmask(SIG_SETMASK, &before, nullptr);
    close(ends[1]);
    noted_ = ends[0];
}

SignalledProcess::~SignalledProcess() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    close(noted_);
}

std::vector<int> SignalledProcess::Received() const {
    kill(pid_, SIGRTMAX);  // the last to be taken of those that wait
    std::vector<int> signals;
    for (int signal = 0; (signal = NextFrom(noted_)) != SIGRTMAX;) {
        signals.push_back(signal);
    }
    return signals;
}

}  // namespace ardv::test
