// SPDX-License-Identifier: Apache-2.0
// The daemon and the service about a tunnel: orders, results, and what ends it. In OpenVPN's place is a stand-in.
#include <fstream>

#include "integration/daemon_fixture.h"
#include "support/stand_in_tunnel.h"
#include "support/test_certificates.h"

namespace ardv::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char kHost[] = "control.zz";
constexpr const char kPassword[] = "hush-of-the-relay";
constexpr const char kUp[] = "connected success";

/** A certificate of an authority that the machine trusts. */
struct Trust {
    Trust() : certificates("/run/certificates", {kHost}) {
        std::ofstream("/etc/ssl/certs/ca-certificates.crt", std::ios::app) << ReadText(certificates.Authority());
        std::ofstream("/etc/hosts", std::ios::app) << "127.0.0.1 " << kHost << "\n";
    }
    TestCertificates certificates;
};

class DaemonTunnel : public DaemonTest {
protected:
    DaemonTunnel() {
        InstallTunnelStandIns();
        WriteText("/etc/ardv/services.d/device.json", R"([{"service":"dms","display_name":"pages","ports":["5000"]}])");
        WriteText("/usr/ardv/etc/ardvrelayd/services.conf", R"([{"id":"mobile_apps","enabled":true}])");
        Edit([&](Json::Value& configuration) {
            configuration["service"][0]["id"] = "hos";
            for (const char* name : {"server_global", "server_control", "server_waitcmd"}) {
                configuration[name]["protocol"] = "https";
                configuration[name]["host"] = kHost;
                configuration[name]["port"] = server.HttpsPort();
            }
        });
    }

    void TearDown() override {
        const auto report = daemon && daemon->Runs() ? Json::FastWriter().write(DaemonReport()) : "";
        daemon.reset();
        const auto told = report + ReadText(DaemonProcess::kLog) + ReadText(kDaemonStatusFile) + server.Log();
        EXPECT_THAT(told, Not(HasSubstr(kPassword)));
        EXPECT_THAT(told, Not(HasSubstr("0123456789abcdef0123456789abcdef")));
    }

    /** Has waits go over plain HTTP. */
    void WaitOverPlainHttp() {
        Edit([&](Json::Value& configuration) {
            configuration["server_waitcmd"]["protocol"] = "http";
            configuration["server_waitcmd"]["host"] = "127.0.0.1";
            configuration["server_waitcmd"]["port"] = server.HttpPort();
        });
    }

    void LogIn() {
        Start();
        ASSERT_EQ(AwaitStatus(kLoggedIn), kLoggedIn) << daemon->Log();
        ASSERT_TRUE(Await([&] { return server.Sessions()[Id()]["waiting"].asBool(); }));
    }

    std::string Id() const { return server.Devices()["AV0000000001"]["serverID"].asString(); }

    static Json::Value Order(const std::vector<std::string>& ports, const std::string& user = "box-1") {
        Json::Value order;
        order["relay"]["relay_ip"] = "192.0.2.1";
        order["relay"]["relay_ipv6"] = "";
        order["relay"]["relay_user"] = user;
        order["relay"]["relay_pass"] = kPassword;
        order["candidates"] = Json::arrayValue;
        for (const auto& port : ports) {
            auto& candidate = order["candidates"].append(Json::objectValue);
            candidate["type"] = "openvpn";
            candidate["protocol"] = "udp";
            candidate["mtu"] = "1500";
            candidate["port"] = port;
        }
        return order;
    }

    /** Has the service order a tunnel: by the command itself, or by what it says when it is asked. */
    void Assign(Json::Value order, bool isInline) {
        order["serverID"] = Id();
        order["inline"] = isInline;
        order["forward"] = Json::arrayValue;
        server.Ask("POST", "/sandbox/tunnel", Json::FastWriter().write(order));
    }

    void Command(const std::string& id, const std::string& name, Json::Value members = Json::objectValue) {
        members["id"] = id;
        members["command"] = name;
        server.Command(Id(), Json::FastWriter().write(members));
    }

