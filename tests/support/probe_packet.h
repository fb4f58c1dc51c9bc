// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace ardv::test {

/** What a prober sends. */
enum class Probe { kTcp, kUdp, kEcho };

/** The two ends of a tunnel in one family, as the prober sees them. */
struct ProbePath {
    std::string own;     ///< the prober's address
    std::string target;  ///< the address whose ports are tried

    bool IsV6() const { return own.find(':') != std::string::npos; }
};

/** What came back. */
struct ProbeAnswer {
    Probe probe;
    std::uint16_t port;  ///< that was tried; the number of an echo
    std::string what;    ///< "open", "refused", "answers", "unreachable TYPE/CODE" or "echo"
};

/** A whole IP packet: a TCP SYN, a datagram or an echo request to a port (an echo: with that number) of the target. */
std::vector<std::uint8_t> MakeProbe(const ProbePath& path, Probe probe, std::uint16_t port);

/** What a whole IP packet answers; nothing where it answers none of the probes on this path. */
std::optional<ProbeAnswer> ReadAnswer(const ProbePath& path, const std::uint8_t* packet, std::size_t size);

}  // namespace ardv::test
