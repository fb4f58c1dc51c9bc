// SPDX-License-Identifier: Apache-2.0
#include "program_output.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>

#include "daemon_process.h"
#include "descriptor.h"

namespace ardv::ctl {

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char kNull[] = "/dev/null";

/** What is done to the descriptors and signals of a program that is started. */
class SpawnSettings {
public:
    explicit SpawnSettings(int output) {
        sigset_t all = {};
        sigset_t none = {};
        sigfillset(&all);
        sigemptyset(&none);
        posix_spawn_file_actions_init(&actions_);
        posix_spawnattr_init(&attributes_);
        isSet_ = posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, kNull, O_RDONLY, 0) == 0 &&
                 posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO) == 0 &&
                 posix_spawn_file_actions_addopen(&actions_, STDERR_FILENO, kNull, O_WRONLY, 0) == 0 &&
                 posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1) == 0 &&
                 posix_spawnattr_setsigdefault(&attributes_, &all) == 0 &&
                 posix_spawnattr_setsigmask(&attributes_, &none) == 0 &&
                 posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK) == 0;
    }
    ~SpawnSettings() {
        posix_spawn_file_actions_destroy(&actions_);
        posix_spawnattr_destroy(&attributes_);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    /** The process; -1 if there is none. */
    pid_t Start(std::vector<std::string> command) const {
        std::vector<char*> arguments(command.size() + 1, nullptr);
        std::transform(command.begin(), command.end(), arguments.begin(),
                       [](std::string& word) { return word.data(); });
        std::string path = "PATH=/usr/sbin:/usr/bin:/sbin:/bin";
        std::string language = "LC_ALL=C";
        std::array<char*, 3> environment = {path.data(), language.data(), nullptr};
        pid_t pid = -1;
        const bool isStarted = isSet_ && posix_spawn(&pid, arguments[0], &actions_, &attributes_, arguments.data(),
                                                     environment.data()) == 0;
        return isStarted ? pid : -1;
    }

private:
    posix_spawn_file_actions_t actions_ = {};
    posix_spawnattr_t attributes_ = {};
    bool isSet_ = false;
};

bool AwaitInput(int fd, Clock::time_point deadline) {
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        pollfd polled = {fd, POLLIN, 0};
        const int count = poll(&polled, 1, static_cast<int>(std::clamp<decltype(left)>(left, 0, INT_MAX)));
        if (count >= 0 || errno != EINTR) {
            return count > 0;
        }
    }
}

/** Everything up to the end; no value beyond a limit. */
std::optional<std::string> ReadAll(int fd, std::size_t maxBytes, Clock::time_point deadline) {
    constexpr std::size_t kBlock = 4096;
    std::array<char, kBlock> block = {};
    std::string text;
    while (AwaitInput(fd, deadline)) {
        const ssize_t count = ReadSome(fd, block.data(), block.size());
        if (count == 0) {
            return text;
        }
        if (count < 0 || text.size() + static_cast<std::size_t>(count) > maxBytes) {
            return std::nullopt;
        }
        text.append(block.data(), static_cast<std::size_t>(count));
    }
    return std::nullopt;
}

/** Whether it ended by itself, with status 0. */
bool Finish(pid_t pid, bool mayGoOn, Clock::time_point deadline) {
    const Descriptor process = WatchProcess(pid);
    if (!mayGoOn || !process.IsOpen() || !AwaitInput(process.Get(), deadline)) {
        kill(pid, SIGKILL);
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace

std::optional<std::string> OutputOf(const std::vector<std::string>& command, const ProgramLimits& limits) {
    std::array<int, 2> ends = {};
    if (command.empty() || pipe2(ends.data(), O_CLOEXEC) != 0) {
        return std::nullopt;
    }
    std::signal(SIGCHLD,
                SIG_DFL);  // whoever started this tool may have it ignored, and then nobody learns how a child ended
    const Descriptor reading(ends[0]);
    pid_t pid = -1;
    {
        const Descriptor writing(ends[1]);
        pid = SpawnSettings(writing.Get()).Start(command);
    }
    if (pid < 0) {
        return std::nullopt;
    }
    const auto deadline = Clock::now() + limits.time;
    auto text = ReadAll(reading.Get(), limits.bytes, deadline);
    const bool isGood = Finish(pid, text.has_value(), deadline);
    return isGood ? text : std::nullopt;
}

}  // namespace ardv::ctl
