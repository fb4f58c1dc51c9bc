// SPDX-License-Identifier: Apache-2.0
#include "exit_code.h"

#include <relay/request/request_alias.h>

#include "table.h"

namespace ardv::ctl {

using namespace ARDV::Relay;

namespace {

struct RetryExit {
    ALIAS_RETRY_TYPE type;
    ExitCode code;
};

constexpr RetryExit kRetryExits[] = {
    {ALIAS_RETRY_TYPE_NONE, kExitNothing},
    {ALIAS_RETRY_TYPE_RESOLVE, kExitResolve},
    {ALIAS_RETRY_TYPE_LATER, kExitLater},
    {ALIAS_RETRY_TYPE_USER, kExitUser},
};

struct ResultExit {
    int result;
    ExitCode code;
};

constexpr int kNotRunning = 1;
constexpr int kNotSignalled = 2;

constexpr ResultExit kResultExits[] = {
    {RELAYD_RET_SUCCESS, kExitSuccess},
    {kNotRunning, kExitNotRunning},
    {kNotSignalled, kExitNotRunning},
    {RELAYD_RET_ERR_CONFIG, kExitConfig},
    {RELAYD_RET_ERR_REGISTER, kExitLater},
    {RELAYD_RET_ERR_NETWORK, kExitLater},
    {RELAYD_RET_ERR_RESOLV, kExitResolve},
    {RELAYD_RET_ERR_AUTH, kExitUser},
    {RELAYD_RET_ERR_NOT_SUPPORT, kExitUnavailable},
    {RELAYD_RET_ERR_SERVER_BUSY, kExitLater},
    {RELAYD_RET_ERR_LOCK, kExitNoAnswer},
    {RELAYD_RET_ERR_SERVER_LIMIT, kExitLater},
    {RELAYD_RET_ERR_SERVER_CHANGED, kExitLater},
    {RELAYD_RET_ERR_SERVER_IP_CHANGED, kExitLater},
    {RELAYD_RET_ERR_API_KEY_EXPIRED, kExitUser},
    {RELAYD_RET_ERR_VIOLATION, kExitUser},
    {RELAYD_RET_ERR_UNKNOWN, kExitBadStatus},
};

struct Meaning {
    ExitCode code;
    const char* text;
};

constexpr Meaning kMeanings[] = {
    {kExitSuccess, "success"},
    {kExitResolve, "the server's name did not resolve: try again once the network is up"},
    {kExitLater, "failed, and may succeed by itself later"},
    {kExitUser, "refused, until you change something"},
    {kExitNothing, "not there: no alias is set or nothing is recorded for it, no such key, no such service, no tunnel"},
    {kExitNotRunning, "the daemon does not run"},
    {kExitBadStatus, "the daemon's status file or report cannot be used"},
    {kExitNoAnswer, "the daemon does not answer, or is being asked by somebody else"},
    {kExitProblem, "the checks found a problem"},
    {kExitUsage, "wrong use of this tool"},
    {kExitUnavailable, "a part of the device, such as its web server, did not do what it was asked for"},
    {kExitCantCreate, "a file could not be written, or the outcome not be recorded"},
    {kExitIo, "what this tool printed could not be written"},
    {kExitNoPermission, "you may not do that: run it as root"},
    {kExitConfig, "the configuration or the device's identity cannot be used"},
    {kExitTimeout, "what was waited for did not come in time"},
};

}  // namespace

ExitCode ExitCodeOf(ALIAS_RET ret) {
    ALIAS_RETRY_TYPE type = ALIAS_RETRY_TYPE_LATER;
    if (ret == ALIAS_RET_SUCCESS || !AliasRequest::GetRetryType(ret, type)) {
        return ret == ALIAS_RET_SUCCESS ? kExitSuccess : kExitLater;
    }
    const auto* row = FindRow(kRetryExits, [type](const RetryExit& r) { return r.type == type; });
    return row ? row->code : kExitLater;
}

ExitCode ExitCodeOfDaemon(int result) {
    const auto* row = FindRow(kResultExits, [result](const ResultExit& r) { return r.result == result; });
    return row ? row->code : kExitBadStatus;
}

std::string ExitCodeHelp() {
    std::string help = "Exit codes:\n";
    for (const auto& [code, text] : kMeanings) {
        const auto number = std::to_string(code);
        help += std::string(4 - number.size(), ' ') + number + "  " + text + "\n";
    }
    return help;
}

}  // namespace ardv::ctl
