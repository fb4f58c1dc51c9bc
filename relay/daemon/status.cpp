// SPDX-License-Identifier: Apache-2.0
#include <sys/file.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <string_view>
#include <thread>

#include <relay/alias/alias_status.h>
#include <relay/common/vocabulary.h>
#include <relay/config/config.h>
#include <relay/config/paths.h>
#include <relay/daemon/file_lock.h>
#include <relay/daemon/log.h>
#include <relay/daemon/running_daemon.h>
#include <relay/utils/file_io.h>
#include <relay/utils/json_text.h>

RELAY_LOG_SOURCE("daemon.cpp");

namespace ARDV::Relay {

namespace {

using namespace std::chrono_literals;

constexpr int kProbe = 0;  // a signal that only asks whether the process is there
constexpr pid_t kNoPid = -1;
constexpr const char kNoServerId[] = "--";
constexpr const char kStatusFailed[] = "get status failed\n";
constexpr int kReportAttempts = 30;
constexpr auto kFirstWait = 50us;
constexpr auto kNextWait = 100us;

enum class Loaded { kLoaded, kUnreadable, kDamaged };

// Not by the JSON store, which moves a damaged file aside: these files are somebody else's to replace.
Loaded Load(const std::string& path, Json::Value& value) {
    std::string text;
    const auto result = Utils::ReadWholeFile(path, kMaxJsonFileSize, text);
    if (result == Utils::ReadResult::kUnreadable) {
        return Loaded::kUnreadable;
    }
    return result == Utils::ReadResult::kRead && JsonText::Parse(text, value) ? Loaded::kLoaded : Loaded::kDamaged;
}

// The callers are tools, and the log is the daemon's: their messages go to the system log.
int ReadStatusFile(Json::Value& status) {
    const auto loaded = Load(Daemon::kStatusFile, status);
    if (loaded == Loaded::kUnreadable) {
        return RunningDaemon::kNotRunning;
    }
    if (loaded == Loaded::kDamaged) {
        syslog(LOG_ERR, "%s:%d bad ardvrelayd status file", kRelayLogSource, __LINE__);
        return RELAYD_RET_ERR_UNKNOWN;
    }
    return RELAYD_RET_SUCCESS;
}

int SignalWriterOf(const Json::Value& status, int signal) {
    const pid_t pid = JsonText::IntMember(status, "pid").value_or(kNoPid);
    if (pid == kNoPid) {
        syslog(LOG_ERR, "%s:%d bad ardvrelayd status pid", kRelayLogSource, __LINE__);
        return RELAYD_RET_ERR_UNKNOWN;
    }
    return RunningDaemon::SendSignal(pid, signal) ? RELAYD_RET_SUCCESS : RunningDaemon::kNotRunning;
}

bool Relays(const Json::Value& status, std::string_view service) {
    const auto* services = JsonText::Member(status, "service");
    if (!services || !services->isArray()) {
        return false;
    }
    for (const auto& relayed : *services) {
        if (JsonText::StringMember(relayed, "id") == service) {
            return true;
        }
    }
    return false;
}

// In one piece, and at once: what the caller prints otherwise must come out before it or behind it.
void Print(const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
}

int PrintReport() {
    Json::Value report;
    const int result = Daemon::DebugStatus(report);
    switch (result) {
        case RELAYD_RET_SUCCESS:
            Print(JsonText::Compact(report));
            break;
        case RunningDaemon::kNotRunning:
            Print(std::string(RunningDaemon::Name()) + " is not running\n");
            break;
        default:
            Print(kStatusFailed);
    }
    return result;
}

int PrintStatus() {
    const RelaydConf configuration(Paths::kMainConfigFile);
    const AliasStatus aliasStatus;
    std::string serverId;
    std::string state;
    std::string error;
    if (!Daemon::GetStatus(serverId, state, error, nullptr)) {
        Print(kStatusFailed);
        return RunningDaemon::kFailed;
    }
    const std::string alias = configuration.GetAliasConf().GetAliasName();
    std::string aliasWord;
    std::string extra;
    aliasStatus.GetStatus(alias, aliasWord, extra);
    std::string text =
        "serverID: " + serverId + "\nstate: " + state + "\nalias: " + alias + "\nalias_status: " + aliasWord + "\n";
    if (error != GetErrorStr(RELAYD_RET_SUCCESS)) {
        text += "error: " + error + "\n";
    }
    Print(text);
    return state == GetStateStr(RELAYD_STATE_NOT_RUNNING) ? RunningDaemon::kNotRunning : RELAYD_RET_SUCCESS;
}

/** Deletes a file in the end. */
class DeletedFile {
public:
    explicit DeletedFile(const std::string& path) : path_(path) {}
    ~DeletedFile() { unlink(path_.c_str()); }
    DeletedFile(const DeletedFile&) = delete;
    DeletedFile& operator=(const DeletedFile&) = delete;

private:
    const std::string& path_;
};

// The daemon writes into the file while it is read: half a report is read again.
int FetchReport(const std::string& path, Json::Value& report) {
    std::this_thread::sleep_for(kFirstWait);
    for (int attempt = 1; attempt <= kReportAttempts; ++attempt) {
        const auto loaded = Load(path, report);
        if (loaded == Loaded::kLoaded) {
            return RELAYD_RET_SUCCESS;
        }
        if (loaded == Loaded::kUnreadable) {
            syslog(LOG_ERR, "%s:%d ardvrelayd status file is not ready", kRelayLogSource, __LINE__);
            return RELAYD_RET_ERR_UNKNOWN;
        }
        if (attempt < kReportAttempts) {
            std::this_thread::sleep_for(kNextWait);
        }
    }
    syslog(LOG_DEBUG, "%s:%d ardvrelayd status parse failed", kRelayLogSource, __LINE__);
    return RELAYD_RET_ERR_LOCK;
}

}  // namespace

int Daemon::GetStatus(Json::Value& status) {
    const int result = ReadStatusFile(status);
    return result == RELAYD_RET_SUCCESS ? SignalWriterOf(status, kProbe) : result;
}

int Daemon::UpdateAlias() {
    Json::Value status;
    const int result = ReadStatusFile(status);
    return result == RELAYD_RET_SUCCESS ? SignalWriterOf(status, SIGRTMIN + 1) : result;
}

bool Daemon::GetStatus(std::string& serverId, std::string& state, std::string& error, const char* service) {
    Json::Value status;
    const int result = GetStatus(status);
    JsonText::Take(status, "serverID", serverId);
    if (result == RELAYD_RET_ERR_UNKNOWN) {
        return false;
    }
    const bool isRunning = result == RELAYD_RET_SUCCESS && (!service || Relays(status, service));
    if (service && !isRunning) {
        serverId = kNoServerId;
    }
    int stateValue = RELAYD_STATE_NOT_RUNNING;
    int errorValue = RELAYD_RET_SUCCESS;
    if (isRunning) {
        JsonText::Take(status, "state", stateValue);
        JsonText::Take(status, "error", errorValue);
    }
    state = GetStateStr(static_cast<RELAYD_STATE>(stateValue));
    error = GetErrorStr(static_cast<RELAYD_RET>(errorValue));
    return true;
}

int Daemon::Status(bool debug) {
    return debug ? PrintReport() : PrintStatus();
}

std::string Daemon::GetReportFile(pid_t pid) {
    return "/tmp/.ardvrelayd." + std::to_string(pid) + ".debug";
}

int Daemon::DebugStatus(Json::Value& report) {
    LibInit();
    report = Json::Value();
    const pid_t pid = RunningDaemon::FindPid();
    if (pid < 1) {
        return RunningDaemon::kNotRunning;
    }
    const std::string file = GetReportFile(pid);
    _FileLock lock(file.c_str());
    if (!lock.Lock(LOCK_EX)) {
        syslog(LOG_INFO, "%s:%d lock failed", kRelayLogSource, __LINE__);
        return RELAYD_RET_ERR_LOCK;
    }
    const DeletedFile deleted(file);  // while it is still locked: a later request finds a file of its own
    if (!RunningDaemon::SendSignal(pid, SIGUSR1)) {
        syslog(LOG_ERR, "%s:%d daemon is not running", kRelayLogSource, __LINE__);
        return RunningDaemon::kNotRunning;
    }
    return FetchReport(file, report);
}

}  // namespace ARDV::Relay
