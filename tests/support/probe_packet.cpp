// SPDX-License-Identifier: Apache-2.0
#include "support/probe_packet.h"

#include <arpa/inet.h>
#include <netinet/icmp6.h>
#include <netinet/ip.h>
#include <netinet/ip6.h>
#include <netinet/ip_icmp.h>
#include <netinet/tcp.h>
#include <netinet/udp.h>

#include <array>
#include <cstring>
#include <stdexcept>

namespace ardv::test {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint16_t kOwnPort = 61'000;  // of the prober; the device's own connections don't use it
constexpr std::uint16_t kEchoId = 0x5052;
constexpr std::uint8_t kHops = 64;
constexpr std::uint16_t kWindow = 1024;

/** An address as it stands in a packet. */
Bytes AddressBytes(const std::string& text) {
    Bytes bytes(text.find(':') == std::string::npos ? 4 : 16);
    if (::inet_pton(bytes.size() == 4 ? AF_INET : AF_INET6, text.c_str(), bytes.data()) != 1) {
        throw std::runtime_error("no address: " + text);
    }
    return bytes;
}

/** The sum of the Internet checksum (RFC 1071), not yet folded. */
std::uint64_t SumOf(const Bytes& bytes) {
    std::uint64_t sum = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        sum += i % 2 == 0 ? static_cast<std::uint64_t>(bytes[i]) << 8 : bytes[i];
    }
    return sum;
}

std::uint16_t Checksum(std::uint64_t sum) {
    while (sum >> 16 != 0) {
        sum = (sum & 0xFFFF) + (sum >> 16);
    }
    const auto value = static_cast<std::uint16_t>(~sum & 0xFFFF);
    return htons(value == 0 ? 0xFFFF : value);  // the same number; UDP over IPv6 takes no other zero
}

std::uint8_t ProtocolOf(Probe probe, bool isV6) {
    switch (probe) {
        case Probe::kTcp:
            return IPPROTO_TCP;
        case Probe::kUdp:
            return IPPROTO_UDP;
        case Probe::kEcho:
            break;
    }
    return isV6 ? static_cast<std::uint8_t>(IPPROTO_ICMPV6) : static_cast<std::uint8_t>(IPPROTO_ICMP);
}

template <typename Header>
Bytes BytesOf(const Header& header) {
    Bytes bytes(sizeof header);
    std::memcpy(bytes.data(), &header, sizeof header);
    return bytes;
}

Bytes Syn(std::uint16_t port) {
    tcphdr header = {};
    header.source = htons(kOwnPort);
    header.dest = htons(port);
    header.seq = htonl(port);
    header.doff = sizeof header / 4;
    header.syn = 1;
    header.window = htons(kWindow);
    return BytesOf(header);
}

Bytes Datagram(std::uint16_t port) {
    udphdr header = {};
    header.source = htons(kOwnPort);
    header.dest = htons(port);
    header.len = htons(sizeof header);
    return BytesOf(header);
}

Bytes Echo(std::uint16_t number, bool isV6) {
    icmphdr header = {};  // of the same form in both families
    header.type = isV6 ? ICMP6_ECHO_REQUEST : ICMP_ECHO;
    header.un.echo.id = htons(kEchoId);
    header.un.echo.sequence = htons(number);
    return BytesOf(header);
}

Bytes PayloadOf(Probe probe, std::uint16_t port, bool isV6) {
    switch (probe) {
        case Probe::kTcp:
            return Syn(port);
        case Probe::kUdp:
            return Datagram(port);
        case Probe::kEcho:
            break;
    }
    return Echo(port, isV6);
}

std::size_t ChecksumPlace(Probe probe) {
    switch (probe) {
        case Probe::kTcp:
            return offsetof(tcphdr, check);
        case Probe::kUdp:
            return offsetof(udphdr, check);
        case Probe::kEcho:
            break;
    }
    return offsetof(icmphdr, checksum);
}

void PutChecksum(Bytes& bytes, std::size_t place, std::uint64_t sum) {
    const std::uint16_t value = Checksum(sum);
    std::memcpy(bytes.data() + place, &value, sizeof value);
}

Bytes HeaderV4(const Bytes& own, const Bytes& target, std::uint8_t protocol, std::size_t payload) {
    iphdr header = {};
    header.version = 4;
    header.ihl = sizeof header / 4;
    header.tot_len = htons(static_cast<std::uint16_t>(sizeof header + payload));
    header.ttl = kHops;
    header.protocol = protocol;
    std::memcpy(&header.saddr, own.data(), own.size());
    std::memcpy(&header.daddr, target.data(), target.size());
    Bytes bytes = BytesOf(header);
    PutChecksum(bytes, offsetof(iphdr, check), SumOf(bytes));
    return bytes;
}

