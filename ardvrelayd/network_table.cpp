// SPDX-License-Identifier: Apache-2.0
#include "network_table.h"

#include <linux/if.h>
#include <linux/if_addr.h>
#include <linux/if_link.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <optional>
#include <utility>

#include <relay/tunnel/tunnel_names.h>

namespace ardv::daemon {

namespace {

constexpr std::size_t kMaxEntries = 4096;

constexpr std::string_view kTunnelName = ARDV::Relay::TunnelNames::kInterface;

// What a peer could notice of a link's flags; somebody who listens in on it (IFF_PROMISC) can't be noticed.
constexpr unsigned kLinkFlags = IFF_UP | IFF_RUNNING | IFF_LOWER_UP | IFF_LOOPBACK | IFF_POINTOPOINT;

/** A record: its header, and the attributes behind it. */
template <typename Header>
class Record {
public:
    explicit Record(std::string_view bytes) : isValid_(bytes.size() >= sizeof(Header)) {
        if (isValid_) {
            std::memcpy(&header_, bytes.data(), sizeof(Header));
            bytes.remove_prefix(std::min<std::size_t>(NLMSG_ALIGN(sizeof(Header)), bytes.size()));
            attributes_ = bytes;
        }
    }

    bool IsValid() const { return isValid_; }
    const Header* operator->() const { return &header_; }

    /** The first attribute of a type, with its own header; empty where there is none. */
    std::string_view Find(unsigned type) const {
        for (auto rest = attributes_; rest.size() >= sizeof(nlattr);) {
            nlattr head = {};
            std::memcpy(&head, rest.data(), sizeof head);
            if (head.nla_len < sizeof head || head.nla_len > rest.size()) {
                break;
            }
            if ((head.nla_type & NLA_TYPE_MASK) == static_cast<int>(type)) {
                return rest.substr(0, head.nla_len);
            }
            rest.remove_prefix(std::min<std::size_t>(NLA_ALIGN(head.nla_len), rest.size()));
        }
        return {};
    }

    /** The value of such an attribute. */
    std::string_view ValueOf(unsigned type) const {
        auto attribute = Find(type);
        attribute.remove_prefix(std::min(sizeof(nlattr), attribute.size()));
        return attribute;
    }

