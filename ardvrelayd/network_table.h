// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace ardv::daemon {

/** What the kernel has said of links, addresses and routes, to tell its news from what it says again. */
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
    using Facts = std::map<std::string, std::string>;  ///< what is said, by what it is said of

    bool TakeLink(bool isThere, std::string_view record);
    bool TakeAddress(bool isThere, std::string_view record);
    bool TakeRoute(bool isThere, std::string_view record);

    Facts links_;
    Facts addresses_;
    Facts routes_;
};

}  // namespace ardv::daemon