Bytes HeaderV6(const Bytes& own, const Bytes& target, std::uint8_t protocol, std::size_t payload) {
    ip6_hdr header = {};
    header.ip6_flow = htonl(0x6000'0000);
    header.ip6_plen = htons(static_cast<std::uint16_t>(payload));
    header.ip6_nxt = protocol;
    header.ip6_hlim = kHops;
    std::memcpy(&header.ip6_src, own.data(), own.size());
    std::memcpy(&header.ip6_dst, target.data(), target.size());
    return BytesOf(header);
}

std::uint16_t NumberAt(const std::uint8_t* place) {
    return static_cast<std::uint16_t>(place[0] << 8 | place[1]);
}

/** An IP packet taken apart. */
struct Parts {
    Bytes source;
    Bytes target;
    std::uint8_t protocol;
    const std::uint8_t* payload;
    std::size_t size;
};

std::optional<Parts> TakeApart(const std::uint8_t* packet, std::size_t size, bool isV6) {
    const std::size_t header = isV6 ? sizeof(ip6_hdr) : sizeof(iphdr);
    if (size < header || packet[0] >> 4 != (isV6 ? 6 : 4)) {
        return std::nullopt;
    }
    const std::size_t addresses = isV6 ? offsetof(ip6_hdr, ip6_src) : offsetof(iphdr, saddr);
    const std::ptrdiff_t length = isV6 ? 16 : 4;
    const std::uint8_t* source = packet + addresses;
    const std::size_t room = isV6 ? header : std::size_t{packet[0] & 0x0FU} * 4;
    if (room > size) {
        return std::nullopt;
    }
    return Parts{{source, source + length},
                 {source + length, source + 2 * length},
                 packet[isV6 ? offsetof(ip6_hdr, ip6_nxt) : offsetof(iphdr, protocol)],
                 packet + room,
                 size - room};
}

std::optional<ProbeAnswer> ReadTcp(const Parts& parts) {
    if (parts.size < sizeof(tcphdr) || NumberAt(parts.payload + 2) != kOwnPort) {
        return std::nullopt;
    }
    const bool isReset = (parts.payload[13] & TH_RST) != 0;
    return ProbeAnswer{Probe::kTcp, NumberAt(parts.payload), isReset ? "refused" : "open"};
}

std::optional<ProbeAnswer> ReadUdp(const Parts& parts) {
    if (parts.size < sizeof(udphdr) || NumberAt(parts.payload + 2) != kOwnPort) {
        return std::nullopt;
    }
    return ProbeAnswer{Probe::kUdp, NumberAt(parts.payload), "answers"};
}

/** An error that quotes one of the probes. */
std::optional<ProbeAnswer> ReadError(const Parts& parts, bool isV6) {
    const auto quoted = TakeApart(parts.payload + sizeof(icmphdr), parts.size - sizeof(icmphdr), isV6);
    const bool isTcp = quoted && quoted->protocol == IPPROTO_TCP;
    if (!quoted || (!isTcp && quoted->protocol != IPPROTO_UDP) || quoted->size < 4 ||
        NumberAt(quoted->payload) != kOwnPort) {
        return std::nullopt;
    }
    return ProbeAnswer{isTcp ? Probe::kTcp : Probe::kUdp, NumberAt(quoted->payload + 2),
                       "unreachable " + std::to_string(parts.payload[0]) + "/" + std::to_string(parts.payload[1])};
}

std::optional<ProbeAnswer> ReadIcmp(const Parts& parts, bool isV6) {
    if (parts.size < sizeof(icmphdr)) {
        return std::nullopt;
    }
    if (parts.payload[0] != (isV6 ? ICMP6_ECHO_REPLY : ICMP_ECHOREPLY)) {
        return ReadError(parts, isV6);
    }
    if (NumberAt(parts.payload + offsetof(icmphdr, un.echo.id)) != kEchoId) {
        return std::nullopt;
    }
    return ProbeAnswer{Probe::kEcho, NumberAt(parts.payload + offsetof(icmphdr, un.echo.sequence)), "echo"};
}

}  // namespace

Bytes MakeProbe(const ProbePath& path, Probe probe, std::uint16_t port) {
    const bool isV6 = path.IsV6();
    const Bytes own = AddressBytes(path.own);
    const Bytes target = AddressBytes(path.target);
    const std::uint8_t protocol = ProtocolOf(probe, isV6);
    Bytes payload = PayloadOf(probe, port, isV6);
    const bool hasNoPseudoHeader = probe == Probe::kEcho && !isV6;
    const std::uint64_t pseudo = hasNoPseudoHeader ? 0 : SumOf(own) + SumOf(target) + protocol + payload.size();
    PutChecksum(payload, ChecksumPlace(probe), pseudo + SumOf(payload));
    Bytes packet = (isV6 ? HeaderV6 : HeaderV4)(own, target, protocol, payload.size());
    packet.insert(packet.end(), payload.begin(), payload.end());
    return packet;
}

std::optional<ProbeAnswer> ReadAnswer(const ProbePath& path, const std::uint8_t* packet, std::size_t size) {
    const bool isV6 = path.IsV6();
    const auto parts = TakeApart(packet, size, isV6);
    // An error may come from a router in between, too: whoever it is, the probe has come through.
    if (!parts || parts->target != AddressBytes(path.own)) {
        return std::nullopt;
    }
    switch (parts->protocol) {
        case IPPROTO_TCP:
            return ReadTcp(*parts);
        case IPPROTO_UDP:
            return ReadUdp(*parts);
        case IPPROTO_ICMP:
        case IPPROTO_ICMPV6:
            return ReadIcmp(*parts, isV6);
        default:
            return std::nullopt;
    }
}

}  // namespace ardv::test