    /** The last results of commands, one after the other, once there are so many. */
    std::string AwaitResults(std::size_t count) {
        std::vector<std::string> results;
        Await([&] {
            results.clear();
            for (const auto& row : server.Results()) {
                auto text = row["id"].asString() + "=" + row["result"].asString();
                if (std::find(results.begin(), results.end(), text) == results.end()) {
                    results.push_back(text);
                }
            }
            return results.size() >= count;
        });
        std::string all;
        for (const auto& text : results) {
            all += (all.empty() ? "" : " ") + text;
        }
        return all;
    }

    static Json::Value Tunnel() { return JsonFrom(ReadText(kDaemonStatusFile))["tunnel"]; }

    /** What the last request of a command said of the tunnel. */
    std::string Told(const std::string& command) const {
        std::string status;
        for (const auto& request : server.Requests()) {
            const auto body = JsonFrom(request["body"].asString());
            if (body["command"] == command) {
                status = body["tunnel"]["status"].asString();
            }
        }
        return status;
    }

    bool AwaitTold(const std::string& status) {
        return Await([&] { return Told("wait") == status; });
    }

    /** How many requests of a command the service has had. */
    std::size_t Asked(const std::string& command) const {
        const auto requests = server.Requests();
        return static_cast<std::size_t>(std::count_if(requests.begin(), requests.end(), [&](const auto& request) {
            return JsonFrom(request["body"].asString())["command"] == command;
        }));
    }

    static bool IsGone(int process) { return kill(process, 0) != 0; }

    void BringUp() {
        LogIn();
        Assign(Order({kComesUp}), false);
        ASSERT_EQ(AwaitStatus(kUp), kUp) << daemon->Log();
    }

    Trust trust;
    ControlServerProcess server{{.server = {.folder = "/run/service",
                                            .certificate = trust.certificates.Certificate("valid"),
                                            .key = trust.certificates.Key("valid")}}};
};

TEST_F(DaemonTunnel, IsOpenedByACommandThatCameOverHttps) {
    LogIn();
    Command("a", "open_tunnel", Order({kEndsAtOnce, kComesUp}));
    EXPECT_EQ(AwaitStatus(kUp), kUp) << daemon->Log();
    EXPECT_EQ(AwaitResults(1), "a=0");
    EXPECT_THAT(TunnelTries(), ElementsAre("1001 box-1", "1002 box-1"));
    EXPECT_EQ(Tunnel()["open"], JsonFrom(R"([{"id":"hos","port":5000}])"));
    EXPECT_TRUE(AwaitTold("READY"));
    EXPECT_EQ(Asked("get_tunnel"), 0U);
}

TEST_F(DaemonTunnel, IsAskedForWhereTheCommandDoesNotSay) {
    LogIn();
    Assign(Order({kComesUp}, "box-2"), false);
    EXPECT_EQ(AwaitStatus(kUp), kUp) << daemon->Log();
    EXPECT_THAT(TunnelTries(), ElementsAre("1002 box-2"));
    EXPECT_THAT(AwaitResults(1), HasSubstr("=0"));
}

TEST_F(DaemonTunnel, IsAskedForWhereAnybodyCouldHaveWrittenTheCommand) {
    WaitOverPlainHttp();
    LogIn();
    Assign(Order({kComesUp}, "box-2"), false);
    ASSERT_EQ(AwaitStatus(kUp), kUp) << daemon->Log();
    Command("a", "open_tunnel", Order({kComesUp}, "evil"));
    EXPECT_THAT(AwaitResults(2), HasSubstr("a=0"));
    EXPECT_THAT(TunnelTries(), ElementsAre("1002 box-2"));
}

TEST_F(DaemonTunnel, IsAskedForOnceForSeveralCommands) {
    LogIn();
    server.SetFault(R"({"kind":"slow","delay_ms":300,"command":"get_tunnel"})");
    Assign(Order({kComesUp}), false);
    Command("a", "open_tunnel");
    EXPECT_THAT(AwaitResults(2), HasSubstr("a=0"));
    EXPECT_THAT(TunnelTries(), ElementsAre("1002 box-1"));
}

TEST_F(DaemonTunnel, IsRefusedWhereNoneIsAssigned) {
    LogIn();
    Command("a", "open_tunnel");
    EXPECT_EQ(AwaitResults(1), "a=255");
    EXPECT_EQ(DaemonStatus(), kLoggedIn);
    EXPECT_TRUE(Tunnel().isNull());
}

