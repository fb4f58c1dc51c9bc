// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <json/value.h>

namespace ardv::ctl {

/** A port that the daemon lets through the tunnel, and the service that it does so for. */
struct OpenPort {
    std::string id;
    int port;  ///< 1 to 65535
};

/** What the status file says of the tunnel. Texts are as they stand there, and empty where it says nothing. */
struct TunnelState {
    std::string status;  ///< a word such as "READY"
    std::string relay;
    std::string protocol;  ///< this and the next two: of the candidate that is in use or tried
    std::string host;
    std::string port;
    std::string peer;  ///< this and the next two: addresses in the tunnel
    std::string local;
    std::string localIpv6;
    std::optional<std::int64_t> since;    ///< of the last change of the status, in seconds since 1970
    std::string error;                    ///< the last failure, in words
    std::optional<std::int64_t> retryAt;  ///< when the daemon tries again
    pid_t pid = -1;                       ///< of OpenVPN; -1 for none
    std::vector<OpenPort> open;           ///< what the daemon says is open; empty unless the tunnel is up

    bool IsUp() const { return status == "READY"; }

    /** Whether the tunnel's interface is there, or may be at any moment. */
    bool IsBegun() const { return IsUp() || status == "CREATING"; }
};

/** Whether the status file says that the service has ordered a tunnel. */
bool IsTunnelOrdered(const Json::Value& file);

/** What it says of it; no value without an order, and where the tunnel has no status. */
std::optional<TunnelState> TunnelIn(const Json::Value& file);

/** Its status, and the last failure where there is one. */
std::string TunnelInShort(const TunnelState& tunnel);

/** What a status of the tunnel means, as a sentence without its end. */
const char* MeaningOfTunnel(const std::string& status);

}  // namespace ardv::ctl
