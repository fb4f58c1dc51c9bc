// SPDX-License-Identifier: Apache-2.0
#include "report_request.h"

#include <sys/file.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include <relay/common/vocabulary.h>
#include <relay/daemon/daemon.h>
#include <relay/daemon/file_lock.h>

#include "command_error.h"
#include "daemon_process.h"
#include "json_file.h"
#include "status_watch.h"

namespace ardv::ctl {

using namespace ARDV::Relay;

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kPatience = std::chrono::seconds(2);
constexpr auto kBetweenLocks = std::chrono::milliseconds(20);
constexpr int kNotRunning = 1;

bool ReadAnswer(const std::string& path, Json::Value& report) {
    try {
        const auto text = ReadText({"the daemon's report", path});
        return text && !Parse(*text, report);
    } catch (const CommandError&) {
        return false;
    }
}

/** Waits for the answer to a signal. The file is locked, and there as long as this takes. */
int AwaitAnswer(pid_t pid, const std::string& path, Clock::time_point deadline, Json::Value& report) {
    StatusWatch watch({std::filesystem::path(path).filename()});
    if (Daemon::Signal(SIGUSR1) != RELAYD_RET_SUCCESS) {
        return kNotRunning;
    }
    while (!ReadAnswer(path, report)) {
        if (!IsAlive(pid)) {
            return kNotRunning;
        }
        if (watch.Sleep(pid, deadline) == StatusWatch::News::kTimeout) {
            return RELAYD_RET_ERR_LOCK;
        }
    }
    return RELAYD_RET_SUCCESS;
}

/** The whole request once more, with a longer wait for its answer, and for others who are asking. */
int RequestPatiently(pid_t pid, Json::Value& report) {
    const auto path = Daemon::GetReportFile(pid);
    const auto deadline = Clock::now() + kPatience;
    _FileLock lock(path.c_str());
    StatusWatch daemon({});
    while (!lock.Lock(LOCK_EX)) {
        if (Clock::now() >= deadline || !IsAlive(pid)) {
            return IsAlive(pid) ? RELAYD_RET_ERR_LOCK : kNotRunning;
        }
        daemon.Sleep(pid, std::min(deadline, Clock::now() + kBetweenLocks));
    }
    const int result = AwaitAnswer(pid, path, deadline, report);
    unlink(path.c_str());  // while it is still locked: a later request finds a file of its own
    return result;
}

}  // namespace

int RequestReport(pid_t pid, Json::Value& report) {
    const int result = Daemon::DebugStatus(report);
    const bool isFinal = result == RELAYD_RET_SUCCESS || result == kNotRunning;
    return isFinal ? result : RequestPatiently(pid, report);
}

}  // namespace ardv::ctl
