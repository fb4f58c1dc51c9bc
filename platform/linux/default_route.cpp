// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/default_route.h"

#include <net/route.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <sstream>
#include <tuple>

#include "platform/linux/file.h"

namespace ARDV::Platform {

namespace {

/// The kernel's main table as text; numbers of addresses are in network byte order, read as the machine's own.
constexpr const char* kRoutes = "/proc/net/route";

/// Default routes stand first in it; a table of thousands of routes needn't be read to its end by anybody else.
constexpr std::size_t kMaxTableBytes = 1048576;

struct Row {
    std::string interface;
    std::uint32_t destination = 0;
    std::uint32_t gateway = 0;
    std::uint32_t flags = 0;
    std::uint32_t metric = 0;
    std::uint32_t mask = 0;

    bool IsDefaultGateway() const {
        constexpr std::uint32_t kNeeded = RTF_UP | RTF_GATEWAY;
        return destination == 0 && mask == 0 && (flags & kNeeded) == kNeeded && (flags & RTF_REJECT) == 0;
    }
};

std::optional<Row> ParseRow(const std::string& line) {
    std::istringstream words(line);
    Row row;
    std::uint32_t ignored = 0;
    words >> row.interface >> std::hex >> row.destination >> row.gateway >> row.flags >> ignored >> ignored >>
        std::dec >> row.metric >> std::hex >> row.mask;
    return words.fail() ? std::nullopt : std::optional(row);
}

std::optional<Row> FirstDefaultGateway(const std::string& table) {
    std::istringstream lines(table);
    std::optional<Row> first;
    for (std::string line; std::getline(lines, line);) {
        const std::optional<Row> row = ParseRow(line);
        if (row && row->IsDefaultGateway() && (!first || row->metric < first->metric)) {
            first = row;
        }
    }
    return first;
}

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

bool DefaultRoute::operator==(const DefaultRoute& other) const {
    return std::tie(interface, gateway.s_addr, address.s_addr) ==
           std::tie(other.interface, other.gateway.s_addr, other.address.s_addr);
}

Result<DefaultRoute> ReadDefaultRoute() {
    const Result<FileContents> table = ReadFile(kRoutes, kMaxTableBytes);
    if (!table) {
        return table.Reason();
    }
    const std::optional<Row> row = FirstDefaultGateway(table->text);
    if (!row) {
        return MakeError(ARDV_ERR_NO_DEVICE);
    }
    const in_addr gateway{row->gateway};
    const Result<in_addr> address = SourceAddressFor(gateway);
    return address ? Result(DefaultRoute{row->interface, gateway, *address}) : address.Reason();
}

}  // namespace ARDV::Platform
