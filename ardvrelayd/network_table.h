// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace ardv::daemon {

/**
 * What the kernel has said of links, addresses and routes, to tell its news from what it says again.
 *
 * The relay tunnel's own interface, "tun1000", is no news, nor are its addresses and the routes out of it: the daemon makes it come and
 * go. It is known by its link, so an address or a route that is told before the link is news, once. An interface that takes this
 * name counts as one that goes, one that gives it up as one that comes.
 */
class NetworkTable {
public:
    /**
     * Takes a message of rtnetlink(7).
     *
     * @param type of the message, such as RTM_NEWADDR
     * @param record what follows the message's header. One that is too short is no news.
     * @return whether it says anything new. False for types that aren't about links, addresses and routes.
     */
    bool Take(std::uint16_t type, std::string_view record);

    /** Forgets everything: what comes next is news. */
    void Forget();

    /** How many links, addresses and routes are remembered; of each kind 4096 at most. Beyond that every message is news. */
    std::size_t Size() const { return links_.size() + addresses_.size() + routes_.size(); }

private:
    using Facts = std::map<std::string, std::string>;  ///< what is said, by what it is said of: a link's index first

    bool TakeLink(bool isThere, std::string_view record);
    bool TakeAddress(bool isThere, std::string_view record);
    bool TakeRoute(bool isThere, std::string_view record);
    bool IsTunnel(std::uint32_t index) const { return tunnel_ != 0 && index == tunnel_; }
    bool TakeTunnel(bool isThere, std::uint32_t index);
    bool ForgetLink(std::uint32_t index);

    std::uint32_t tunnel_ = 0;  ///< index of the tunnel's interface; 0 while none is known
    Facts links_;
    Facts addresses_;
    Facts routes_;
};

}  // namespace ardv::daemon
