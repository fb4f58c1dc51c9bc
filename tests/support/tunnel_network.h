// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "support/port_prober.h"
#include "support/process.h"

namespace ardv::test {

/** Addresses of the sandbox's network. */
inline constexpr const char kCloud[] = "203.0.113.1";
inline constexpr const char kRelay4[] = "198.51.100.7";
inline constexpr const char kRelay6[] = "2001:db8:7::7";

/** One of the relay's ways to be reached. */
struct Protocol {
    const char* name;  ///< as a candidate names it
    const char* port;
    int network;  ///< the I of 10.8.I.0/24 and fd78:I::/64

    std::string Host() const { return std::string_view(name).ends_with('6') ? kRelay6 : kRelay4; }

    /** Addresses in the tunnel: the relay's, and the one that the first device gets. */
    std::string RelayInner4() const { return "10.8." + std::to_string(network) + ".1"; }
    std::string RelayInner6() const { return InnerNetwork6() + "::1"; }
    std::string DeviceInner4() const { return "10.8." + std::to_string(network) + ".2"; }
    std::string DeviceInner6() const { return InnerNetwork6() + "::2"; }

    /** From the relay through the tunnel to the device. */
    ProbeRoute Route() const { return {"relay", {{RelayInner4(), DeviceInner4()}, {RelayInner6(), DeviceInner6()}}}; }

private:
    std::string InnerNetwork6() const { return "fd78" + (network == 0 ? "" : ":" + std::to_string(network)); }
};

inline constexpr Protocol kProtocols[] = {
    {"udp", "1194", 0}, {"tcp", "1194", 1}, {"udp6", "1195", 2}, {"tcp6", "1195", 3}};
inline constexpr const Protocol& kUdp = kProtocols[0];
inline constexpr const Protocol& kTcp = kProtocols[1];

/** The sandbox's namespaces: "cloud", into which this process goes, "relay", "device" and "client". */
class TunnelNetwork {
public:
    /** What this machine lacks, or doesn't grant, for real tunnels; empty when there is nothing. */
    static std::string WhyNot();

    /** @throws std::runtime_error when they can't be made */
    TunnelNetwork();
    TunnelNetwork(const TunnelNetwork&) = delete;
    TunnelNetwork& operator=(const TunnelNetwork&) = delete;
};

/** Runs a program in a namespace to its end. Gives its standard output. @throws std::runtime_error when it fails */
std::string RunIn(const std::string& network, const std::vector<std::string>& command);

/** The sandbox's relay: OpenVPN servers for all protocols. Ended with this object. */
class RelayServer {
public:
    static constexpr const char kFolder[] = "/run/relay";
    static constexpr const char kUsers[] = "/run/relay/users";
    static constexpr const char kAuthority[] = "/run/relay/certificates/ca.crt";

    /** @param options besides those that say where its files are and its addresses. Waits, 20 seconds at most, until it serves. */
    explicit RelayServer(std::vector<std::string> options = {});
    ~RelayServer();
    RelayServer(const RelayServer&) = delete;
    RelayServer& operator=(const RelayServer&) = delete;

    /** Lets one user in, who has these ports ("45000:5000"), in place of all others. */
    static void Admit(const std::string& user, const std::string& password, const std::string& ports);

    /** Ends all servers, without a word to those connected. */
    void Kill();

    /** Ends it in order. */
    void Stop();

    void Start();

private:
    std::vector<std::string> options_;
    pid_t pid_ = -1;
};

}  // namespace ardv::test
