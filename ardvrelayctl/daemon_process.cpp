// SPDX-License-Identifier: Apache-2.0
#include "daemon_process.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>

#include <relay/daemon/daemon.h>

#include "command_error.h"
#include "small_file.h"
#include "table.h"
#include "text.h"

namespace ardv::ctl {

using ARDV::Relay::Daemon;

namespace {

constexpr std::string_view kDaemonName = "ardvrelayd";
constexpr std::size_t kMaxPidFile = 64;
constexpr std::size_t kMaxProcFile = 4096;
constexpr std::string_view kNotWaiting = "0";  // the kernel's word, and what it tells those who may not know

struct StateWord {
    char state;
    const char* words;
};

constexpr StateWord kStateWords[] = {
    {'R', "running"},
    {'S', "sleeping, as it does while there is nothing to do"},
    {'D', "waiting for a disk or a file server"},
    {'T', "stopped by a signal"},
    {'t', "stopped by a debugger"},
    {'Z', "dead, and not yet taken notice of by its parent"},
    {'X', "dead"},
    {'I', "idle"},
};

std::string OfProcess(pid_t pid, const char* file) {
    return ReadSmallFile("/proc/" + std::to_string(pid) + "/" + file, kMaxProcFile).value_or("");
}

// The name stands in parentheses, and may hold anything, parentheses included.
char StateIn(const std::string& stat) {
    constexpr std::size_t kBetween = 2;  // ") "
    const auto end = stat.rfind(')');
    return end == std::string::npos || end + kBetween >= stat.size() ? '?' : stat[end + kBetween];
}

std::string FirstLine(const std::string& text) {
    return text.substr(0, text.find('\n'));
}

}  // namespace

std::optional<ProcessFacts> FactsOf(pid_t pid) {
    const auto stat = OfProcess(pid, "stat");
    if (pid < 1 || stat.empty()) {
        return std::nullopt;
    }
    const auto waits = FirstLine(OfProcess(pid, "wchan"));
    return ProcessFacts{StateIn(stat), FirstLine(OfProcess(pid, "comm")), waits == kNotWaiting ? "" : waits};
}

const char* StateWords(char state) {
    const auto* row = FindRow(kStateWords, [state](const StateWord& r) { return r.state == state; });
    return row ? row->words : "in a state that cannot be told";
}

bool IsAlive(pid_t pid) {
    const auto facts = FactsOf(pid);
    return facts && facts->state != 'Z' && facts->state != 'X';
}

bool IsDaemon(pid_t pid) {
    const auto facts = FactsOf(pid);
    return facts && facts->name == kDaemonName && IsAlive(pid);
}

std::string WordsForStranger(pid_t pid) {
    const auto facts = FactsOf(pid);
    return facts && IsAlive(pid) ? "another program (" + Excerpt(facts->name) + ")" : "gone";
}

Descriptor WatchProcess(pid_t pid) {
    // Not by the C library's function, whose header does not give it C linkage for C++.
    return Descriptor(pid < 1 ? -1 : static_cast<int>(syscall(SYS_pidfd_open, pid, 0U)));
}

std::optional<pid_t> ReadPidFile() {
    const auto text = ReadSmallFile(Daemon::GetPidFile(), kMaxPidFile).value_or("");
    pid_t pid = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), pid);
    return result.ec == std::errc() && pid > 0 ? std::optional(pid) : std::nullopt;
}

pid_t RequireDaemon() {
    const auto pid = ReadPidFile();
    const std::string file = Printable(Daemon::GetPidFile());
    if (!pid) {
        throw CommandError(kExitNotRunning, "the daemon does not run: " + file + " names no process");
    }
    if (!IsDaemon(*pid)) {
        throw CommandError(kExitNotRunning, "the daemon does not run: process " + std::to_string(*pid) + ", which " +
                                                file + " names, is " + WordsForStranger(*pid));
    }
    RequireRights(*pid);
    return *pid;
}

void RequireRights(pid_t pid) {
    if (kill(pid, 0) != 0 && errno == EPERM) {
        throw CommandError(kExitNoPermission, "you may not send the daemon a signal: run this as root");
    }
}

}  // namespace ardv::ctl
