// SPDX-License-Identifier: Apache-2.0
// What comes through the daemon's tunnel, tried from the relay: what is permitted, nothing else, and at no moment.
#include "integration/tunnel_daemon_fixture.h"

namespace ardv::test {
namespace {

constexpr int kWeb = 80;  // a service of the device, with nothing behind it

class TunnelRulesOfDaemon : public DaemonTunnelTest {
protected:
    /** The answers of a port that is let through, with nothing behind it. */
    static PortAnswers Refused(int port) {
        return {"tcp4 " + std::to_string(port) + " refused", "tcp6 " + std::to_string(port) + " refused"};
    }

    static PortAnswers Together(PortAnswers one, const PortAnswers& other) {
        one.insert(other.begin(), other.end());
        return one;
    }

    static PortAnswers Telling() {
        auto ports = TellingPorts();
        ports.push_back(kWeb);
        const auto result = ProbePorts(kUdp.Route(), ports);
        EXPECT_TRUE(result.isComplete);
        return result.answers;
    }

    /** Has the daemon read its settings anew, and waits until these ports are let through. */
    void ReloadTo(const std::vector<int>& ports) const {
        ASSERT_TRUE(daemon->Reload());
        EXPECT_TRUE(Await([&] { return Accepted() == ports; })) << testing::PrintToString(Accepted());
    }
};

TEST_F(TunnelRulesOfDaemon, LetThroughNoPortButThePermittedOne) {
    BringUp();
    EXPECT_EQ(TryEveryPort(kUdp), OnlyOpen({kPage}));
}

TEST_F(TunnelRulesOfDaemon, LetThroughNoPortButThePermittedOneOfATcpTunnel) {
    BringUp(kProtocols[3]);
    EXPECT_EQ(TryEveryPort(kProtocols[3]), OnlyOpen({kPage}));
}

TEST_F(TunnelRulesOfDaemon, FollowThePermissions) {
    BringUp();
    EXPECT_EQ(Telling(), OnlyOpen({kPage}));
    PermitPhotos(true);
    ReloadTo({kPhotos, kPage});
    EXPECT_EQ(Telling(), OnlyOpen({kPage, kPhotos}));
    EXPECT_EQ(TunnelInStatus()["open"].size(), 2U);
    PermitPhotos(false);
    ReloadTo({kPage});
    EXPECT_EQ(Telling(), OnlyOpen({kPage}));
    EXPECT_EQ(TunnelInStatus()["open"].size(), 1U);
    EXPECT_TRUE(ClientGetsThePage());
}

TEST_F(TunnelRulesOfDaemon, FollowTheListOfServices) {
    BringUp();
    Configure({"hos", "filara", "http"});
    ReloadTo({kWeb, kPage});
    EXPECT_EQ(Telling(), Together(OnlyOpen({kPage}), Refused(kWeb)));
    Configure({"filara"});
    ReloadTo({});
    EXPECT_EQ(Telling(), PortAnswers());
}

TEST_F(TunnelRulesOfDaemon, FollowAPortThatIsChanged) {
    BringUp();
    OfferPageAt(kPhotos);
    ReloadTo({kPhotos});
    EXPECT_EQ(Telling(), OnlyOpen({kPhotos}));
}

TEST_F(TunnelRulesOfDaemon, GoWithTheTunnelWhenTheOwnerSwitchesTheServiceOff) {
    BringUp();
    Configure({"hos", "filara"}, false);
    ASSERT_TRUE(daemon->Reload());
    EXPECT_EQ(AwaitStatus("logout success"), "logout success");
    EXPECT_TRUE(Await([] { return TunnelInStatus().isNull(); }));
    ExpectNoTrace();
}

TEST_F(TunnelRulesOfDaemon, LetThroughNothingElseAtAnyMoment) {
    auto ports = TellingPorts();
    ports.push_back(kWeb);
    PortWatch watch(kUdp.Route(), ports);
    BringUp();
    for (int i = 0; i < 8; ++i) {
        Configure({"hos", "filara", "http"});
        ReloadTo({kWeb, kPage});
        Configure({"hos", "filara"});
        ReloadTo({kPage});
    }
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(AwaitResult(Close()), kSuccess);
        EXPECT_EQ(AwaitResult(Order({Candidate(kUdp)})), kSuccess);
    }
    EXPECT_EQ(daemon->Stop(SIGKILL), -SIGKILL);
    EXPECT_TRUE(Await([] { return OpenVpnClients().empty(); }));
    StartAndLogIn();
    EXPECT_EQ(AwaitResult(Order({Candidate(kUdp)})), kSuccess);
    EXPECT_EQ(daemon->Stop(SIGTERM, kLongestEnd), 0);
    ExpectNoTrace();
    EXPECT_GT(watch.Rounds(), 1000U);
    EXPECT_EQ(watch.End(), Together(OnlyOpen({kPage}), Refused(kWeb)));
}

/** A relay that is not content with the device's address in the tunnel, and a device that forwards to a host of its network. */
class TunnelToAnOddRelay : public TunnelRulesOfDaemon {
protected:
    /** Has the relay serve the device with further options of its own, by udp. */
    void ServeWith(const std::string& options) {
        relay->Stop();
        WriteText("/run/relay/state/clients/box", options);
        const InNamespace there("relay");
        server_ = Spawn({"/usr/sbin/openvpn", "--cd", "/run/relay/state", "--config", "udp.conf", "--client-config-dir",
                         "/run/relay/state/clients"},
                        "/run/relay/greedy.log");
        ASSERT_TRUE(Await([] {
            return ReadText("/run/relay/greedy.log").find("Sequence Completed") != std::string::npos;
        })) << ReadText("/run/relay/greedy.log");
    }

