// SPDX-License-Identifier: Apache-2.0
#include "status_snapshot.h"

#include <limits>

#include <relay/alias/alias_status.h>
#include <relay/daemon/daemon.h>

#include "command_error.h"
#include "daemon_process.h"
#include "json_member.h"

namespace ardv::ctl {

using namespace ARDV::Relay;

namespace {

constexpr int kNotRunning = 1;
constexpr std::size_t kMaxServices = 1000;

// A number beyond an integer's bounds names no state and no error.
template <typename Code>
Code CodeOf(const Json::Value& object, std::string_view name, Code missing) {
    const auto number = NumberOf(object, name);
    using Limits = std::numeric_limits<std::int32_t>;
    const bool fits = number && *number >= Limits::min() && *number <= Limits::max();
    return fits ? static_cast<Code>(*number) : missing;
}

std::vector<std::string> ServicesIn(const Json::Value& file) {
    std::vector<std::string> ids;
    const auto* services = Member(file, "service");
    if (services && services->isArray()) {
        for (const auto& service : *services) {
            if (const auto id = TextOf(service, "id"); !id.empty() && ids.size() < kMaxServices) {
                ids.push_back(id);
            }
        }
    }
    return ids;
}

// The library's probe is a signal, which root's daemon refuses to somebody else, and a dead one that nobody has taken
// notice of accepts.
void FindDaemon(StatusSnapshot& snapshot) {
    const auto number = NumberOf(snapshot.file, "pid").value_or(-1);
    if (number < 1 || number > std::numeric_limits<pid_t>::max()) {
        return;
    }
    const auto pid = static_cast<pid_t>(number);
    if (snapshot.result == kNotRunning && IsDaemon(pid)) {
        snapshot.result = RELAYD_RET_SUCCESS;
    } else if (snapshot.IsRunning() && !IsAlive(pid)) {
        snapshot.result = kNotRunning;
    }
    snapshot.pid = snapshot.IsRunning() ? pid : -1;
}

void ReadDaemon(StatusSnapshot& snapshot) {
    snapshot.result = Daemon::GetStatus(snapshot.file);
    FindDaemon(snapshot);
    snapshot.serverId = TextOf(snapshot.file, "serverID");
    if (!snapshot.IsRunning()) {
        return;
    }
    snapshot.state = CodeOf(snapshot.file, "state", RELAYD_STATE_NOT_RUNNING);
    snapshot.error = CodeOf(snapshot.file, "error", RELAYD_RET_SUCCESS);
    snapshot.since = NumberOf(snapshot.file, "since");
    snapshot.services = ServicesIn(snapshot.file);
    snapshot.isTunnelOrdered = IsTunnelOrdered(snapshot.file);
    snapshot.tunnel = TunnelIn(snapshot.file);
}

void ReadAlias(const Session& session, StatusSnapshot& snapshot) {
    try {
        snapshot.alias = LoadOrDefault(session.configFile, Services::kLeaveOut).GetAliasConf().GetAliasName();
        AliasStatus().GetStatus(snapshot.alias, snapshot.aliasStatus, snapshot.aliasExtra);
    } catch (const CommandError& problem) {
        snapshot.configFault = problem.what();
    }
}

}  // namespace

StatusSnapshot ReadSnapshot(const Session& session) {
    StatusSnapshot snapshot;
    ReadDaemon(snapshot);
    ReadAlias(session, snapshot);
    return snapshot;
}

bool AreAlike(const StatusSnapshot& one, const StatusSnapshot& other) {
    return one.result == other.result && one.pid == other.pid && one.file == other.file && one.alias == other.alias &&
           one.aliasStatus == other.aliasStatus && one.aliasExtra == other.aliasExtra &&
           one.configFault == other.configFault;
}

std::optional<DaemonFault> FaultOf(const StatusSnapshot& snapshot) {
    if (snapshot.IsRunning()) {
        return std::nullopt;
    }
    const auto exitCode = ExitCodeOfDaemon(snapshot.result);
    const bool isAbsent = exitCode == kExitNotRunning;
    return DaemonFault{
        isAbsent ? "the daemon does not run"
                 : std::string("the daemon's status file cannot be used: ") + kStatusFolder + "/" + kDaemonStatusName,
        exitCode};
}

}  // namespace ardv::ctl
