// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <json/json.h>
#include <sys/wait.h>

#include <chrono>
#include <csignal>
#include <ctime>
#include <string>

#include <relay/tunnel/tunnel.h>

#include "integration/tunnel_fixture.h"
#include "support/network_namespace.h"

namespace ardv::test {

/** The library's tunnel, whose owner this process is, on the device. */
class LibraryTunnelTest : public TunnelTest {
protected:
    void SetUp() override {
        TunnelTest::SetUp();
        sigset_t signals;
        sigemptyset(&signals);
        for (const int signal : kSignals) {
            sigaddset(&signals, signal);
        }
        ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    }

    void TearDown() override {
        if (tunnel.GetPid() > 0) {
            EndChild();
        }
    }

    static Json::Value Relay() {
        Json::Value relay;
        relay["relay_ip"] = kRelay4;
        relay["relay_ipv6"] = kRelay6;
        relay["relay_user"] = "box";
        relay["relay_pass"] = "secret-of-the-box";
        return relay;
    }

    static Json::Value Candidate(const Protocol& protocol) {
        Json::Value candidate;
        candidate["type"] = "openvpn";
        candidate["protocol"] = protocol.name;
        candidate["port"] = protocol.port;
        candidate["mtu"] = "1500";
        return candidate;
    }

    static Json::Value Candidates(const std::vector<Protocol>& protocols) {
        Json::Value candidates(Json::arrayValue);
        for (const auto& protocol : protocols) {
            candidates.append(Candidate(protocol));
        }
        return candidates;
    }

    /** Waits for the up script's signal. False: it did not come in time. */
    static bool AwaitUp() {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGUSR2);
        const timespec time{kPatience.count(), 0};
        return ::sigtimedwait(&signals, nullptr, &time) == SIGUSR2;
    }

    /** The tunnel's part of an owner: creates, awaits the up script's signal, opens the ports. */
    void BringUp(const Json::Value& candidates, const std::vector<int>& ports = {kPage}) {
        const InNamespace device("device");
        ASSERT_TRUE(tunnel.Create(candidates, true, true));
        child = tunnel.GetPid();
        ASSERT_TRUE(AwaitUp());
        ASSERT_TRUE(tunnel.UpdateTunnelStatus());
        ASSERT_EQ(tunnel.GetStatus(), ARDV::Relay::TUNNEL_STATUS_READY);
        for (const int port : ports) {
            tunnel.InsertIptableAcceptRule(port);
        }
    }

    /** Ends the child as an owner should, and then the tunnel. */
    void EndChild() {
        const InNamespace device("device");
        const pid_t pid = tunnel.GetPid();
        ::kill(pid, SIGTERM);
        EXPECT_TRUE(HasEnded(pid, 2000));
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
        tunnel.Destroy();
    }

    static constexpr int kSignals[] = {SIGUSR2, SIGCHLD, SIGALRM};
    ARDV::Relay::Tunnel tunnel{Relay()};
    pid_t child = -1;
};

}  // namespace ardv::test
