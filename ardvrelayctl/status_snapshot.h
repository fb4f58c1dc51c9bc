// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <json/value.h>

#include <relay/common/vocabulary.h>

#include "session.h"
#include "tunnel_state.h"

namespace ardv::ctl {

/** The folder of the status files, and their names there. */
inline constexpr const char kStatusFolder[] = "/tmp";
inline constexpr const char kDaemonStatusName[] = ".ardvrelayd.status";
inline constexpr const char kAliasStatusName[] = "nubo_alias.status";

/** What is known of the running daemon and of the alias at one moment. */
struct StatusSnapshot {
    int result = 0;    ///< of the status file: 0 the daemon runs, 1 it doesn't, 255 the file is bad
    Json::Value file;  ///< the status file as it stands, or what could be read of it
    pid_t pid = -1;    ///< of the daemon that runs; -1 if none does
    std::string serverId;
    ARDV::Relay::RELAYD_STATE state = ARDV::Relay::RELAYD_STATE_NOT_RUNNING;
    ARDV::Relay::RELAYD_RET error = ARDV::Relay::RELAYD_RET_SUCCESS;
    std::optional<std::int64_t> since;  ///< of the last change, in seconds since 1970
    std::vector<std::string> services;  ///< that the daemon relays
    bool isTunnelOrdered = false;       ///< by the service
    std::optional<TunnelState> tunnel;  ///< what the daemon says of it; no value where that cannot be used
    std::string configFault;            ///< why the alias is not known, in words
    std::string alias;                  ///< the configured one
    std::string aliasStatus;            ///< the status word of the configured alias; empty where nothing is recorded
    std::string aliasExtra;

    bool IsRunning() const { return result == 0; }
};

/** Reads the status files and the alias settings. A configuration that cannot be used is told in the snapshot. */
StatusSnapshot ReadSnapshot(const Session& session);

/** Whether two snapshots say the same. */
bool AreAlike(const StatusSnapshot& one, const StatusSnapshot& other);

/** What is said of a daemon that doesn't run, or whose status file is bad; no value while it runs. */
struct DaemonFault {
    std::string text;
    ExitCode exitCode;
};
std::optional<DaemonFault> FaultOf(const StatusSnapshot& snapshot);

}  // namespace ardv::ctl