TEST_F(DaemonTunnel, IsRefusedWhereTheServerDoesNotAnswer) {
    LogIn();
    server.SetFault(R"({"kind":"status","status":503,"command":"get_tunnel","count":1})");
    Command("a", "open_tunnel");
    EXPECT_EQ(AwaitResults(1), "a=10");
    EXPECT_EQ(DaemonStatus(), kLoggedIn) << "the session stands";
}

TEST_F(DaemonTunnel, IsRefusedForAnOrderThatMakesNoSense) {
    LogIn();
    auto order = Order({kComesUp});
    order["relay"]["relay_ip"] = "--float";
    Command("a", "open_tunnel", order);
    EXPECT_EQ(AwaitResults(1), "a=255");
    order = Order({kComesUp});
    order["candidates"] = "all";
    Command("b", "open_tunnel", order);
    EXPECT_EQ(AwaitResults(2), "a=255 b=255");
    EXPECT_THAT(TunnelTries(), IsEmpty());
}

TEST_F(DaemonTunnel, TellsThatNoCandidateWorks) {
    LogIn();
    Assign(Order({kEndsAtOnce, "70000", "--up"}), true);
    EXPECT_THAT(AwaitResults(1), HasSubstr("=6"));
    EXPECT_EQ(DaemonStatus(), kLoggedIn);
    EXPECT_TRUE(Await([] { return TunnelTries().size() >= 3; })) << "it is tried again";
}

TEST_F(DaemonTunnel, TakesTheOrderAnewBeforeItTriesAgain) {
    LogIn();
    Assign(Order({kEndsAtOnce}), false);
    ASSERT_THAT(AwaitResults(1), HasSubstr("=6"));
    server.Ask("DELETE", "/sandbox/commands");
    Assign(Order({kComesUp}, "box-2"), true);  // the command is as good as the answer
    EXPECT_EQ(AwaitStatus(kUp), kUp) << daemon->Log();
    EXPECT_GE(Asked("get_tunnel"), 1U);
}

TEST_F(DaemonTunnel, GoesOnAtOnceWhereACommandAsksWhatItIsAskingItself) {
    LogIn();
    Assign(Order({kEndsAtOnce}), true);
    ASSERT_THAT(AwaitResults(1), HasSubstr("=6"));
    server.SetFault(R"({"kind":"slow","delay_ms":400,"command":"get_tunnel","count":0})");
    const auto asked = Asked("get_tunnel");
    ASSERT_TRUE(Await([&] { return Asked("get_tunnel") > asked; }));
    Command("b", "open_tunnel");
    EXPECT_THAT(AwaitResults(2), HasSubstr("b=6"));
}

TEST_F(DaemonTunnel, IsOpenedThoughTheSessionWasInDoubtMeanwhile) {
    LogIn();
    Assign(Order({kComesUp}), false);
    ASSERT_EQ(AwaitStatus(kUp), kUp) << daemon->Log();
    server.SetFault(R"({"kind":"slow","delay_ms":1000,"command":"get_tunnel"})");
    const auto asked = Asked("get_tunnel");
    Command("a", "open_tunnel");
    ASSERT_TRUE(Await([&] { return Asked("get_tunnel") > asked; }));
    server.SetFault(R"({"kind":"reset","command":"keep_alive","count":5})");
    server.BreakWaits(R"({"kind":"reset"})");
    EXPECT_EQ(AwaitStatus("starting err_network"), "starting err_network");
    EXPECT_THAT(AwaitResults(2), HasSubstr("a=0")) << daemon->Log();
    EXPECT_EQ(Asked("register"), 1U) << "another session";
}

TEST_F(DaemonTunnel, IsGivenUpWhereTheServiceOrdersNoneAnyMore) {
    LogIn();
    Command("a", "open_tunnel", Order({kEndsAtOnce}));
    EXPECT_EQ(AwaitResults(1), "a=6");
    EXPECT_TRUE(Await([] { return Tunnel().isNull(); }));
    EXPECT_THAT(TunnelTries(), testing::SizeIs(1));
}

