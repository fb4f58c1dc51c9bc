// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace ARDV::Platform::Test {

/// A forked copy of the test that runs one function and ends with its result as exit code.
class ChildProcess {
public:
    explicit ChildProcess(const std::function<int()>& body) : pid_(fork()) {
        if (pid_ < 0) {
            throw std::runtime_error("cannot fork");
        }
        if (pid_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);  // it must not outlive a test that is killed
            _exit(body());
        }
    }
    ChildProcess(ChildProcess&& other) noexcept : pid_(std::exchange(other.pid_, -1)) {}
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ChildProcess& operator=(ChildProcess&&) = delete;
    ~ChildProcess() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            Wait();
        }
    }

    pid_t Pid() const { return pid_; }

    /// Waits for its end. Returns the exit code, or 128 + the signal that ended it.
    int Wait() {
        int status = 0;
        waitpid(std::exchange(pid_, -1), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

private:
    pid_t pid_;
};

/// Runs a program with its arguments, no shell. Returns its exit code.
inline int Run(std::vector<std::string> command) {
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (std::string& word : command) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    return ChildProcess([&arguments] {
               execvp(arguments.front(), arguments.data());
               return 127;
           })
        .Wait();
}

}  // namespace ARDV::Platform::Test
