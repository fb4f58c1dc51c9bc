// SPDX-License-Identifier: Apache-2.0
#include "killed_at_call.h"

#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <string>

namespace ardv::test {

namespace {

constexpr int kNotTraced = 76;
constexpr int kCallStop = SIGTRAP | 0x80;  // told apart from other traps by PTRACE_O_TRACESYSGOOD
constexpr int kBegins = SIGSTOP;

/** Ends by _exit: a leak check at the end of a traced process would fail. */
[[noreturn]] void RunTraced(const std::function<void()>& action) {
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
        _exit(kNotTraced);
    }
    raise(kBegins);
    try {
        action();
    } catch (...) {
        _exit(EXIT_FAILURE);
    }
    _exit(EXIT_SUCCESS);
}

int WaitFor(pid_t pid) {
    int status = 0;
    while (waitpid(pid, &status, 0) != pid) {
        if (errno != EINTR) {
            throw std::runtime_error("the child is lost");
        }
    }
    return status;
}

void Resume(pid_t pid, int signal) {
    // The child may be gone already, which the next wait tells.
    ptrace(PTRACE_SYSCALL, pid, nullptr, signal);
}

Ending Kill(pid_t pid) {
    kill(pid, SIGKILL);
    while (!WIFSIGNALED(WaitFor(pid))) {
    }
    return Ending::kKilled;
}

Ending EndOf(int status) {
    if (WIFEXITED(status) && WEXITSTATUS(status) == EXIT_SUCCESS) {
        return Ending::kFinished;
    }
    throw std::runtime_error("the action failed in the child, status " + std::to_string(status));
}

/** Counts the stops of a child that stands at its beginning. */
Ending KillAt(pid_t pid, int stop) {
    if (ptrace(PTRACE_SETOPTIONS, pid, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL) != 0) {
        Kill(pid);
        return Ending::kNotPermitted;
    }
    int signal = 0;
    for (int count = 0;;) {
        Resume(pid, signal);
        const int status = WaitFor(pid);
        if (!WIFSTOPPED(status)) {
            return EndOf(status);
        }
        const bool isCall = WSTOPSIG(status) == kCallStop;
        if (isCall && ++count == stop) {
            return Kill(pid);
        }
        signal = isCall ? 0 : WSTOPSIG(status);
    }
}

}  // namespace

Ending RunKilledAt(int stop, const std::function<void()>& action) {
    const pid_t pid = fork();
    if (pid < 0) {
        throw std::runtime_error("no child");
    }
    if (pid == 0) {
        RunTraced(action);
    }
    const int status = WaitFor(pid);
    if (WIFEXITED(status) && WEXITSTATUS(status) == kNotTraced) {
        return Ending::kNotPermitted;
    }
    return WIFSTOPPED(status) ? KillAt(pid, stop) : EndOf(status);
}

}  // namespace ardv::test
