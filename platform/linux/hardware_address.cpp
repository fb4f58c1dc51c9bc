// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/hardware_address.h"

#include <ifaddrs.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <netpacket/packet.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <tuple>

namespace ARDV::Platform {

namespace {

constexpr std::string_view kDigits = "0123456789abcdef";

/// Entries of an interface's folder in sysfs that tell a kind of interface that is no wired port of its own.
constexpr std::array<const char*, 5> kExcludingEntries = {"wireless", "phy80211", "bridge", "bonding", "tun_flags"};

std::optional<std::uint8_t> DigitValue(char c) {
    const std::size_t value = kDigits.find(c >= 'A' && c <= 'F' ? static_cast<char>(c - 'A' + 'a') : c);
    return value == std::string_view::npos ? std::nullopt : std::optional(static_cast<std::uint8_t>(value));
}

std::optional<std::uint8_t> ParsePair(std::string_view pair) {
    const auto high = DigitValue(pair[0]);
    const auto low = DigitValue(pair[1]);
    return high && low ? std::optional(static_cast<std::uint8_t>(*high << 4 | *low)) : std::nullopt;
}

/// The length of the text tells whether there are separators: 12 or 17 characters.
bool HasSeparators(std::string_view text) {
    return text.size() == 17 && (text[2] == ':' || text[2] == '-');
}

struct Interface {
    bool isVirtual = true;
    int index = 0;
    HardwareAddress address{};

    bool operator<(const Interface& other) const {
        return std::tie(isVirtual, index) < std::tie(other.isVirtual, other.index);
    }
};

bool HasEntry(std::string_view name, const char* entry) {
    return access(("/sys/class/net/" + std::string(name) + "/" + entry).c_str(), F_OK) == 0;
}

bool IsExcluded(std::string_view name) {
    return std::any_of(kExcludingEntries.begin(), kExcludingEntries.end(),
                       [name](const char* entry) { return HasEntry(name, entry); });
}

bool IsEthernet(const sockaddr_ll& link, unsigned flags) {
    return link.sll_hatype == ARPHRD_ETHER && link.sll_halen == HardwareAddress().size() &&
           (flags & (IFF_LOOPBACK | IFF_NOARP)) == 0;
}

std::optional<Interface> WiredInterface(const ifaddrs& entry) {
    if (entry.ifa_addr == nullptr || entry.ifa_addr->sa_family != AF_PACKET) {
        return {};
    }
    sockaddr_ll link{};
    std::memcpy(&link, entry.ifa_addr, sizeof(link));
    Interface found{!HasEntry(entry.ifa_name, "device"), link.sll_ifindex, {}};
    std::copy_n(link.sll_addr, found.address.size(), found.address.begin());
    const bool counts =
        IsEthernet(link, entry.ifa_flags) && IsDeviceAddress(found.address) && !IsExcluded(entry.ifa_name);
    return counts ? std::optional(found) : std::nullopt;
}

}  // namespace

std::optional<HardwareAddress> ParseHardwareAddress(std::string_view text) {
    const bool separated = HasSeparators(text);
    if (!separated && text.size() != 12) {
        return {};
    }
    HardwareAddress address{};
    const std::size_t step = separated ? 3 : 2;
    for (std::size_t at = 0; at < address.size(); ++at) {
        const auto value = ParsePair(text.substr(at * step, 2));
        const bool joined = !separated || at == 0 || text[at * step - 1] == text[2];
        if (!value || !joined) {
            return {};
        }
        address[at] = *value;
    }
    return address;
}

bool IsDeviceAddress(const HardwareAddress& address) {
    const bool isGroup = (address[0] & 1) != 0;
    return !isGroup && address != HardwareAddress{};
}

std::string FormatHardwareAddress(const HardwareAddress& address) {
    std::string text;
    for (const std::uint8_t byte : address) {
        text.append(text.empty() ? "" : ":").append({kDigits[byte >> 4], kDigits[byte & 0xf]});
    }
    return text;
}

Result<HardwareAddress> FirstWiredAddress() {
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) {
        return ErrnoError();
    }
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(list, &freeifaddrs);
    std::optional<Interface> first;
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        const std::optional<Interface> found = WiredInterface(*entry);
        if (found && (!first || *found < *first)) {
            first = found;
        }
    }
    return first ? Result(first->address) : MakeError(ARDV_ERR_NO_DEVICE);
}

}  // namespace ARDV::Platform
