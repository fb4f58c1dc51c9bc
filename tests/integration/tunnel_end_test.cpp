// SPDX-License-Identifier: Apache-2.0
// How a daemon with a tunnel ends, in order or not, and how the next one clears away what an earlier one has left.
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "integration/tunnel_daemon_fixture.h"

namespace ardv::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

namespace fs = std::filesystem;

constexpr const char kPasswordFile[] = "/tmp/.tunnel.box";
const std::vector<std::string> kPatient{"--retry-base", "60", "--retry-cap", "600"};

class TunnelEnd : public DaemonTunnelTest {
protected:
    static void DropAtRelay(const std::string& port) {
        RunIn("relay", {"/sbin/iptables", "-I", "INPUT", "-p", "tcp", "--dport", port, "-j", "DROP"});
    }

    void ExpectOrderlyEnd() const {
        EXPECT_EQ(daemon->Stop(SIGTERM, kLongestEnd), 0) << daemon->Log();
        ExpectNoTrace();
    }

    /** Whether a process that is stopped has been sent SIGTERM. */
    static bool IsToldToEnd(pid_t process) {
        constexpr std::string_view kField = "\nShdPnd:\t";
        const std::string status = ReadText("/proc/" + std::to_string(process) + "/status");
        const auto place = status.find(kField);
        return place != std::string::npos &&
               (std::stoull(status.substr(place + kField.size()), nullptr, 16) & 1ULL << (SIGTERM - 1)) != 0;
    }

    /** Looks without a pause until `isTrue`, 10 seconds at most. */
    static bool Catch(const std::function<bool()>& isTrue) {
        const auto end = std::chrono::steady_clock::now() + kPatience;
        while (!isTrue()) {
            if (std::chrono::steady_clock::now() > end) {
                return false;
            }
            std::this_thread::yield();
        }
        return true;
    }

    /** Kills the daemon. Its OpenVPN ends with it. */
    void KillDaemon() const {
        EXPECT_EQ(daemon->Stop(SIGKILL), -SIGKILL);
        EXPECT_TRUE(Await([] { return OpenVpnClients().empty(); }, seconds(2)));
        control->Ask("DELETE", "/sandbox/commands");
    }

    /** The next daemon starts, and finds nothing, or leaves nothing, of the one before. */
    void ExpectCleanStart() {
        StartAndLogIn();
        ExpectNoTrace();
    }
};

TEST_F(TunnelEnd, IsInOrderWithoutATunnel) {
    StartAndLogIn();
    ExpectOrderlyEnd();
}

TEST_F(TunnelEnd, IsInOrderWhileACandidateIsTried) {
    DropAtRelay("1200");
    StartAndLogIn();
    Order({Candidate(kTcp, "1200")});
    EXPECT_EQ(AwaitTunnel("CREATING"), "CREATING");
    ExpectOrderlyEnd();
}

TEST_F(TunnelEnd, IsInOrderWhileTheTunnelIsUp) {
    BringUp();
    ExpectOrderlyEnd();
}

TEST_F(TunnelEnd, IsInOrderBeforeAnotherTry) {
    StartAndLogIn(kPatient);
    EXPECT_EQ(AwaitResult(Order({Candidate(kUdp)}, "another")), kNetworkError);
    EXPECT_EQ(AwaitTunnel("FAILED"), "FAILED");
    ExpectOrderlyEnd();
}

TEST_F(TunnelEnd, IsInOrderWhileTheTunnelIsEnding) {
    BringUp();
    const pid_t child = TunnelInStatus()["pid"].asInt();
    ::kill(child, SIGSTOP);  // so that its end takes until it is killed
    Close();
    EXPECT_TRUE(Await([&] { return IsToldToEnd(child); }));
    EXPECT_EQ(daemon->Stop(SIGTERM, seconds(6)), 0) << daemon->Log();
    ExpectNoTrace();
}

TEST_F(TunnelEnd, IsInOrderWhenOpenVpnDoesNotListen) {
    BringUp();
    ::kill(TunnelInStatus()["pid"].asInt(), SIGSTOP);
    EXPECT_EQ(AwaitResult(Close()), kSuccess);
    ExpectNoTrace();
}

/** A moment of a tunnel's beginning. */
struct Moment {
    const char* name;
    bool (*hasCome)();
};

bool IsReady() {
    return JsonFrom(ReadText(kDaemonStatusFile))["tunnel"]["status"] == "READY";
}

constexpr Moment kMoments[] = {
    {"TheRulesAreMade", [] { return !FilterRules("iptables").empty(); }},
    {"ThePasswordFileIsThere", [] { return fs::exists(kPasswordFile); }},
    {"OpenVpnIsThere", [] { return !OpenVpnClients().empty(); }},
    {"TheInterfaceIsThere",
     [] {
         return !RunIn("device", {"ip", "-o", "link", "show", "type", "tun"}).empty();
     }},
    {"TheInformationFileIsThere", [] { return fs::exists(kInformationFile); }},
    {"ThePasswordFileIsGone", [] { return fs::exists(kInformationFile) && !fs::exists(kPasswordFile); }},
    {"APortIsLetThrough", [] { return !AcceptedPorts("iptables").empty(); }},
    {"ItIsUp", IsReady},
};

