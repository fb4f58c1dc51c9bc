// SPDX-License-Identifier: Apache-2.0
#include "support/daemon_process.h"

#include <sys/prctl.h>

#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <stdexcept>
#include <string_view>
#include <thread>
#include <utility>

#include <relay/daemon/daemon.h>

#include "support/deadline.h"
#include "support/file_text.h"
#include "support/folder_watch.h"
#include "support/process.h"
#include "support/program.h"

namespace ardv::test {
namespace {

using ARDV::Relay::Daemon;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr milliseconds kLook{2};

// A daemon that went into the background is its former grandparent's child, and can be waited for.
pid_t StartInBackground(const std::vector<std::string>& words) {
    ::prctl(PR_SET_CHILD_SUBREAPER, 1);
    const auto started = RunProgram(words);
    if (started.exitCode != 0) {
        throw std::runtime_error("the daemon did not start: " + std::to_string(started.exitCode) + " " + started.err);
    }
    return static_cast<pid_t>(std::strtol(ReadText(kDaemonPidFile).c_str(), nullptr, 10));
}

bool HasPendingSignals(pid_t pid) {
    constexpr std::string_view kField = "ShdPnd:\t";
    const std::string status = ReadText("/proc/" + std::to_string(pid) + "/status");
    const auto place = status.find(kField);
    return place != std::string::npos && std::strtoull(status.c_str() + place + kField.size(), nullptr, 16) != 0;
}

}  // namespace

bool Await(const std::function<bool()>& isTrue, milliseconds limit) {
    if (isTrue()) {
        return true;  // a watch costs more than most of what is waited for
    }
    const FolderWatch watch("/tmp");
    const auto end = Clock::now() + limit;
    while (!isTrue()) {
        if (Clock::now() > end) {
            return false;
        }
        watch.AwaitChange(kLook);
    }
    return true;
}

bool Holds(const std::function<bool()>& isTrue, milliseconds time) {
    return !Await([&] { return !isTrue(); }, time);
}

std::string DaemonStatus() {
    std::string serverId;
    std::string state;
    std::string error;
    return Daemon::GetStatus(serverId, state, error, nullptr) ? state + " " + error : "bad";
}

std::string AwaitStatus(const std::string& status, milliseconds limit) {
    std::string seen;
    Await([&] { return (seen = DaemonStatus()) == status; }, limit);
    return seen;
}

Json::Value DaemonReport() {
    Json::Value report;
    Await([&] { return Daemon::DebugStatus(report) == 0; });
    return report;
}

DaemonProcess::DaemonProcess(const std::vector<std::string>& options, Place place) {
    std::vector<std::string> words{ARDV_DAEMON};
    words.insert(words.end(), options.begin(), options.end());
    if (place == Place::kBackground) {
        pid_ = StartInBackground(words);
        return;
    }
    words.emplace_back("--foreground");
    pid_ = Spawn(std::move(words), kLog);
}

DaemonProcess::~DaemonProcess() {
    Stop(SIGKILL, kPatience);
}

bool DaemonProcess::Runs() const {
    return pid_ > 0 && !HasEnded(pid_, 0);
}

void DaemonProcess::Signal(int signal) const {
    if (pid_ > 0) {
        ::kill(pid_, signal);
    }
}

// The daemon's handler puts each into a pipe; of two that are pending for it at once the second is lost.
bool DaemonProcess::SignalAndSee(int signal) const {
    const auto end = Clock::now() + kPatience;
    Signal(signal);
    while (HasPendingSignals(pid_)) {
        if (Clock::now() > end) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

bool DaemonProcess::Reload() const {
    const auto before = DaemonReport()["reloads"].asUInt64();
    Signal(SIGHUP);
    return Await([&] { return DaemonReport()["reloads"].asUInt64() > before; });
}

std::optional<int> DaemonProcess::Stop(int signal, milliseconds limit) {
    Signal(signal);
    return End(limit);
}

std::optional<int> DaemonProcess::End(milliseconds limit) {
    if (pid_ < 0 || !HasEnded(pid_, static_cast<int>(limit.count()))) {
        return std::nullopt;
    }
    return Reap(std::exchange(pid_, -1));
}

std::string DaemonProcess::Log() const {
    return ReadText(kLog);
}

std::size_t DaemonProcess::Descriptors() const {
    const std::filesystem::directory_iterator folder("/proc/" + std::to_string(pid_) + "/fd");
    return static_cast<std::size_t>(std::distance(begin(folder), end(folder)));
}

long DaemonProcess::Memory() const {
    const std::string status = ReadText("/proc/" + std::to_string(pid_) + "/status");
    const auto place = status.find("RssAnon:");
    return place == std::string::npos ? -1 : std::strtol(status.c_str() + place + sizeof "RssAnon:", nullptr, 10);
}

}  // namespace ardv::test
