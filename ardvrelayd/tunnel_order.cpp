// SPDX-License-Identifier: Apache-2.0
#include "tunnel_order.h"

#include <sys/socket.h>

#include <algorithm>
#include <iterator>
#include <string>

#include "address_text.h"
#include "json_member.h"

namespace ardv::daemon {

namespace {

constexpr std::size_t kMaxUserSize = 64;       // what an OpenVPN server takes as a common name
constexpr std::size_t kMaxPasswordSize = 500;  // what OpenVPN 2.6 carries

bool IsPrintable(const std::string& text) {
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return static_cast<unsigned char>(c) >= ' ' && c != 0x7f; });
}

// Blanks, too: the name becomes part of a file's.
bool IsUser(const std::string& text) {
    return text.size() <= kMaxUserSize && IsPrintable(text) && text.find_first_of("/ ") == std::string::npos;
}

bool IsPassword(const std::string& text) {
    return text.size() <= kMaxPasswordSize && IsPrintable(text);
}

bool IsHostOrNone(const std::string& text) {
    return text.empty() || IsHostName(text);
}

bool IsIPv6OrNone(const std::string& text) {
    return text.empty() || IsAddress(text, AF_INET6);
}

struct Row {
    const char* key;
    bool (*isUsable)(const std::string& text);  // of an empty text where the member is missing
};

constexpr Row kRelay[] = {
    {"relay_ip", IsHostOrNone}, {"relay_ipv6", IsIPv6OrNone}, {"relay_user", IsUser}, {"relay_pass", IsPassword}};

}  // namespace

std::optional<TunnelOrder> ReadTunnelOrder(const Json::Value& members) {
    const auto* relay = ObjectMember(members, "relay");
    const auto* candidates = ArrayMember(members, "candidates");
    if (!relay || !candidates) {
        return std::nullopt;
    }
    TunnelOrder order;
    for (const auto& row : kRelay) {
        const auto text = TextMember(*relay, row.key).value_or("");
        if (!row.isUsable(text)) {
            return std::nullopt;
        }
        order.relay[row.key] = text;
    }
    order.candidates = Json::Value(Json::arrayValue);
    const auto count = std::min(candidates->size(), kMaxCandidates);
    for (Json::ArrayIndex i = 0; i < count; ++i) {
        order.candidates.append((*candidates)[i]);
    }
    return order;
}

}  // namespace ardv::daemon
