// SPDX-License-Identifier: Apache-2.0
// The daemon's tunnel, ordered by the service, with a real OpenVPN at both ends: what a client reaches, and how it begins and ends.
#include "integration/tunnel_daemon_fixture.h"

namespace ardv::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

class TunnelOfDaemon : public DaemonTunnelTest {
protected:
    /** Has the relay drop what comes to a TCP port of its. */
    static void DropAtRelay(const std::string& port) {
        RunIn("relay", {"/sbin/iptables", "-I", "INPUT", "-p", "tcp", "--dport", port, "-j", "DROP"});
    }
};

class TunnelByProtocol : public TunnelOfDaemon, public testing::WithParamInterface<Protocol> {
protected:
    /** The arguments of OpenVPN, one a line. */
    std::vector<std::string> ExpectedArguments() const {
        const Protocol& protocol = GetParam();
        std::istringstream text(
            "openvpn\n--client\n--mute-replay-warnings\n--auth-nocache\n--nobind\n--tun-mtu\n1500\n--ping-exit\n10\n"
            "--connect-retry-max\n1\n--proto\n" +
            std::string(protocol.name) + "\n--remote\n" + protocol.Host() + "\n--port\n" + protocol.port +
            "\n--dev\ntun1000\n--ca\n/usr/ardv/etc.defaults/ardvrelayd/ca/ca.crt\n--script-security\n2\n"
            "--auth-user-pass\n/tmp/.tunnel.box\n--remap-usr1\nSIGTERM\n--comp-lzo\nno\n--reneg-sec\n0\n--verb\n4\n"
            "--route-up\n/usr/ardv/etc.defaults/ardvrelayd/scripts/up.sh " +
            std::to_string(daemon->Pid()) +
            "\n--down\n/usr/ardv/etc.defaults/ardvrelayd/scripts/down.sh\n--allow-recursive-routing\n"
            "--log-append\n/var/log/openvpn.log\n");
        std::vector<std::string> arguments;
        for (std::string line; std::getline(text, line);) {
            arguments.push_back(line);
        }
        return arguments;
    }
};

TEST_P(TunnelByProtocol, CarriesThePageToAClientUntilItIsClosed) {
    const Protocol& protocol = GetParam();
    BringUp(protocol);
    const auto status = TunnelInStatus();
    EXPECT_EQ(ArgumentsOf(status["pid"].asInt()), ExpectedArguments());
    EXPECT_EQ(OpenVpnClients(), std::vector<pid_t>{status["pid"].asInt()});
    EXPECT_EQ(status["candidate"]["protocol"], protocol.name);
    EXPECT_EQ(status["candidate"]["host"], protocol.Host());
    EXPECT_EQ(status["peer_ip"], protocol.RelayInner4());
    EXPECT_EQ(status["local_ip"], protocol.DeviceInner4());
    EXPECT_EQ(status["local_ip6"], protocol.DeviceInner6());
    EXPECT_EQ(DaemonStatus(), "connected success");
    for (const pid_t process : ProcessesIn("device")) {
        EXPECT_THAT(ArgumentsOf(process), testing::Each(testing::Not(testing::HasSubstr(kPassword))));
    }
    EXPECT_TRUE(ClientGetsThePage());
    EXPECT_EQ(Fetch("client", kRelay4, kPublic, "1m", 10), DeviceServices::Large());
    EXPECT_EQ(Fetch("client", kRelay6, kPublic, "1m", 10), DeviceServices::Large());
    EXPECT_EQ(Fetch("client", "10.0.0.2", kPage, "index.html", 1), "") << "there is no other way";
    EXPECT_EQ(AwaitResult(Close()), kSuccess);
    EXPECT_TRUE(Await([] { return TunnelInStatus().isNull(); }));
    EXPECT_EQ(DaemonStatus(), "login success");
    ExpectNoTrace();
}

INSTANTIATE_TEST_SUITE_P(Each, TunnelByProtocol, testing::ValuesIn(kProtocols), ProtocolName);

TEST_F(TunnelOfDaemon, FailsWithAWrongPasswordAndIsTriedAgain) {
    StartAndLogIn();
    EXPECT_EQ(AwaitResult(Order({Candidate(kUdp), Candidate(kTcp)}, "another")), kNetworkError) << daemon->Log();
    EXPECT_EQ(AwaitTunnel("FAILED"), "FAILED");
    EXPECT_FALSE(TunnelInStatus()["error"].asString().empty());
    EXPECT_THAT(PasswordFiles(), testing::IsEmpty());
    RelayServer::Admit("box", "another", "45000:5000");
    EXPECT_EQ(AwaitTunnel("READY"), "READY") << daemon->Log();
    EXPECT_TRUE(AwaitPage());
}