TEST_F(DaemonTunnel, ClosesAtTheServicesWord) {
    BringUp();
    const auto child = TunnelChild();
    Command("c", "close_tunnel");
    EXPECT_THAT(AwaitResults(2), HasSubstr("c=0"));
    EXPECT_TRUE(IsGone(child));
    EXPECT_EQ(AwaitStatus(kLoggedIn), kLoggedIn);
    EXPECT_TRUE(Tunnel().isNull());
    EXPECT_TRUE(AwaitTold(""));
}

TEST_F(DaemonTunnel, OutlivesTheSession) {
    BringUp();
    const auto child = TunnelChild();
    server.EndSessions();
    EXPECT_TRUE(Await([&] { return Asked("register") >= 2; }));
    EXPECT_EQ(AwaitStatus(kUp), kUp);
    EXPECT_EQ(Told("register"), "READY");
    EXPECT_FALSE(IsGone(child));
}

TEST_F(DaemonTunnel, OutlivesAnOutageOfTheServers) {
    BringUp();
    const auto child = TunnelChild();
    server.SetFault(R"({"kind":"reset","count":0})");
    server.BreakWaits(R"({"kind":"reset"})");
    ASSERT_EQ(AwaitStatus("starting err_network"), "starting err_network");
    EXPECT_EQ(Tunnel()["status"], "READY");
    server.ClearFault();
    EXPECT_EQ(AwaitStatus(kUp), kUp);
    EXPECT_FALSE(IsGone(child));
}

TEST_F(DaemonTunnel, EndsWithTheDevicesRefusal) {
    BringUp();
    const auto child = TunnelChild();
    server.SetFault(R"({"kind":"errno","value":2,"command":"register"})");
    server.EndSessions();
    EXPECT_EQ(AwaitStatus("error err_auth"), "error err_auth");
    EXPECT_TRUE(Await([&] { return IsGone(child); }));
    EXPECT_TRUE(Await([] { return Tunnel().isNull(); }));
}

TEST_F(DaemonTunnel, EndsWhenTheOwnerSwitchesTheServiceOff) {
    BringUp();
    const auto child = TunnelChild();
    Edit([](Json::Value& configuration) { configuration["tethra"]["enabled"] = false; });
    ASSERT_TRUE(daemon->Reload());
    EXPECT_TRUE(Await([&] { return IsGone(child) && Tunnel().isNull(); }));
    EXPECT_EQ(AwaitStatus("logout success"), "logout success");
}

TEST_F(DaemonTunnel, EndsWhenTheDeviceBecomesAnother) {
    BringUp();
    const auto child = TunnelChild();
    ASSERT_TRUE(daemon->Reload());
    EXPECT_EQ(AwaitStatus(kUp), kUp) << "nothing is other yet";
    EXPECT_FALSE(IsGone(child));
    server.Ask("DELETE", "/sandbox/commands");
    auto identity = ReadText("/etc/ardv/identity.conf");
    const auto at = identity.find("AV0000000001");
    ASSERT_NE(at, std::string::npos);
    WriteText("/etc/ardv/identity.conf", identity.replace(at, 12, "AV0000000002"));
    std::filesystem::permissions("/etc/ardv/identity.conf", std::filesystem::perms(0600));
    ASSERT_TRUE(daemon->Reload());
    EXPECT_TRUE(Await([&] { return IsGone(child) && Tunnel().isNull(); }));
}

TEST_F(DaemonTunnel, FollowsThePermissionsAtAReload) {
    BringUp();
    TunnelCalls();
    WriteText("/usr/ardv/etc/ardvrelayd/services.conf", R"([{"id":"mobile_apps","enabled":false}])");
    ASSERT_TRUE(daemon->Reload());
    EXPECT_TRUE(Await([] { return Tunnel()["open"].empty(); }));
    const auto calls = TunnelCalls();
    EXPECT_THAT(calls, testing::Contains("iptables -F TETHRA_RELAY"));
    EXPECT_THAT(calls, testing::Each(Not(HasSubstr("--dport"))));
    EXPECT_EQ(DaemonStatus(), kUp);
}

