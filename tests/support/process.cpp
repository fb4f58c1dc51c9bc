// SPDX-License-Identifier: Apache-2.0
#include "support/process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>

#include "support/handle.h"

namespace ardv::test {
namespace {

// Between fork and exec only what a signal handler might do.
[[noreturn]] void Become(char* const* arguments, int log) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::dup2(log, STDOUT_FILENO);
    ::dup2(log, STDERR_FILENO);
    ::execv(arguments[0], arguments);
    ::_exit(127);
}

}  // namespace

pid_t Spawn(std::vector<std::string> words, const std::string& logFile) {
    std::vector<char*> arguments;
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    const Handle log(::open(logFile.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW, 0600));
    const pid_t child = log.Number() < 0 ? -1 : ::fork();
    if (child == 0) {
        Become(arguments.data(), log.Number());
    }
    if (child < 0) {
        throw std::runtime_error("cannot start " + words.front());
    }
    return child;
}

// The header of glibc 2.36 declares pidfd_open() for C only.
int OpenProcess(pid_t process) {
    return static_cast<int>(::syscall(SYS_pidfd_open, process, 0));
}

bool HasEnded(pid_t process, int milliseconds) {
    const Handle handle(OpenProcess(process));
    pollfd entry{handle.Number(), POLLIN, 0};
    return ::poll(&entry, 1, milliseconds) == 1;
}

int Reap(pid_t child) {
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

}  // namespace ardv::test
