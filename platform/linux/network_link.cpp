// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/network_link.h"

#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <net/if_arp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>

#include "platform/linux/file.h"
#include "platform/linux/route_netlink.h"

namespace ARDV::Platform {

namespace {

using Links = std::vector<NetworkLink>;

/// Each attribute in sysfs says that it has the size of a memory page, whatever stands in it; 64 KiB is the largest.
constexpr std::size_t kMaxAttributeBytes = 65536;

/// True when sysfs shows this interface, and not one of the same name in another network namespace.
bool IsInSysfs(const NetworkLink& link, const std::string& folder) {
    const Result<FileContents> contents = ReadFile(folder + "/ifindex", kMaxAttributeBytes);
    if (!contents) {
        return false;
    }
    int index = 0;
    const std::string& text = contents->text;
    std::from_chars(text.data(), text.data() + text.size(), index);
    return index == link.index;
}

bool IsWireless(const NetworkLink& link) {
    const std::string folder = "/sys/class/net/" + link.name;
    return link.hardware == ARPHRD_ETHER && IsInSysfs(link, folder) &&
           (access((folder + "/phy80211").c_str(), F_OK) == 0 || access((folder + "/wireless").c_str(), F_OK) == 0);
}

std::optional<NetworkLink> ReadLink(const ifinfomsg& header, const NetlinkAttributes& attributes) {
    const NetlinkAttributes info(attributes.Find(IFLA_LINKINFO).value_or(std::string_view()));
    NetworkLink link;
    link.index = header.ifi_index;
    link.name = attributes.Text(IFLA_IFNAME);
    link.hardware = header.ifi_type;
    link.flags = header.ifi_flags;
    link.kind = info.Text(IFLA_INFO_KIND);
    link.master = attributes.Take<int>(IFLA_MASTER).value_or(0);
    link.lower = attributes.Take<int>(IFLA_LINK).value_or(0);
    link.leadsElsewhere = attributes.Find(IFLA_LINK_NETNSID).has_value();
    return link;
}

}  // namespace

Result<Links> ReadNetworkLinks() {
    Result<Links> links = ReadNetlinkEntries<ifinfomsg, NetworkLink>({RTM_GETLINK, RTM_NEWLINK, AF_UNSPEC}, ReadLink);
    if (!links) {
        return links;
    }
    std::sort(links->begin(), links->end(),
              [](const auto& left, const auto& right) { return left.index < right.index; });
    for (NetworkLink& link : *links) {
        link.isWireless = IsWireless(link);
    }
    return links;
}

}  // namespace ARDV::Platform