TEST_F(TunnelOfDaemon, FailsWhereNoCandidateIsOfUse) {
    StartAndLogIn();
    auto withoutType = Candidate(kUdp);
    withoutType.removeMember("type");
    EXPECT_EQ(AwaitResult(Order({withoutType, Candidate(kTcp, "70000"), Candidate(kTcp, "--up")})), kNetworkError);
    EXPECT_EQ(AwaitTunnel("FAILED"), "FAILED");
    EXPECT_THAT(OpenVpnClients(), testing::IsEmpty());
    EXPECT_EQ(AwaitResult(Close()), kSuccess);
    ExpectNoTrace();
}

TEST_F(TunnelOfDaemon, IsOpenedByTheSecondCandidateWhereTheFirstIsRefused) {
    StartAndLogIn();
    EXPECT_EQ(AwaitResult(Order({Candidate(kTcp, "1200"), Candidate(kTcp)})), kSuccess) << daemon->Log();
    EXPECT_EQ(TunnelInStatus()["candidate"]["port"], "1194");
    EXPECT_TRUE(ClientGetsThePage());
}

TEST_F(TunnelOfDaemon, IsOpenedByTheSecondCandidateWhereTheFirstNeverAnswers) {
    DropAtRelay("1200");
    StartAndLogIn();
    const auto start = std::chrono::steady_clock::now();
    const auto id = Order({Candidate(kTcp, "1200"), Candidate(kUdp)});
    EXPECT_EQ(AwaitTunnel("CREATING"), "CREATING");
    EXPECT_EQ(TunnelInStatus()["candidate"]["port"], "1200");
    EXPECT_EQ(AwaitResult(id, seconds(45)), kSuccess) << daemon->Log();
    const auto time = std::chrono::steady_clock::now() - start;
    EXPECT_GE(time, seconds(29));
    EXPECT_LE(time, seconds(40));
    EXPECT_EQ(TunnelInStatus()["candidate"]["protocol"], "udp");
    EXPECT_TRUE(ClientGetsThePage());
}

TEST_F(TunnelOfDaemon, ComesBackAfterTheRelayHasDied) {
    BringUp(kTcp);
    relay->Kill();
    EXPECT_TRUE(Await([] { return TunnelWord() != "READY"; }, seconds(15))) << "the loss is noticed";
    EXPECT_EQ(DaemonStatus(), "login success");
    EXPECT_TRUE(Holds([] { return TunnelWord() != "READY"; }, milliseconds(300)));
    relay->Start();
    EXPECT_EQ(AwaitTunnel("READY", seconds(30)), "READY") << daemon->Log();
    EXPECT_TRUE(AwaitPage());
}

TEST_F(TunnelOfDaemon, IsOpenedByACommandThatHasTheOrderInIt) {
    StartAndLogIn();
    auto assignment = Assignment({Candidate(kUdp)});
    assignment["inline"] = true;
    EXPECT_EQ(AwaitResult(OrderAs(assignment)), kSuccess) << daemon->Log();
    EXPECT_EQ(Count("get_tunnel"), 0U);
    EXPECT_TRUE(ClientGetsThePage());
}

TEST_F(TunnelOfDaemon, IsOpenedWithTheUserThatTheServiceMadeUpForTheRelay) {
    relay->Stop();
    std::filesystem::remove(RelayServer::kUsers);
    std::filesystem::create_symlink("/run/control/users", RelayServer::kUsers);
    relay->Start();
    StartAndLogIn();
    auto assignment = Assignment({Candidate(kUdp)});
    assignment["relay"].removeMember("relay_user");
    assignment["relay"].removeMember("relay_pass");
    EXPECT_EQ(AwaitResult(OrderAs(assignment)), kSuccess) << daemon->Log();
    EXPECT_TRUE(ClientGetsThePage());
    const auto relayNow = control->Tunnels()[ServerId()]["relay"];
    const std::string told = daemon->Log() + ReadText(kDaemonStatusFile) + Json::FastWriter().write(DaemonReport());
    EXPECT_EQ(told.find(relayNow["relay_pass"].asString()), std::string::npos);
    EXPECT_EQ(ReadText(kDaemonStatusFile).find(relayNow["relay_user"].asString()), std::string::npos);
}

