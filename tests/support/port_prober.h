// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "support/probe_packet.h"

namespace ardv::test {

/** Where a prober stands, and both families' ways to what it tries. */
struct ProbeRoute {
    std::string network;           ///< namespace of the prober
    std::vector<ProbePath> paths;  ///< each over the interface that has the path's own address
};

/** What ports answered, e.g. "tcp4 5000 open", "tcp6 5009 refused", "udp4 7 answers", "udp6 9 unreachable 1/4". */
using PortAnswers = std::set<std::string>;

/** What a pass over ports found. */
struct ProbeResult {
    PortAnswers answers;
    bool isComplete;   ///< whether echoes came back all along
    std::size_t sent;  ///< packets in all
};

/** The ports from 1 to 65535. Under a sanitizer, with which a pass over all takes too long: those up to 8192, and each 64th behind. */
std::vector<std::uint16_t> EveryPort();

/**
 * Tries each port once with a TCP SYN and a datagram, in both families. The packets are made here and put right onto the route's
 * interface, past the prober's own packet filter and connection tracking; whatever comes back to one of them counts as an answer.
 * @throws std::runtime_error where there is no such interface
 */
ProbeResult ProbePorts(const ProbeRoute& route, const std::vector<std::uint16_t>& ports);

/** Tries ports without a pause in the background, whether or not the interface is there at the moment. */
class PortWatch {
public:
    /** @param dense ports to try in each round, about a thousand times a second; besides, all others in turn */
    PortWatch(ProbeRoute route, std::vector<std::uint16_t> dense);
    ~PortWatch();
    PortWatch(const PortWatch&) = delete;
    PortWatch& operator=(const PortWatch&) = delete;

    /** Ends it. Gives what has ever answered. */
    PortAnswers End();

    /** How many rounds found an interface to go out by. */
    unsigned long Rounds() const { return rounds_; }

private:
    void Run();

    ProbeRoute route_;
    std::vector<std::uint16_t> dense_;
    PortAnswers answers_;
    std::atomic<unsigned long> rounds_ = 0;
    std::atomic<bool> isEnding_ = false;
    std::thread thread_;
};

}  // namespace ardv::test
