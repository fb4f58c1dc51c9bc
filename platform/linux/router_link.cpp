// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/router_link.h"

#include <sys/socket.h>

#include <tuple>

#include "platform/linux/file.h"
#include "platform/linux/network_address.h"

namespace ARDV::Platform {

namespace {

/// The address that the kernel gives to what the device sends to `peer`.
Result<in_addr> SourceAddressFor(in_addr peer) {
    const FileDescriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(9);  // any; connecting a datagram socket sends nothing
    address.sin_addr = peer;
    socklen_t size = sizeof(address);
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    if (!socket || connect(socket.Get(), generic, size) != 0 || getsockname(socket.Get(), generic, &size) != 0) {
        return MakeError(ARDV_ERR_NO_DEVICE);
    }
    return address.sin_addr;
}

}  // namespace

bool RouterLink::operator==(const RouterLink& other) const {
    return std::tie(interface, gateway.s_addr, address.s_addr) ==
           std::tie(other.interface, other.gateway.s_addr, other.address.s_addr);
}

Result<RouterLink> ReadRouterLink() {
    const Result<DefaultRoute> route = ReadDefaultRoute();
    if (!route) {
        return route.Reason().code == ARDV_ERR_NO_VALUE ? MakeError(ARDV_ERR_NO_DEVICE) : route.Reason();
    }
    const Result<in_addr> address = SourceAddressFor(route->gateway);
    return address ? Result(RouterLink{route->index, route->gateway, *address}) : address.Reason();
}

}  // namespace ARDV::Platform
