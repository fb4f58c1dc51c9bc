// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>

#include "descriptor.h"
#include "event_loop.h"

namespace ardv::daemon {

class NetworkTable;

/** When a change of the network is told: it is seldom one message of the kernel. */
struct NetworkPace {
    std::chrono::milliseconds quiet = std::chrono::seconds(2);      ///< nothing more has happened for this long, ...
    std::chrono::milliseconds patience = std::chrono::seconds(10);  ///< ... or this has passed since the first message
};

/**
 * Tells when the machine's network has changed: its links, addresses or routes, as rtnetlink(7) reports them for this
 * network namespace. It asks for nothing periodically.
 *
 * What changes nothing that a peer could notice is no news: an address whose lifetime alone is renewed, as router
 * advertisements do every few minutes; a link whose counters or radio scan are reported; a route that the kernel remembers for one
 * destination; the relay tunnel's own interface, "tun1000". Where messages were lost, that is news.
 *
 * Whatever is read of the network after this object was made is either up to date or followed by a call.
 */
class NetworkWatch {
public:
    /**
     * @param changed called from the loop, once for all that has happened since the last call. It may destroy this object.
     * @throws std::runtime_error where the kernel grants no netlink socket
     */
    NetworkWatch(EventLoop& loop, std::function<void()> changed, NetworkPace pace = {});
    ~NetworkWatch();
    NetworkWatch(const NetworkWatch&) = delete;
    NetworkWatch& operator=(const NetworkWatch&) = delete;

private:
    using Clock = std::chrono::steady_clock;

    void Read();
    bool ReadOne();
    void TakeMessages(std::string_view bytes);
    void TakeAnswer(std::uint16_t type, std::string_view record);
    void Learn();
    void AskForNextTable();
    void NoteNews();
    void Call();

    std::function<void()> changed_;
    NetworkPace pace_;
    Descriptor socket_;
    std::uint32_t port_ = 0;  ///< the socket's address, by which answers are told from reports
    std::unique_ptr<NetworkTable> table_;
    std::size_t tablesAskedFor_ = 0;
    bool isLearning_ = false;
    std::optional<Clock::time_point> firstNews_;  ///< of those that no call has told yet
    Timer quiet_;
    std::optional<Watch> watch_;
};

}  // namespace ardv::daemon