class TunnelEndByForce : public TunnelEnd, public testing::WithParamInterface<Moment> {};

TEST_P(TunnelEndByForce, LeavesNothingOpenAndNothingInTheWay) {
    PortWatch watch(kUdp.Route(), TellingPorts());
    for (int i = 0; i < 4; ++i) {
        ExpectCleanStart();
        Order({Candidate(kUdp)});
        EXPECT_TRUE(Catch(GetParam().hasCome));
        KillDaemon();
    }
    ExpectCleanStart();
    EXPECT_EQ(AwaitResult(Order({Candidate(kUdp)})), kSuccess) << daemon->Log();
    EXPECT_TRUE(AwaitPage());
    ExpectOrderlyEnd();
    EXPECT_EQ(watch.End(), OnlyOpen({kPage}));
}

INSTANTIATE_TEST_SUITE_P(When, TunnelEndByForce, testing::ValuesIn(kMoments),
                         [](const auto& param) { return std::string(param.param.name); });

TEST_F(TunnelEnd, ByForceAtAnyMomentLeavesNothingOpenAndNothingInTheWay) {
#ifdef __SANITIZE_ADDRESS__
    constexpr int kRounds = 8;
#else
    constexpr int kRounds = 30;
#endif
    constexpr int kLongest = 150;  // milliseconds; by then the tunnel is up
    std::srand(20261120);
    PortWatch watch(kUdp.Route(), TellingPorts());
    for (int i = 0; i < kRounds; ++i) {
        ExpectCleanStart();
        Order({Candidate(kUdp)});
        std::this_thread::sleep_for(milliseconds(std::rand() % kLongest));
        KillDaemon();
    }
    ExpectCleanStart();
    EXPECT_EQ(AwaitResult(Order({Candidate(kUdp)})), kSuccess) << daemon->Log();
    EXPECT_TRUE(AwaitPage());
    ExpectOrderlyEnd();
    EXPECT_EQ(watch.End(), OnlyOpen({kPage}));
}

TEST_F(TunnelEnd, OfAnOpenVpnThatHasOutlivedItsDaemonComesWithTheNextOne) {
    BringUp();
    auto arguments = ArgumentsOf(TunnelInStatus()["pid"].asInt());
    ExpectOrderlyEnd();
    arguments.erase(arguments.begin());
    arguments.insert(arguments.begin(), {"/bin/bash", "-c", R"(exec -a openvpn /usr/sbin/openvpn "$@")", "bash"});
    WriteText(kPasswordFile, std::string("box\n") + kPassword);
    pid_t orphan = -1;
    {
        const InNamespace device("device");
        orphan = Spawn(std::move(arguments), "/run/orphan.log");
    }
    ASSERT_TRUE(Await([] { return fs::exists(kInformationFile); })) << ReadText("/var/log/openvpn.log");
    EXPECT_EQ(OpenVpnClients(), std::vector<pid_t>{orphan});
    ExpectCleanStart();
    EXPECT_TRUE(HasEnded(orphan, 0));
    Reap(orphan);
    EXPECT_EQ(AwaitResult(Order({Candidate(kUdp)})), kSuccess) << daemon->Log();
    EXPECT_TRUE(AwaitPage());
}

TEST_F(TunnelEnd, IsNotThatOfAStrangerWhoseNumberIsInTheInformationFile) {
    const pid_t stranger = Spawn({"/bin/sleep", "60"}, "/run/stranger.log");
    WriteText(kInformationFile, "peer_ip=\"10.8.0.1\"\nopenvpn_pid=\"" + std::to_string(stranger) + "\"\n");
    WriteText(kPasswordFile, "box\nold");
    ExpectCleanStart();
    EXPECT_FALSE(HasEnded(stranger, 0));
    ::kill(stranger, SIGKILL);
    Reap(stranger);
}

TEST_F(TunnelEnd, LeavesWhatALinkAtThePasswordFilesPlacePointsTo) {
    WriteText("/run/victim", "untouched");
    fs::create_symlink("/run/victim", kPasswordFile);
    StartAndLogIn();
    EXPECT_EQ(AwaitResult(Order({Candidate(kUdp)})), kSuccess) << daemon->Log();
    EXPECT_EQ(ReadText("/run/victim"), "untouched");
    EXPECT_TRUE(AwaitPage());
    EXPECT_EQ(AwaitResult(Close()), kSuccess);
    ExpectNoTrace();
    EXPECT_EQ(ReadText("/run/victim"), "untouched");
}

TEST_F(TunnelEnd, ComesSoonWhereThePasswordFileCannotBeMade) {
    fs::create_directory(kPasswordFile);
    StartAndLogIn();
    EXPECT_EQ(AwaitResult(Order({Candidate(kUdp)})), kNetworkError) << daemon->Log();
    EXPECT_THAT(OpenVpnClients(), testing::IsEmpty());
    fs::remove(kPasswordFile);
    EXPECT_EQ(AwaitTunnel("READY"), "READY");
}

}  // namespace
}  // namespace ardv::test
