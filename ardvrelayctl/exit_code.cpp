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

struct Meaning {
    ExitCode code;
    const char* text;
};

constexpr Meaning kMeanings[] = {
    {kExitSuccess, "success"},
    {kExitResolve, "the server's name did not resolve: try again once the network is up"},
    {kExitLater, "failed, and may succeed by itself later"},
    {kExitUser, "refused, until you change something"},
    {kExitNothing, "not there: no alias is set or nothing is recorded for it, no such key, no such service"},
    {kExitUsage, "wrong use of this tool"},
    {kExitUnavailable, "a part of the device, such as its web server, did not do what it was asked for"},
    {kExitCantCreate, "a file could not be written, or the outcome not be recorded"},
    {kExitIo, "what this tool printed could not be written"},
    {kExitNoPermission, "you may not do that: run it as root"},
    {kExitConfig, "the configuration or the device's identity cannot be used"},
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

std::string ExitCodeHelp() {
    std::string help = "Exit codes:\n";
    for (const auto& [code, text] : kMeanings) {
        const auto number = std::to_string(code);
        help += std::string(4 - number.size(), ' ') + number + "  " + text + "\n";
    }
    return help;
}

}  // namespace ardv::ctl
