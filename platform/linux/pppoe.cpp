// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/pppoe.h"

#include <net/if.h>
#include <net/if_arp.h>

#include <algorithm>
#include <string_view>

#include "platform/linux/file.h"
#include "platform/linux/network_address.h"
#include "platform/linux/network_link.h"

namespace ARDV::Platform {

namespace {

/// The kernel's PPPoE sessions of this thread's network namespace: a heading, then one line each.
constexpr const char* kSessionFile = "/proc/thread-self/net/pppoe";
constexpr std::size_t kMaxSessionBytes = std::size_t{1024} * 1024;
constexpr unsigned kConnectedFlags = IFF_UP | IFF_RUNNING | IFF_POINTOPOINT;

Result<bool> HasSession() {
    const Result<FileContents> contents = ReadFile(kSessionFile, kMaxSessionBytes);
    if (contents) {
        return std::count(contents->text.begin(), contents->text.end(), '\n') > 1;
    }
    const bool isUnknown = contents.Reason().code == ARDV_ERR_NOT_FOUND;
    return isUnknown ? Result<bool>(false) : contents.Reason();
}

bool IsConnected(const NetworkLink& link) {
    return link.hardware == ARPHRD_PPP && (link.flags & kConnectedFlags) == kConnectedFlags;
}

Result<PppoeConnection> FindInterface() {
    const Result<std::vector<NetworkLink>> links = ReadNetworkLinks();
    if (!links) {
        return links.Reason();
    }
    const Result<std::vector<IPv4Address>> addresses = ReadIPv4Addresses();
    if (!addresses) {
        return addresses.Reason();
    }
    for (const IPv4Address& address : *addresses) {
        const auto link = std::find_if(links->begin(), links->end(), [&address](const NetworkLink& candidate) {
            return candidate.index == address.index && IsConnected(candidate);
        });
        if (link != links->end()) {
            return PppoeConnection{link->name, Text(address.address), MaskText(address.prefixLength)};
        }
    }
    return MakeError(ARDV_ERR_NO_DEVICE);
}

}  // namespace

Result<PppoeConnection> FindPppoeConnection() {
    const Result<bool> session = HasSession();
    if (!session) {
        return session.Reason();
    }
    return *session ? FindInterface() : MakeError(ARDV_ERR_NO_DEVICE);
}

}  // namespace ARDV::Platform
