// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/ssdp_search.h"

#include <arpa/inet.h>
#include <poll.h>
#include <strings.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "platform/linux/file.h"
#include "platform/linux/gateway_http.h"

namespace ARDV::Platform {

namespace {

constexpr std::uint16_t kSsdpPort = 1900;
constexpr const char* kSsdpGroup = "239.255.255.250";
constexpr unsigned char kSsdpTtl = 2;  // UPnP Device Architecture 1.1, section 1.2.2

/// An answer is one datagram of an unfragmented size; more than this is none.
constexpr std::size_t kMaxAnswerBytes = 2048;

/// What a router may call itself. Some answer only for the device, some only for the service.
constexpr std::array<std::string_view, 4> kSearchTargets = {
    "urn:schemas-upnp-org:device:InternetGatewayDevice:1", "urn:schemas-upnp-org:device:InternetGatewayDevice:2",
    "urn:schemas-upnp-org:service:WANIPConnection:1", "urn:schemas-upnp-org:service:WANPPPConnection:1"};

sockaddr_in SsdpAddress(in_addr address) {
    sockaddr_in whole{};
    whole.sin_family = AF_INET;
    whole.sin_port = htons(kSsdpPort);
    whole.sin_addr = address;
    return whole;
}

in_addr Group() {
    in_addr group{};
    inet_pton(AF_INET, kSsdpGroup, &group);
    return group;
}

/// A socket on the device's address that sends to groups on the link's interface.
Result<FileDescriptor> OpenSocket(const RouterLink& link) {
    FileDescriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_in own{};
    own.sin_family = AF_INET;
    own.sin_addr = link.address;
    ip_mreqn group{};
    group.imr_ifindex = link.interface;
    const int fd = socket.Get();
    const bool isReady = socket && bind(fd, reinterpret_cast<const sockaddr*>(&own), sizeof(own)) == 0 &&
                         setsockopt(fd, IPPROTO_IP, IP_MULTICAST_IF, &group, sizeof(group)) == 0 &&
                         setsockopt(fd, IPPROTO_IP, IP_MULTICAST_TTL, &kSsdpTtl, sizeof(kSsdpTtl)) == 0;
    return isReady ? Result(std::move(socket)) : MakeError(ARDV_ERR_NO_DEVICE);
}

bool Search(int socket, in_addr peer, std::string_view target) {
    const std::string message =
        "M-SEARCH * HTTP/1.1\r\nHOST: 239.255.255.250:1900\r\nMAN: \"ssdp:discover\"\r\nMX: 1\r\nST: " +
        std::string(target) + "\r\n\r\n";
    const sockaddr_in address = SsdpAddress(peer);
    const ssize_t sent = sendto(socket, message.data(), message.size(), MSG_NOSIGNAL,
                                reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    return sent == static_cast<ssize_t>(message.size());
}

/// True when at least one search is on its way.
bool SearchEverywhere(int socket, in_addr gateway) {
    bool isSent = false;
    for (const std::string_view target : kSearchTargets) {
        for (const in_addr peer : {gateway, Group()}) {
            isSent = Search(socket, peer, target) || isSent;
        }
    }
    return isSent;
}

bool StartsWithIgnoringCase(std::string_view text, std::string_view start) {
    return text.size() >= start.size() && strncasecmp(text.data(), start.data(), start.size()) == 0;
}

/// The value of a header, `name` with its colon; empty without one.
std::string_view HeaderValue(std::string_view answer, std::string_view name) {
    constexpr std::string_view kBlanks = " \t";
    for (std::size_t end = answer.find("\r\n"); end != std::string_view::npos; end = answer.find("\r\n")) {
        const std::string_view line = answer.substr(0, end);
        if (StartsWithIgnoringCase(line, name)) {
            const std::size_t start = line.find_first_not_of(kBlanks, name.size());
            const std::size_t last = line.find_last_not_of(kBlanks);
            return start == std::string_view::npos ? std::string_view() : line.substr(start, last - start + 1);
        }
        answer.remove_prefix(end + 2);
    }
    return {};
}

bool IsRouter(std::string_view answer) {
    const std::string_view target = HeaderValue(answer, "ST:");
    const bool isOk = answer.starts_with("HTTP/1.1 200") || answer.starts_with("HTTP/1.0 200");
    return isOk && std::find(kSearchTargets.begin(), kSearchTargets.end(), target) != kSearchTargets.end();
}

/// Takes one datagram. Nothing when there is none, or it is no answer of the gateway.
std::optional<std::string> TakeAnswer(int socket, in_addr gateway) {
    std::array<char, kMaxAnswerBytes> buffer{};
    sockaddr_in sender{};
    socklen_t size = sizeof(sender);
    const ssize_t count =
        recvfrom(socket, buffer.data(), buffer.size(), MSG_TRUNC, reinterpret_cast<sockaddr*>(&sender), &size);
    const bool isWhole = count > 0 && static_cast<std::size_t>(count) <= buffer.size();
    if (!isWhole || sender.sin_addr.s_addr != gateway.s_addr) {
        return {};
    }
    const std::string_view answer(buffer.data(), static_cast<std::size_t>(count));
    if (!IsRouter(answer)) {
        return {};
    }
    const Result<std::string> url = UrlOnGateway("", std::string(HeaderValue(answer, "LOCATION:")), gateway);
    return url ? std::optional(*url) : std::nullopt;
}

}  // namespace

Result<std::string> FindGatewayDescription(const RouterLink& link, const Deadline& deadline) {
    const Result<FileDescriptor> socket = OpenSocket(link);
    if (!socket) {
        return socket.Reason();
    }
    if (!SearchEverywhere(socket->Get(), link.gateway)) {
        return MakeError(ARDV_ERR_NO_DEVICE);
    }
    while (!deadline.IsOver()) {
        pollfd entry{socket->Get(), POLLIN, 0};
        const int ready = poll(&entry, 1, static_cast<int>(deadline.Left().count()));
        if (ready < 0 && errno != EINTR) {
            return ErrnoError();
        }
        if (ready <= 0) {
            continue;
        }
        if (std::optional<std::string> url = TakeAnswer(socket->Get(), link.gateway)) {
            return *std::move(url);
        }
    }
    return MakeError(ARDV_ERR_NO_ANSWER);
}

}  // namespace ARDV::Platform
