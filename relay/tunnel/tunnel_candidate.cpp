// SPDX-License-Identifier: Apache-2.0
#include <relay/tunnel/tunnel_candidate.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>
#include <utility>

#include <relay/utils/json_text.h>

namespace ARDV::Relay {

namespace {

constexpr std::array<TunnelProtocol, 4> kProtocols = {{
    {"udp", true, false},
    {"tcp", false, false},
    {"udp6", true, true},
    {"tcp6", false, true},
}};
constexpr const char kUsableType[] = "openvpn";
constexpr std::uint32_t kHighestPort = 65535;
constexpr const char kNoAddress[] = "::";

const TunnelProtocol* FindProtocol(std::string_view name) {
    const auto* found = std::find_if(kProtocols.begin(), kProtocols.end(),
                                     [name](const TunnelProtocol& protocol) { return protocol.name == name; });
    return found == kProtocols.end() ? nullptr : found;
}

/** Text, and what the JSON library has a text for: numbers, booleans, null. */
std::optional<std::string> TextOf(const Json::Value& value, std::string_view key) {
    const Json::Value* member = JsonText::Member(value, key);
    return member && !member->isArray() && !member->isObject() ? std::optional(member->asString()) : std::nullopt;
}

/** Whether a text is digits throughout and no more than `highest`. */
bool IsNumber(const std::string& text, std::uint32_t lowest, std::uint32_t highest) {
    std::uint32_t number = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end && number >= lowest && number <= highest;
}

const char* WhyUnfit(const TunnelCandidate& candidate) {
    if (!IsNumber(candidate.port, 1, kHighestPort)) {
        return "its port is none";
    }
    if (!IsNumber(candidate.mtu, 0, std::numeric_limits<std::uint32_t>::max())) {
        return "its mtu is no number";
    }
    if (candidate.protocol->isIpv6 && (candidate.host.empty() || candidate.host == kNoAddress)) {
        return "the relay server has no IPv6 address";
    }
    return candidate.host.starts_with('-') ? "the relay server's address looks like an option" : nullptr;
}

}  // namespace

const char* ReadCandidate(const Json::Value& value, const RelayAddresses& addresses, TunnelCandidate& candidate) {
    const auto protocol = TextOf(value, "protocol");
    auto port = TextOf(value, "port");
    auto mtu = TextOf(value, "mtu");
    if (!protocol || !port || !mtu) {
        return "it lacks protocol, port or mtu";
    }
    TunnelCandidate read;
    read.protocol = FindProtocol(*protocol);
    if (!read.protocol) {
        return "its protocol is unknown";
    }
    read.host = read.protocol->isIpv6 ? addresses.ipv6 : addresses.ipv4;
    read.port = std::move(*port);
    read.mtu = std::move(*mtu);
    read.isMtuDiscovered = JsonText::BoolMember(value, "mtu-disc").value_or(false);
    const char* unfit = WhyUnfit(read);
    if (!unfit) {
        candidate = std::move(read);
    }
    return unfit;
}

const char* WhySkipped(const Json::Value& value, const RelayAddresses& addresses, bool allowUdp, bool allowIpv6) {
    if (JsonText::StringMember(value, "type") != kUsableType) {
        return "it is not for OpenVPN";
    }
    TunnelCandidate candidate;
    if (const char* unfit = ReadCandidate(value, addresses, candidate)) {
        return unfit;
    }
    if (!allowUdp && candidate.protocol->isUdp) {
        return "UDP is not allowed";
    }
    return !allowIpv6 && candidate.protocol->isIpv6 ? "IPv6 is not allowed" : nullptr;
}

}  // namespace ARDV::Relay
