// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/interface_type.h"

#include <net/if.h>
#include <net/if_arp.h>

#include <algorithm>
#include <array>
#include <string_view>

#include <ardv/network.h>

namespace ARDV::Platform {

namespace {

using Links = std::vector<NetworkLink>;

/// Deeper than a port of a bond under a VLAN of a bridge; the kernel itself allows no more than 8 levels.
constexpr int kMaxDepth = 8;

/// How kinds of interface lead to a port of the device: by the ports they join, by the one interface that carries them,
/// or as the end of a pair whose other end is outside. All other kinds lead nowhere.
enum class Way { kPorts, kLower, kPair };

struct KindWay {
    std::string_view kind;
    Way way;
};

constexpr std::array<KindWay, 9> kKindWays = {{
    {"bond", Way::kPorts},
    {"bridge", Way::kPorts},
    {"team", Way::kPorts},
    {"vlan", Way::kLower},
    {"macvlan", Way::kLower},
    {"ipvlan", Way::kLower},
    {"macsec", Way::kLower},
    {"dsa", Way::kLower},  // a port of the device's own switch
    {"veth", Way::kPair},
}};

const NetworkLink* FindLink(const Links& links, int index) {
    const auto found =
        std::find_if(links.begin(), links.end(), [index](const auto& link) { return link.index == index; });
    return found == links.end() ? nullptr : &*found;
}

bool IsWired(const Links& links, const NetworkLink& link, int depth);

bool HasWiredPort(const Links& links, const NetworkLink& link, int depth) {
    return std::any_of(links.begin(), links.end(), [&](const NetworkLink& port) {
        return port.master == link.index && IsWired(links, port, depth);
    });
}

bool IsCarriedByWired(const Links& links, const NetworkLink& link, int depth) {
    const NetworkLink* lower = FindLink(links, link.lower);
    return link.leadsElsewhere || (lower != nullptr && IsWired(links, *lower, depth));
}

/// In a container the end of a pair is its wired interface; on a host, as the port of a bridge, that of a container.
bool IsEndOfContainer(const Links& links, const NetworkLink& link) {
    const NetworkLink* master = FindLink(links, link.master);
    const bool isBridged = master != nullptr && (master->kind == "bridge" || master->kind == "openvswitch");
    return link.leadsElsewhere && !isBridged;
}

bool IsWired(const Links& links, const NetworkLink& link, int depth) {
    if (link.hardware != ARPHRD_ETHER || link.isWireless || depth == 0) {
        return false;
    }
    if (link.kind.empty()) {
        return true;
    }
    const auto* row = std::find_if(kKindWays.begin(), kKindWays.end(),
                                   [&link](const KindWay& entry) { return entry.kind == link.kind; });
    if (row == kKindWays.end()) {
        return false;
    }
    switch (row->way) {
        case Way::kPorts:
            return HasWiredPort(links, link, depth - 1);
        case Way::kLower:
            return IsCarriedByWired(links, link, depth - 1);
        case Way::kPair:
            return IsEndOfContainer(links, link);
    }
    return false;
}

}  // namespace

int InterfaceType(const Links& links, const NetworkLink& link) {
    if ((link.flags & IFF_LOOPBACK) != 0) {
        return ARDV_INTERFACE_LOOPBACK;
    }
    if (link.isWireless) {
        return ARDV_INTERFACE_WIRELESS;
    }
    return IsWired(links, link, kMaxDepth) ? ARDV_INTERFACE_WIRED : ARDV_INTERFACE_OTHER;
}

}  // namespace ARDV::Platform