TEST_F(DaemonTunnel, FollowsThePermissionsAlsoWhereTheConfigurationIsDamaged) {
    BringUp();
    WriteText("/usr/ardv/etc/ardvrelayd/services.conf", R"([{"id":"mobile_apps","enabled":false}])");
    WriteText(kDaemonConfig, "no JSON");
    daemon->Signal(SIGHUP);
    EXPECT_TRUE(Await([] { return Tunnel()["open"].empty(); }));
    EXPECT_EQ(DaemonStatus(), kUp);
}

TEST_F(DaemonTunnel, IsTriedAtOnceWhenTheClockWasSet) {
    setenv("ASAN_OPTIONS", "verify_asan_link_order=0", 1);  // where the daemon has a sanitizer
    setenv("LD_PRELOAD", ARDV_JUMPING_CLOCK, 1);
    Start({"--retry-base", "60", "--retry-cap", "600"});
    unsetenv("LD_PRELOAD");
    ASSERT_EQ(AwaitStatus(kLoggedIn), kLoggedIn) << daemon->Log();
    Assign(Order({kEndsAtOnce}), false);
    ASSERT_THAT(AwaitResults(1), HasSubstr("=6"));
    daemon->Signal(SIGRTMIN + 5);
    EXPECT_TRUE(Await([] { return TunnelTries().size() == 2; })) << daemon->Log();
}

TEST_F(DaemonTunnel, ComesBackWhenTheConnectionIsLost) {
    BringUp();
    const auto child = TunnelChild();
    kill(child, SIGKILL);
    EXPECT_TRUE(Await([&] { return TunnelChild() != child && DaemonStatus() == kUp; })) << daemon->Log();
    EXPECT_GE(Asked("get_tunnel"), 2U);
}

TEST_F(DaemonTunnel, EndsWithTheDaemon) {
    for (const char* port : {kComesUp, kHangs, kIsStubborn}) {
        LogIn();
        Command("a", "open_tunnel", Order({port}));
        ASSERT_TRUE(Await([&] { return !TunnelTries().empty(); }));
        const auto child = TunnelChild();
        server.Ask("DELETE", "/sandbox/commands");
        EXPECT_EQ(daemon->Stop(SIGTERM, kLongestEnd + std::chrono::seconds(2)), 0) << daemon->Log();
        EXPECT_TRUE(IsGone(child));
        EXPECT_FALSE(std::filesystem::exists(kDaemonStatusFile));
        EXPECT_FALSE(std::filesystem::exists("/tmp/.tunnel.box-1"));
        ForgetTunnelTries();
    }
}

TEST_F(DaemonTunnel, EndsWithADaemonThatIsKilledAndIsClearedAwayByTheNext) {
    for (const char* port : {kComesUp, kHangs}) {
        LogIn();
        Command("a", "open_tunnel", Order({port}));
        ASSERT_TRUE(Await([&] { return !TunnelTries().empty() && Tunnel().isMember("pid"); }));
        const auto child = TunnelChild();
        server.Ask("DELETE", "/sandbox/commands");  // or it would be sent again
        daemon->Stop(SIGKILL);
        EXPECT_TRUE(Await([&] { return IsGone(child); })) << port;
        LogIn();
        const auto calls = TunnelCalls();
        ASSERT_GE(calls.size(), 3U);
        EXPECT_THAT(
            std::vector(calls.end() - 3, calls.end()),
            ElementsAre("iptables -F TETHRA_RELAY", "ip6tables -F TETHRA_RELAY", "ovpnc.sh unload tethraa-tunnel"));
        EXPECT_FALSE(std::filesystem::exists("/tmp/.tunnel.box-1"));
        EXPECT_TRUE(Tunnel().isNull());
        daemon.reset();
        ForgetTunnelTries();
    }
}

TEST_F(DaemonTunnel, IsNotHarmedByStraySignals) {
    BringUp();
    const auto child = TunnelChild();
    for (const int signal : {SIGUSR2, SIGALRM, SIGCHLD}) {
        daemon->Signal(signal);
    }
    EXPECT_TRUE(Holds([&] { return DaemonStatus() == kUp && !IsGone(child); }, std::chrono::milliseconds(200)));
}

}  // namespace
}  // namespace ardv::test
