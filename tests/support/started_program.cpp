// SPDX-License-Identifier: Apache-2.0
#include "started_program.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <stdexcept>
#include <utility>

#include "file_text.h"

namespace ardv::test {

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kPatience = std::chrono::seconds(10);
constexpr int kSignalled = 128;

bool IsReadableBefore(int fd, Clock::time_point deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    pollfd polled = {fd, POLLIN, 0};
    return poll(&polled, 1, static_cast<int>(std::max<decltype(left)>(left, 0))) > 0;
}

}  // namespace

StartedProgram::StartedProgram(std::vector<std::string> command) {
    std::array<int, 2> ends = {};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::runtime_error("there is no pipe");
    }
    output_ = ends[0];
    std::vector<char*> arguments;
    for (auto& word : command) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    const int failed = posix_spawnp(&pid_, arguments.front(), &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    if (failed != 0) {
        close(output_);
        throw std::runtime_error("cannot start " + command.front());
    }
}

StartedProgram::~StartedProgram() {
    StopReading();
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
}

std::string StartedProgram::ReadUpTo(const std::string& end) {
    const auto deadline = Clock::now() + kPatience;
    std::array<char, 4096> block = {};
    while (unread_.find(end) == std::string::npos) {
        const ssize_t count =
            IsReadableBefore(output_, deadline) ? read(output_, block.data(), block.size()) : ssize_t{0};
        if (count <= 0) {
            throw std::runtime_error("it did not print \"" + end + "\", but \"" + unread_ + "\"");
        }
        unread_.append(block.data(), static_cast<std::size_t>(count));
    }
    const auto size = unread_.find(end) + end.size();
    const std::string text = unread_.substr(0, size);
    unread_.erase(0, size);
    return text;
}

void StartedProgram::StopReading() {
    if (output_ >= 0) {
        close(std::exchange(output_, -1));
    }
}

void StartedProgram::Signal(int number) const {
    kill(pid_, number);
}

int StartedProgram::Wait() {
    const int process = static_cast<int>(syscall(SYS_pidfd_open, pid_, 0U));
    const bool hasEnded = IsReadableBefore(process, Clock::now() + kPatience);
    close(process);
    if (!hasEnded) {
        throw std::runtime_error("it does not end");
    }
    int status = 0;
    waitpid(std::exchange(pid_, -1), &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : kSignalled + WTERMSIG(status);
}

long StartedProgram::VoluntarySwitches() const {
    const auto status = ReadText("/proc/" + std::to_string(pid_) + "/status");
    const std::string key = "\nvoluntary_ctxt_switches:";
    return std::stol(status.substr(status.find(key) + key.size()));
}

}  // namespace ardv::test
