// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace ardv::test {

/** The addresses of a network between this process and a router. */
struct NetworkSettings {
    std::string interface = "lan0";  ///< of this process
    std::string device = "192.168.77.2";
    std::string router = "192.168.77.1";
};

/**
 * A router's network namespace, tied by a pair of interfaces to that of this process. The router answers pings and
 * nothing else. It has the public address 55.1.2.3 on its other side, "wan0". Gone with this object.
 */
class RouterNetwork {
public:
    /** What this machine doesn't grant a test that it takes to make one; empty when it can. */
    static std::string WhyNot();

    /** @throws std::runtime_error when it can't be made */
    explicit RouterNetwork(NetworkSettings settings = {});
    ~RouterNetwork();
    RouterNetwork(const RouterNetwork&) = delete;
    RouterNetwork& operator=(const RouterNetwork&) = delete;

    const NetworkSettings& Settings() const { return settings_; }

    /** Makes the router the default gateway of this process, instead of any other. */
    void BecomeGateway() const;

    /** Runs a program on the router's side. @throws std::runtime_error when it fails */
    void Run(std::vector<std::string> command, const std::string& input = "") const;

    /** The command line that runs a program on the router's side. */
    std::vector<std::string> Inside(std::vector<std::string> command) const;

    /** Runs a function on the router's side, in a thread of its own: the sockets that it opens belong there. */
    void RunThere(const std::function<void()>& body) const;

    /** How many searches (datagrams to port 1900) have reached the router, and how many TCP connections were tried. */
    int Searches() const { return Count("searches"); }
    int Connections() const { return Count("connections"); }

    /** Has the router ignore all that reaches it from now on. */
    void FallSilent() const;

private:
    int Count(const std::string& counter) const;

    NetworkSettings settings_;
    pid_t holder_ = -1;  ///< the process that keeps the namespace
};

/** A real router program, miniupnpd, in a router's network. Ended with this object. */
class UpnpRouter {
public:
    /** How to run it. */
    struct Settings {
        int version = 2;  ///< of the Internet Gateway Device that it claims to be
        int port = 5555;  ///< of its HTTP server
    };

    /** Starts it and waits, 10 seconds at most, until it announces itself. */
    UpnpRouter(const RouterNetwork& network, Settings settings);
    ~UpnpRouter();
    UpnpRouter(const UpnpRouter&) = delete;
    UpnpRouter& operator=(const UpnpRouter&) = delete;

    /** Forwards the router's `routerPort` to `port` of `client` (the test's own address, if empty). */
    void Map(int routerPort, int port, const std::string& protocol = "TCP", const std::string& client = "") const;

    /** What it lists first for a port, as its own client library reads it; 0 for nothing. */
    int FirstInList(int port) const;

private:
    std::string Configuration() const;
    void Start(std::vector<std::string> words, const std::string& logFile);

    const RouterNetwork& network_;
    Settings settings_;
    pid_t process_ = -1;
};

}  // namespace ardv::test
