// SPDX-License-Identifier: Apache-2.0
#include "process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <ctime>
#include <stdexcept>
#include <thread>

#include "process_figures.h"

namespace ardv::bench {

namespace {

constexpr auto kPatience = std::chrono::minutes(3);
constexpr auto kPatienceAtTheEnd = std::chrono::seconds(10);
constexpr auto kGlance = std::chrono::milliseconds(2);
constexpr int kGlancesPerQuiet = 20;
constexpr int kTracedCall = SIGTRAP | 0x80;  // PTRACE_O_TRACESYSGOOD
constexpr int kCallsOfBecome = 3;            // before it starts the program

std::vector<char*> Arguments(const std::vector<std::string>& command) {
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (const auto& word : command) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    return arguments;
}

// Between fork and exec only what a signal handler might do.
[[noreturn]] void Become(char* const* arguments, int output) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    execv(arguments[0], arguments);
    _exit(127);
}

pid_t Fork(const std::vector<std::string>& command, int output) {
    const auto arguments = Arguments(command);
    const pid_t pid = fork();
    if (pid == 0) {
        Become(arguments.data(), output);
    }
    if (pid < 0) {
        throw std::runtime_error("cannot start " + command.front());
    }
    return pid;
}

void MustSucceed(int status, const std::vector<std::string>& command) {
    if (status != 0) {
        throw std::runtime_error(command.front() + " failed");
    }
}

nanoseconds Duration(const timeval& time) {
    return std::chrono::seconds(time.tv_sec) + std::chrono::microseconds(time.tv_usec);
}

// Its own memory mapping is not copied for the child, as by fork: that would be counted as the child's.
pid_t Spawn(const std::vector<std::string>& command) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid = -1;
    const int error = posix_spawn(&pid, command.front().c_str(), &actions, nullptr, Arguments(command).data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        throw std::runtime_error("cannot start " + command.front());
    }
    return pid;
}

[[noreturn]] void BecomeTraced(char* const* arguments, int output) {
    ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    raise(SIGSTOP);
    Become(arguments, output);
}

}  // namespace

Process::Process(const std::vector<std::string>& command, const std::string& output) {
    const int file = open(output.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    startedAt_ = Clock::now();
    pid_ = Fork(command, file);
    close(file);
}

Process::~Process() {
    kill(pid_, SIGTERM);
    const auto end = Clock::now() + kPatienceAtTheEnd;
    while (waitpid(pid_, nullptr, WNOHANG) == 0) {
        if (Clock::now() > end) {
            kill(pid_, SIGKILL);
        }
        std::this_thread::sleep_for(kGlance);
    }
}

nanoseconds Process::Cpu() const {
    clockid_t clock = 0;
    timespec time = {};
    if (clock_getcpuclockid(pid_, &clock) != 0 || clock_gettime(clock, &time) != 0) {
        throw std::runtime_error("a process has ended before its time");
    }
    return std::chrono::seconds(time.tv_sec) + nanoseconds(time.tv_nsec);
}

void Process::AwaitQuiet(std::chrono::milliseconds length) const {
    const auto begin = Clock::now();
    auto changedAt = begin;
    for (auto before = ReadFigures(pid_).timeSlices; Clock::now() - changedAt < length;) {
        std::this_thread::sleep_for(length / kGlancesPerQuiet);
        const auto now = ReadFigures(pid_).timeSlices;
        if (now != before) {
            before = now;
            changedAt = Clock::now();
        }
        if (changedAt - begin > kPatience) {
            throw std::runtime_error("a process does not come to rest");
        }
    }
}

double Milliseconds(nanoseconds time) {
    return std::chrono::duration<double, std::milli>(time).count();
}

RunFigures RunToEnd(const std::vector<std::string>& command) {
    const auto begin = Clock::now();
    const pid_t pid = Spawn(command);
    int status = 0;
    rusage usage = {};
    wait4(pid, &status, 0, &usage);
    const auto wall = Clock::now() - begin;
    MustSucceed(status, command);
    return {wall, Duration(usage.ru_utime) + Duration(usage.ru_stime)};
}

int CountSystemCalls(const std::vector<std::string>& command) {
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    const auto arguments = Arguments(command);
    const pid_t first = fork();
    if (first == 0) {
        BecomeTraced(arguments.data(), nowhere);
    }
    close(nowhere);
    int status = 0;
    waitpid(first, &status, 0);
    ptrace(PTRACE_SETOPTIONS, first, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACECLONE | PTRACE_O_EXITKILL);
    ptrace(PTRACE_SYSCALL, first, nullptr, nullptr);
    int stops = 0;
    for (pid_t pid = 0; (pid = waitpid(-1, &status, __WALL)) > 0;) {
        if (WIFSTOPPED(status)) {
            stops += WSTOPSIG(status) == kTracedCall ? 1 : 0;
            ptrace(PTRACE_SYSCALL, pid, nullptr, nullptr);
        } else if (pid == first) {
            break;
        }
    }
    MustSucceed(status, command);
    return stops / 2 - kCallsOfBecome;  // one stop before a call, one after it
}

std::string OutputOf(const std::vector<std::string>& command) {
    int ends[2] = {};
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
    const pid_t pid = Fork(command, ends[1]);
    close(ends[1]);
    std::string text;
    char block[4096];
    for (ssize_t size = 0; (size = read(ends[0], block, sizeof block)) > 0;) {
        text.append(block, static_cast<std::size_t>(size));
    }
    close(ends[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    MustSucceed(status, command);
    return text;
}

}  // namespace ardv::bench