TEST_F(TunnelOfDaemon, IsTriedWithThePasswordThatTheServiceHasNow) {
    StartAndLogIn();
    EXPECT_EQ(AwaitResult(Order({Candidate(kUdp)}, "expired")), kNetworkError) << daemon->Log();
    auto assignment = Assignment({Candidate(kUdp)});
    assignment["queue"] = false;
    OrderAs(assignment);
    EXPECT_EQ(AwaitTunnel("READY"), "READY") << daemon->Log();
    EXPECT_TRUE(AwaitPage());
}

TEST_F(TunnelOfDaemon, IsToldToTheServiceAtEachChange) {
    StartAndLogIn({"--retry-base", "60", "--retry-cap", "600"});
    EXPECT_EQ(AwaitResult(Order({Candidate(kUdp)})), kSuccess);
    EXPECT_TRUE(Await([&] { return control->Tunnel(ServerId())["status"] == "READY"; }));
    EXPECT_EQ(control->Tunnel(ServerId())["relay_ip"], kRelay4);
    relay->Stop();
    EXPECT_TRUE(Await([&] { return control->Tunnel(ServerId())["status"] != "READY"; }, seconds(15)));
    EXPECT_EQ(DaemonStatus(), "login success");
    EXPECT_EQ(AwaitResult(Close()), kSuccess);
    EXPECT_TRUE(Await([&] { return control->Tunnel(ServerId()).isNull(); }));
    EXPECT_EQ(control->Log().find(kPassword), std::string::npos);
}

TEST_F(TunnelOfDaemon, IsNoReasonToRegisterAnew) {
    StartAndLogIn();
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(AwaitResult(Order({Candidate(kUdp)})), kSuccess);
        EXPECT_EQ(AwaitResult(Close()), kSuccess);
    }
    EXPECT_TRUE(Holds([&] { return Count("register") == 1; }, milliseconds(2600)));
    EXPECT_EQ(AwaitResult(Order({Candidate(kUdp)})), kSuccess);
    RunIn("device", {"ip", "address", "add", "10.0.0.77/24", "dev", "eth0"});
    EXPECT_TRUE(Await([&] { return Count("register") == 2; })) << "a change of another interface is one";
    for (const auto& request : control->Requests()) {
        EXPECT_EQ(request["body"].asString().find("tun1000"), std::string::npos) << request["body"];
    }
}

TEST_F(TunnelOfDaemon, IsDescribedByTheToolAsItIs) {
    StartAndLogIn();
    EXPECT_EQ(Tool({"tunnel", "status"}).exitCode, 4) << "none is ordered";
    EXPECT_EQ(AwaitResult(Order({Candidate(kUdp)})), kSuccess);
    const auto tunnel = TunnelInStatus();
    ASSERT_EQ(tunnel["open"].size(), 1U);
    EXPECT_EQ(tunnel["open"][0]["id"], "hos");
    EXPECT_EQ(tunnel["open"][0]["port"], kPage);
    EXPECT_EQ(Accepted(), std::vector<int>{kPage});
    const auto status = Tool({"tunnel", "status"});
    EXPECT_EQ(status.exitCode, 0) << status.err;
    for (const auto& word : {std::string("READY"), std::string(kRelay4), kUdp.RelayInner4(), kUdp.DeviceInner6(),
                             std::to_string(tunnel["pid"].asInt())}) {
        EXPECT_THAT(status.out, testing::HasSubstr(word));
    }
    EXPECT_EQ(Tool({"wait", "--for=tunnel"}).exitCode, 0);
    const auto rules = Tool({"tunnel", "rules"});
    EXPECT_EQ(rules.exitCode, 0) << rules.out << rules.err;
    EXPECT_THAT((status.out + rules.out), testing::Not(testing::HasSubstr(kPassword)));
}

TEST_F(TunnelOfDaemon, IsFoundToBeTamperedWithByTheTool) {
    BringUp();
    for (const auto& change : std::vector<std::vector<std::string>>{
             {"/sbin/iptables", "-I", "TETHRA_RELAY", "-i", "tun1000", "-p", "tcp", "--dport", "5009", "-j", "ACCEPT"},
             {"/sbin/ip6tables", "-D", "FORWARD", "-i", "tun1000", "-j", "DROP"}}) {
        RunIn("device", change);
        const auto rules = Tool({"tunnel", "rules"});
        EXPECT_EQ(rules.exitCode, 8) << rules.out << rules.err;
        ASSERT_TRUE(AwaitResult(Close()) == kSuccess && AwaitResult(Order({Candidate(kUdp)})) == kSuccess);
        EXPECT_EQ(Tool({"tunnel", "rules"}).exitCode, 0) << "it is made anew";
    }
}

}  // namespace
}  // namespace ardv::test