    /** Several attributes in this order, with their headers, so that no two lists of them read the same. */
    std::string Gather(std::initializer_list<unsigned> types) const {
        std::string text;
        for (const unsigned type : types) {
            text.append(Find(type));
        }
        return text;
    }

private:
    bool isValid_;
    Header header_ = {};
    std::string_view attributes_;
};

std::string Numbers(std::initializer_list<std::uint32_t> numbers) {
    std::string text;
    for (const std::uint32_t number : numbers) {
        text.append(std::to_string(number)).append(" ");
    }
    return text;
}

std::string_view NameOf(const Record<ifinfomsg>& link) {
    const auto name = link.ValueOf(IFLA_IFNAME);
    return name.substr(0, name.find('\0'));
}

/** The interface that a route leads out of; 0 where it names none, or several. */
std::uint32_t InterfaceOf(const Record<rtmsg>& route) {
    const auto value = route.ValueOf(RTA_OIF);
    std::uint32_t index = 0;
    if (value.size() == sizeof index) {
        std::memcpy(&index, value.data(), sizeof index);
    }
    return index;
}

bool IsNews(std::map<std::string, std::string>& facts, bool isThere, const std::string& what, std::string said) {
    const auto known = facts.find(what);
    if (!isThere) {
        if (known != facts.end()) {
            facts.erase(known);
        }
        return true;
    }
    if (known != facts.end()) {
        return std::exchange(known->second, said) != said;
    }
    if (facts.size() < kMaxEntries) {
        facts.emplace(what, std::move(said));
    }
    return true;
}

}  // namespace

bool NetworkTable::Take(std::uint16_t type, std::string_view record) {
    switch (type) {
        case RTM_NEWLINK:
        case RTM_DELLINK:
            return TakeLink(type == RTM_NEWLINK, record);
        case RTM_NEWADDR:
        case RTM_DELADDR:
            return TakeAddress(type == RTM_NEWADDR, record);
        case RTM_NEWROUTE:
        case RTM_DELROUTE:
            return TakeRoute(type == RTM_NEWROUTE, record);
        default:
            return false;
    }
}

void NetworkTable::Forget() {
    tunnel_ = 0;
    links_.clear();
    addresses_.clear();
    routes_.clear();
}

// A radio's scans are reported as if they were changes of its link.
bool NetworkTable::TakeLink(bool isThere, std::string_view record) {
    const Record<ifinfomsg> link(record);
    if (!link.IsValid() || !link.Find(IFLA_WIRELESS).empty()) {
        return false;
    }
    const auto index = static_cast<std::uint32_t>(link->ifi_index);
    const auto name = NameOf(link);
    if (name == kTunnelName || (name.empty() && IsTunnel(index))) {
        return TakeTunnel(isThere || link->ifi_family != AF_UNSPEC, index);
    }
    if (IsTunnel(index)) {
        tunnel_ = 0;  // it has another name now, or another interface has its index
    }
    const auto what = Numbers({index, link->ifi_family});
    auto said = Numbers({link->ifi_type, link->ifi_flags & kLinkFlags}) +
                link.Gather({IFLA_IFNAME, IFLA_ADDRESS, IFLA_MTU, IFLA_OPERSTATE, IFLA_MASTER});
    const bool isNews = IsNews(links_, isThere, what, std::move(said));
    if (isNews) {
        routes_.clear();  // those of a link that went down are gone without a word
    }
    return isNews;
}

// A bridge that lets go of a port takes leave of it as if of a link, which is why only a message of no family ends one.
bool NetworkTable::TakeTunnel(bool isThere, std::uint32_t index) {
    const bool isNews = !IsTunnel(index) && ForgetLink(index);
    if (isThere) {
        tunnel_ = index;
    } else if (IsTunnel(index)) {
        tunnel_ = 0;
    }
    return isNews;
}

/** Forgets a link, with its addresses and whatever leads out of it. Whether such a link was known. */
bool NetworkTable::ForgetLink(std::uint32_t index) {
    const auto isOfLink = [start = Numbers({index})](const auto& fact) { return fact.first.starts_with(start); };
    const bool wereAddresses = std::erase_if(addresses_, isOfLink) > 0;
    const bool wasKnown = std::erase_if(links_, isOfLink) > 0;
    if (wasKnown || wereAddresses) {
        routes_.clear();
    }
    return wasKnown;
}

bool NetworkTable::TakeAddress(bool isThere, std::string_view record) {
    const Record<ifaddrmsg> address(record);
    if (!address.IsValid() || IsTunnel(address->ifa_index)) {
        return false;
    }
    const auto what = Numbers({address->ifa_index, address->ifa_family, address->ifa_prefixlen}) +
                      address.Gather({IFA_LOCAL, IFA_ADDRESS});
    auto said = Numbers({address->ifa_scope, address->ifa_flags}) + address.Gather({IFA_FLAGS});
    const bool isNews = IsNews(addresses_, isThere, what, std::move(said));
    if (isNews) {
        routes_.clear();  // those from an address that was taken away, too
    }
    return isNews;
}

// A route that takes another's place does so without the other being reported as gone, so both are one entry.
bool NetworkTable::TakeRoute(bool isThere, std::string_view record) {
    const Record<rtmsg> route(record);
    if (!route.IsValid() || (route->rtm_flags & RTM_F_CLONED) != 0 || IsTunnel(InterfaceOf(route))) {
        return false;
    }
    const auto what =
        Numbers({route->rtm_family, route->rtm_dst_len, route->rtm_src_len, route->rtm_tos, route->rtm_table}) +
        route.Gather({RTA_TABLE, RTA_DST, RTA_SRC, RTA_PRIORITY});
    auto said = Numbers({route->rtm_scope, route->rtm_type, route->rtm_flags & RTNH_F_DEAD}) +
                route.Gather({RTA_OIF, RTA_GATEWAY, RTA_VIA, RTA_MULTIPATH, RTA_NH_ID, RTA_PREFSRC, RTA_METRICS});
    return IsNews(routes_, isThere, what, std::move(said));
}

}  // namespace ardv::daemon
