// SPDX-License-Identifier: Apache-2.0
#include "tunnel_state.h"

#include <limits>
#include <string_view>

#include "json_member.h"
#include "table.h"
#include "text.h"

namespace ardv::ctl {

namespace {

constexpr std::string_view kTunnel = "tunnel";
constexpr std::size_t kMaxPorts = 1000;
constexpr std::int64_t kLastPort = 65535;

struct StatusMeaning {
    std::string_view status;
    const char* meaning;
};

constexpr StatusMeaning kMeanings[] = {
    {"NONE", "there is no tunnel yet"},
    {"READY", "the tunnel is up"},
    {"CLOSE", "the tunnel was up, and has ended"},
    {"FAILED", "no candidate has led to the relay"},
    {"INVALID_CONF", "what the service says of its relay cannot be used"},
    {"CREATING", "the tunnel is being set up"},
};

struct TextMember {
    std::string_view name;
    std::string TunnelState::*text;
};

constexpr TextMember kTexts[] = {
    {"status", &TunnelState::status},  {"relay_ip", &TunnelState::relay},      {"peer_ip", &TunnelState::peer},
    {"local_ip", &TunnelState::local}, {"local_ip6", &TunnelState::localIpv6}, {"error", &TunnelState::error},
};

constexpr TextMember kCandidateTexts[] = {
    {"protocol", &TunnelState::protocol}, {"host", &TunnelState::host}, {"port", &TunnelState::port}};

template <std::size_t kCount>
void TakeTexts(TunnelState& state, const Json::Value& object, const TextMember (&members)[kCount]) {
    for (const auto& [name, text] : members) {
        state.*text = TextOf(object, name);
    }
}

std::vector<OpenPort> PortsIn(const Json::Value& tunnel) {
    std::vector<OpenPort> ports;
    const auto* list = Member(tunnel, "open");
    if (list && list->isArray()) {
        for (const auto& element : *list) {
            const auto port = NumberOf(element, "port").value_or(0);
            if (port > 0 && port <= kLastPort && ports.size() < kMaxPorts) {
                ports.push_back({TextOf(element, "id"), static_cast<int>(port)});
            }
        }
    }
    return ports;
}

pid_t PidIn(const Json::Value& tunnel) {
    const auto pid = NumberOf(tunnel, "pid").value_or(-1);
    return pid > 0 && pid <= std::numeric_limits<pid_t>::max() ? static_cast<pid_t>(pid) : -1;
}

}  // namespace

bool IsTunnelOrdered(const Json::Value& file) {
    const auto* tunnel = Member(file, kTunnel);
    return tunnel && !tunnel->isNull();
}

std::optional<TunnelState> TunnelIn(const Json::Value& file) {
    const auto* tunnel = Member(file, kTunnel);
    if (!tunnel || TextOf(*tunnel, "status").empty()) {
        return std::nullopt;
    }
    TunnelState state;
    TakeTexts(state, *tunnel, kTexts);
    if (const auto* candidate = Member(*tunnel, "candidate")) {
        TakeTexts(state, *candidate, kCandidateTexts);
    }
    state.pid = PidIn(*tunnel);
    state.since = NumberOf(*tunnel, "since");
    state.retryAt = NumberOf(*tunnel, "retry_at");
    if (state.IsUp()) {
        state.open = PortsIn(*tunnel);
    }
    return state;
}

std::string TunnelInShort(const TunnelState& tunnel) {
    return Excerpt(tunnel.status) + (tunnel.error.empty() ? "" : " (" + Excerpt(tunnel.error) + ")");
}

const char* MeaningOfTunnel(const std::string& status) {
    const auto* row = FindRow(kMeanings, [&](const StatusMeaning& m) { return m.status == status; });
    return row ? row->meaning : "a status that this tool does not know";
}

}  // namespace ardv::ctl