    void TearDown() override {
        if (server_ > 0) {
            ::kill(server_, SIGKILL);
            Reap(server_);
        }
        TunnelRulesOfDaemon::TearDown();
    }

private:
    pid_t server_ = -1;
};

/** Where the device's packets go but for those of the tunnel's own network. */
std::string RoutesOfDevice() {
    return RunIn("device", {"ip", "-4", "route"}) + RunIn("device", {"ip", "-6", "route", "show", "default"});
}

TEST_F(TunnelToAnOddRelay, LeadsNothingElseIntoTheTunnel) {
    ServeWith(
        "push \"route 192.0.2.0 255.255.255.0\"\npush \"redirect-gateway def1 ipv6\"\n"
        "push \"route-ipv6 2001:db8:a::/64\"\n");
    const auto before = RoutesOfDevice();
    BringUp();
    EXPECT_EQ(RunIn("device", {"ip", "-4", "route", "show", "dev", "tun1000"}),
              "10.8.0.0/24 proto kernel scope link src 10.8.0.2 \n");
    EXPECT_THAT(RunIn("device", {"ip", "-6", "route", "show", "dev", "tun1000"}),
                testing::Not(testing::HasSubstr("2001:db8")));
    EXPECT_THAT(RunIn("device", {"ip", "route", "get", "192.0.2.10"}), testing::HasSubstr("dev eth0"));
    EXPECT_EQ(AwaitResult(Close()), kSuccess);
    EXPECT_EQ(RoutesOfDevice(), before);
}

TEST_F(TunnelToAnOddRelay, ThatTakesTheDefaultRouteIsGivenUp) {
    ServeWith("push \"redirect-gateway\"\n");
    const auto before = RoutesOfDevice();
    StartAndLogIn();
    EXPECT_EQ(AwaitResult(Order({Candidate(kUdp)})), kNetworkError) << daemon->Log();
    EXPECT_TRUE(Await([] { return OpenVpnClients().empty(); }));
    EXPECT_EQ(RoutesOfDevice(), before);
    EXPECT_EQ(DaemonStatus(), "login success");
}

class TunnelToAGreedyRelay : public TunnelToAnOddRelay {
protected:
    void SetUp() override {
        TunnelToAnOddRelay::SetUp();
        if (IsSkipped()) {
            return;
        }
        MakeHostBehindTheDevice();
        ServeWith(
            "iroute 10.99.0.0 255.255.255.0\niroute 10.0.0.0 255.255.255.0\niroute-ipv6 fd99::/64\n"
            "iroute-ipv6 fd00:d::/64\n");
    }

    static void MakeHostBehindTheDevice() {
        RunIn("cloud", {"ip", "netns", "add", "host"});
        RunIn("device", {"ip", "link", "add", "lan0", "type", "veth", "peer", "name", "eth0", "netns", "host"});
        RunIn("device", {"ip", "address", "add", "10.99.0.1/24", "dev", "lan0"});
        RunIn("device", {"ip", "address", "add", "fd99::1/64", "dev", "lan0", "nodad"});
        RunIn("device", {"ip", "link", "set", "lan0", "up"});
        RunIn("host", {"ip", "address", "add", "10.99.0.2/24", "dev", "eth0"});
        RunIn("host", {"ip", "address", "add", "fd99::2/64", "dev", "eth0", "nodad"});
        RunIn("host", {"ip", "link", "set", "eth0", "up"});
        RunIn("host", {"ip", "route", "add", "default", "via", "10.99.0.1"});
        RunIn("host", {"ip", "-6", "route", "add", "default", "via", "fd99::1"});
        RunIn("device", {"sysctl", "-qw", "net.ipv4.ip_forward=1", "net.ipv6.conf.all.forwarding=1"});
    }

    /** What answers at addresses that are beyond the tunnel's. */
    static PortAnswers Try(const std::string& address4, const std::string& address6) {
        return ProbePorts({"relay", {{kUdp.RelayInner4(), address4}, {kUdp.RelayInner6(), address6}}},
                          {kPage, kPhotos, kClosed})
            .answers;
    }
};

TEST_F(TunnelToAGreedyRelay, LeadsToNoHostBehindTheDevice) {
    BringUp();
    EXPECT_EQ(Try("10.99.0.2", "fd99::2"), PortAnswers());
    for (const char* program : {"/sbin/iptables", "/sbin/ip6tables"}) {
        RunIn("device", {program, "-D", "FORWARD", "-i", "tun1000", "-j", "DROP"});
    }
    EXPECT_THAT(Try("10.99.0.2", "fd99::2"), testing::Contains("tcp4 5000 refused")) << "but for that rule it would";
    EXPECT_THAT(Try("10.99.0.2", "fd99::2"), testing::Contains("tcp6 5000 refused"));
}

TEST_F(TunnelToAGreedyRelay, LetsThroughThePermittedPortAloneAtTheDevicesOtherAddresses) {
    BringUp();
    EXPECT_EQ(Try("10.0.0.2", "fd00:d::2"), OnlyOpen({kPage}));
}

}  // namespace
}  // namespace ardv::test
