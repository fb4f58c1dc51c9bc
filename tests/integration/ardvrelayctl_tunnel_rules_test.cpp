// SPDX-License-Identifier: Apache-2.0
#include <chrono>
#include <csignal>
#include <sstream>

#include "ardvrelayctl_tunnel.h"

namespace ardv::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

/** The same, with the packet filter of the test's own network. */
class ArdvrelayctlTunnelRules : public ArdvrelayctlTunnel {
protected:
    void SetUp() override {
        if (RunProgram({"/sbin/iptables", "-S"}).exitCode != 0 || RunProgram({"/sbin/ip6tables", "-S"}).exitCode != 0) {
            GTEST_SKIP() << "this machine has no packet filter";
        }
    }

    static void Filter(const std::string& program, const std::string& arguments) {
        std::vector<std::string> command = {"/sbin/" + program};
        std::istringstream words(arguments);
        for (std::string word; words >> word;) {
            command.push_back(word);
        }
        const auto result = RunProgram(command);
        ASSERT_EQ(result.exitCode, 0) << program << ' ' << arguments << ": " << result.err;
    }

    static void Both(const std::string& arguments) {
        Filter("iptables", arguments);
        Filter("ip6tables", arguments);
    }

    static void RaiseGuard() {
        Both("-N TETHRA_RELAY");
        Both("-I INPUT -i tun1000 -j DROP");
        Both("-I INPUT -i tun1000 -j TETHRA_RELAY");
        Both("-I FORWARD -i tun1000 -j DROP");
    }

    /** What the daemon does once the tunnel is up. */
    static void OpenPorts(const std::vector<int>& ports) {
        Both("-A TETHRA_RELAY -i tun1000 -j DROP");
        Filter("iptables", "-I TETHRA_RELAY -i tun1000 -p icmp -j ACCEPT");
        Filter("ip6tables", "-I TETHRA_RELAY -i tun1000 -p ipv6-icmp -j ACCEPT");
        for (const int port : ports) {
            Both("-I TETHRA_RELAY -i tun1000 -p tcp --dport " + std::to_string(port) + " -j ACCEPT");
        }
    }

    /** What is wrong with the filter of a family, as the tool says. */
    static std::vector<std::string> Faults(const std::string& family) {
        std::vector<std::string> faults;
        const Json::Value report = RunJson({"tunnel", "rules"});
        for (const auto& filter : report["filter"]) {
            for (const auto& fault : filter["faults"]) {
                if (filter["family"] == family) {
                    faults.push_back(fault.asString());
                }
            }
        }
        return faults;
    }

    static constexpr const char kGood[] = "the guard stands, and opens what the daemon says and nothing else\n";
};

TEST_F(ArdvrelayctlTunnelRules, SayWhatIsOpenAndWhyTheRestIsClosed) {
    const MadeUpDaemon daemon;
    RaiseGuard();
    OpenPorts({5000, 80});
    daemon.Publish(ReadyTunnel());
    const auto result = Rules();
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out,
              "ID         PORT  RULE    WHY\n"
              "hos        5000  open\n"
              "http       80    open\n"
              "dms_https  5001  closed  the group file_sharing is denied: 'ardvrelayctl permission allow "
              "file_sharing' permits it\n"
              "IPv4: " +
                  std::string(kGood) + "IPv6: " + kGood);
    const auto report = RunJson({"tunnel", "rules"});
    EXPECT_EQ(report["services"][0], JsonOf(R"({"id":"hos","port":5000,"rule":"open","reason":""})"));
    EXPECT_EQ(report["filter"][1], JsonOf(R"({"family":"IPv6","program":"/sbin/ip6tables","checked":true,
        "guard":true,"faults":[]})"));
    EXPECT_EQ(report["guard_needed"], true);
    EXPECT_FALSE(report.isMember("exit_code"));
}

TEST_F(ArdvrelayctlTunnelRules, NameAPortThatIsOpenWithoutAPermittedService) {
    const MadeUpDaemon daemon;
    RaiseGuard();
    OpenPorts({5000, 80});
    Filter("ip6tables", "-I TETHRA_RELAY -i tun1000 -p tcp --dport 5009 -j ACCEPT");
    daemon.Publish(ReadyTunnel());
    const auto result = Rules();
    EXPECT_EQ(result.exitCode, 8);
    EXPECT_EQ(result.err,
              "ardvrelayctl: what the tunnel lets through is not what it should be; "
              "'ardvrelayctl reload' has the daemon make its rules anew\n");
    EXPECT_THAT(result.out, HasSubstr("IPv4: " + std::string(kGood)));
    EXPECT_THAT(result.out, HasSubstr("IPv6: port 5009 is open without a permitted service\n"));
    EXPECT_THAT(Faults("IPv6"), ElementsAre("port 5009 is open without a permitted service"));
    EXPECT_THAT(Faults("IPv4"), IsEmpty());
    EXPECT_EQ(RunJson({"tunnel", "rules"})["exit_code"], 8);
}

TEST_F(ArdvrelayctlTunnelRules, NameAPortLeftOpenByADaemonThatIsGone) {
    RaiseGuard();
    OpenPorts({5000});
    const auto result = Rules();
    EXPECT_EQ(result.exitCode, 8) << "which weighs more than that no daemon runs";
    EXPECT_THAT(result.out, HasSubstr("IPv4: port 5000 is open without a permitted service\n"));
}

TEST_F(ArdvrelayctlTunnelRules, NameAPortThatIsClosedAgainstWhatTheDaemonSays) {
    const MadeUpDaemon daemon;
    RaiseGuard();
    OpenPorts({80});
    Filter("iptables", "-A TETHRA_RELAY -i tun1000 -p tcp --dport 5000 -j ACCEPT");
    daemon.Publish(ReadyTunnel());
    EXPECT_THAT(Faults("IPv4"), ElementsAre("port 5000 is closed, though the daemon says that it is open"))
        << "what stands behind the DROP is never reached";
    EXPECT_EQ(Rules().exitCode, 8);
}

TEST_F(ArdvrelayctlTunnelRules, NameWhatIsMissingOfTheGuard) {
    const MadeUpDaemon daemon;
    daemon.Publish(Tunnel(R"("status":"CREATING")"));
    EXPECT_THAT(Faults("IPv4"),
                ElementsAre(HasSubstr("INPUT does not lead into TETHRA_RELAY"),
                            HasSubstr("INPUT has no DROP for tun1000"), HasSubstr("FORWARD has no DROP")));
    RaiseGuard();
    EXPECT_THAT(Faults("IPv4"), IsEmpty());
    EXPECT_EQ(Rules().exitCode, 0);
    Filter("iptables", "-D FORWARD -i tun1000 -j DROP");
    EXPECT_THAT(Faults("IPv4"),
                ElementsAre("FORWARD has no DROP for tun1000: the relay may reach the device's network"));
    Filter("ip6tables", "-D INPUT -i tun1000 -j DROP");
    EXPECT_THAT(Faults("IPv6"),
                ElementsAre(HasSubstr("INPUT has no DROP for tun1000: what TETHRA_RELAY does not stop")));
    Filter("ip6tables", "-A INPUT -p tcp -j ACCEPT");
    Filter("ip6tables", "-A INPUT -i tun1000 -j DROP");
    EXPECT_THAT(Faults("IPv6"), ElementsAre("INPUT has no DROP for tun1000 directly behind its jump to TETHRA_RELAY"));
    daemon.Publish(ReadyTunnel("[]"));
    EXPECT_THAT(Faults("IPv4"), ElementsAre(HasSubstr("FORWARD"), "TETHRA_RELAY does not end in a DROP",
                                            "TETHRA_RELAY does not accept ICMP"));
}

TEST_F(ArdvrelayctlTunnelRules, NameWhatLetsPacketsPassAheadOfTheGuard) {
    const MadeUpDaemon daemon;
    daemon.Publish(Tunnel(R"("status":"CREATING")"));
    RaiseGuard();
    for (const char* rule : {"-i lo -j ACCEPT", "! -i tun1000 -j ACCEPT", "-i lan+ -j ACCEPT", "-p tcp -j DROP",
                             "-j LOG", "-p tcp --dport 1", "-i tun1000 -p udp -j REJECT"}) {
        Filter("iptables", std::string("-I INPUT ") + rule);
        EXPECT_THAT(Faults("IPv4"), IsEmpty()) << rule;
        Filter("iptables", "-D INPUT 1");
    }
    for (const char* rule : {"-j ACCEPT", "-p tcp -m tcp --dport 22 -j ACCEPT", "! -i lo -j ACCEPT",
                             "-i tun+ -j ACCEPT", "-m comment --comment -i -j ACCEPT", "-j RETURN", "-j NFQUEUE"}) {
        Filter("iptables", std::string("-I INPUT ") + rule);
        EXPECT_THAT(Faults("IPv4"),
                    ElementsAre(StartsWith("ahead of the guard a rule may let packets of tun1000 pass: INPUT ")))
            << rule;
        Filter("iptables", "-D INPUT 1");
    }
}

TEST_F(ArdvrelayctlTunnelRules, FollowChainsThatLeadIntoEachOther) {
    const MadeUpDaemon daemon;
    daemon.Publish(Tunnel(R"("status":"CREATING")"));
    RaiseGuard();
    Both("-N first");
    Both("-N second");
    Both("-I INPUT -j first");
    Both("-A first -j second");
    Both("-A second -j RETURN");
    EXPECT_THAT(Faults("IPv4"), IsEmpty()) << "they let nothing pass";
    Filter("iptables", "-I second -p tcp --dport 22 -j ACCEPT");
    EXPECT_THAT(Faults("IPv4"),
                ElementsAre("ahead of the guard a rule may let packets of tun1000 pass: INPUT -j first"));
    Filter("ip6tables", "-I FORWARD -i tun1000 -j TETHRA_RELAY");
    EXPECT_THAT(Faults("IPv6"), IsEmpty());
    OpenPorts({5000});
    EXPECT_THAT(Faults("IPv6"),
                testing::Contains("ahead of the guard a rule may let packets of tun1000 pass: FORWARD -i tun1000 -j "
                                  "TETHRA_RELAY"))
        << "it would open the port on every host behind this one";
}

TEST_F(ArdvrelayctlTunnelRules, NameStrangersInTheChain) {
    const MadeUpDaemon daemon;
    RaiseGuard();
    OpenPorts({5000, 80});
    daemon.Publish(ReadyTunnel());
    Filter("iptables", "-I TETHRA_RELAY -i tun1000 -p udp --dport 53 -j ACCEPT");
    Filter("iptables", "-I TETHRA_RELAY -i tun1000 -p tcp --dport 5000:5009 -j ACCEPT");
    Filter("iptables", "-I TETHRA_RELAY -p udp -j DROP");
    EXPECT_THAT(
        Faults("IPv4"),
        ElementsAre("a rule of TETHRA_RELAY that is not the daemon's may let packets pass: -i tun1000 -p tcp -m "
                    "tcp --dport 5000:5009 -j ACCEPT",
                    "a rule of TETHRA_RELAY that is not the daemon's may let packets pass: -i tun1000 -p udp -m "
                    "udp --dport 53 -j ACCEPT"));
}

TEST_F(ArdvrelayctlTunnelRules, NeedNoGuardWithoutATunnel) {
    const MadeUpDaemon daemon;
    daemon.Publish(R"("state":3)");
    EXPECT_THAT(Rules().out, HasSubstr("IPv6: there is no guard, and no tunnel that needs one\n"));
    EXPECT_EQ(Rules().exitCode, 4);
    RaiseGuard();
    EXPECT_THAT(Rules().out, HasSubstr("IPv4: the guard stands though there is no tunnel, and opens nothing\n"));
    Both("-D INPUT -i tun1000 -j DROP");
    EXPECT_EQ(Rules().exitCode, 4) << "nothing needs it";
    if (RunProgram({"ip", "tuntap", "add", "dev", "tun1000", "mode", "tun"}).exitCode != 0) {
        GTEST_SKIP() << "this machine has no tunnel interfaces";
    }
    EXPECT_EQ(Rules().exitCode, 8) << "an interface that somebody left behind";
}

TEST_F(ArdvrelayctlTunnelRules, AgreeWithTheScriptThatRaisesTheGuardAndTakesItAway) {
    const MadeUpDaemon daemon;
    daemon.Publish(Tunnel(R"("status":"CREATING")"));
    if (RunProgram({"ip", "tuntap", "add", "dev", "tun1000", "mode", "tun"}).exitCode != 0) {
        GTEST_SKIP() << "this machine has no tunnel interfaces";
    }
    ASSERT_EQ(RunProgram({ARDV_OVPNC, "load", "tethraa-tunnel"}).exitCode, 0);
    EXPECT_EQ(Rules().exitCode, 0) << Rules().out;
    OpenPorts({5000, 80});
    daemon.Publish(ReadyTunnel());
    EXPECT_EQ(Rules().exitCode, 0) << Rules().out;
    daemon.Publish(R"("state":3)");
    ASSERT_EQ(RunProgram({ARDV_OVPNC, "unload", "tethraa-tunnel"}).exitCode, 0);
    EXPECT_EQ(Rules().exitCode, 4) << "nothing leads into the chain any more, and its interface is closed: "
                                   << Rules().out;
    ASSERT_EQ(RunProgram({"ip", "tuntap", "del", "dev", "tun1000", "mode", "tun"}).exitCode, 0);
    ASSERT_EQ(RunProgram({ARDV_OVPNC, "unload", "tethraa-tunnel"}).exitCode, 0);
    EXPECT_THAT(Rules().out, HasSubstr("IPv4: there is no guard, and no tunnel that needs one\n"));
}

TEST_F(ArdvrelayctlTunnelRules, TellWhatDiffersFromTheConfiguration) {
    const MadeUpDaemon daemon;
    RaiseGuard();
    OpenPorts({80, 5001, 5005, 7777});
    daemon.Publish(ReadyTunnel(R"([{"id":"dms_https","port":5001},{"id":"http","port":80},{"id":"hos","port":5005},
        {"id":"photo_http","port":7777}])"));
    const auto result = Rules();
    EXPECT_EQ(result.exitCode, 8);
    EXPECT_THAT(result.out, HasSubstr("hos         5005  differs  it is open at port 5005, and should be at 5000; "
                                      "'ardvrelayctl reload' tells the daemon what holds now\n"));
    EXPECT_THAT(result.out, HasSubstr("http        80    open\n"));
    EXPECT_THAT(result.out, HasSubstr("dms_https   5001  differs  it is open at port 5001, and should not be: the "
                                      "group file_sharing is denied"));
    EXPECT_THAT(result.out,
                HasSubstr("photo_http  7777  differs  it is open at port 7777, and should not be: it is not "
                          "in the list of services"));
    EXPECT_THAT(result.out, HasSubstr("IPv4: " + std::string(kGood))) << "the filter does what the daemon says";
}

TEST_F(ArdvrelayctlTunnelRules, TellOfAPermittedServiceThatIsNotOpen) {
    const MadeUpDaemon daemon;
    RaiseGuard();
    OpenPorts({80});
    daemon.Publish(ReadyTunnel(R"([{"id":"http","port":80}])"));
    EXPECT_THAT(Rules().out, HasSubstr("hos        5000  differs  it is closed, and should be open; "));
    EXPECT_EQ(Rules().exitCode, 8);
    daemon.Publish(Tunnel(R"("status":"CREATING")"));
    Both("-F TETHRA_RELAY");
    EXPECT_THAT(Rules().out, HasSubstr("hos        5000  closed  the tunnel is not up\n"));
    EXPECT_EQ(Rules().exitCode, 0);
}

TEST_F(ArdvrelayctlTunnelRules, FollowTheSwitchesAndTheList) {
    const MadeUpDaemon daemon;
    daemon.Publish(Tunnel(R"("status":"FAILED")"));
    WriteText(kConfigFile, R"({"support_channel":{"enabled":true},"service":[{"id":"hos"},{"id":"support_dms_https"},
        {"id":"support_ssh"},{"id":"own","port":7},{"id":"support_telnet"}]})");
    const auto supported = Rules().out;
    EXPECT_THAT(supported, HasSubstr("hos                5000  closed  the service is switched off: "));
    EXPECT_THAT(supported, HasSubstr("support_dms_https  5001  closed  the tunnel is not up\n"))
        << "support is let in whatever the owner denies";
    EXPECT_THAT(supported, HasSubstr("support_ssh        22    closed  it is switched off: supportssh is not \"yes\""));
    WriteText(kConfigFile, R"({"tethra":{"enabled":true},"service":[{"id":"own","port":7},{"id":"support_hos"},
        {"id":"hos","port":99999},{"id":"hos_https"},{"id":"https"}]})");
    const auto ordinary = Rules().out;
    EXPECT_THAT(ordinary,
                HasSubstr("own          7      closed  it is none of the services that the relay can carry\n"));
    EXPECT_THAT(ordinary, HasSubstr("support_hos  5000   closed  the support channel is switched off: "));
    EXPECT_THAT(ordinary, HasSubstr("hos          99999  closed  the list has no usable port for it\n"));
    EXPECT_THAT(ordinary, HasSubstr("https        -      closed  this device has no port for it\n"));
    WriteText(kConfigFile, R"({"service":7})");
    EXPECT_THAT(Rules().out, StartsWith("no service is listed\n"));
    WriteText(kConfigFile, "{ damaged");
    EXPECT_EQ(Rules().exitCode, 78);
}

TEST_F(ArdvrelayctlTunnelRules, AreNotCheckedInTheFilterBySomebodyWhoIsNotRoot) {
    if (RunAsSomebody({"--version"}).exitCode != 0) {
        GTEST_SKIP() << "this machine lets no other user run the tool";
    }
    const MadeUpDaemon daemon;
    daemon.Publish(ReadyTunnel());
    const auto result = RunAsSomebody({"tunnel", "rules"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_THAT(result.out, HasSubstr("http       80    open\n"));
    EXPECT_THAT(result.out, HasSubstr("IPv4: not checked: needs root\nIPv6: not checked: needs root\n"));
    EXPECT_EQ(RunAsSomebody({"tunnel", "status"}).exitCode, 0);
}

/** The same, with programs in the place of the packet filter's. */
class ArdvrelayctlTunnelPrograms : public ArdvrelayctlTunnel {
protected:
    static void Replace(const char* program, const std::string& script) {
        InstallScript(program, "#!/bin/bash\n" + script);
    }

    static void ReplaceBoth(const std::string& script) {
        Replace("/sbin/iptables", script);
        Replace("/sbin/ip6tables", script);
    }
};

TEST_F(ArdvrelayctlTunnelPrograms, ThatAreMissingOrFailLeaveTheFilterUnchecked) {
    const MadeUpDaemon daemon;
    daemon.Publish(ReadyTunnel());
    std::filesystem::remove("/sbin/iptables");
    std::filesystem::remove("/sbin/ip6tables");
    const auto missing = Rules();
    EXPECT_EQ(missing.exitCode, 69);
    EXPECT_THAT(missing.out, HasSubstr("IPv6: not checked: there is no /sbin/ip6tables\n"));
    EXPECT_EQ(missing.err, "ardvrelayctl: the packet filter could not be checked\n");
    for (const char* script : {"exit 1", "echo -N TETHRA_RELAY; kill -9 $$", "yes '-P INPUT ACCEPT'"}) {
        ReplaceBoth(script);
        const auto result = Rules();
        EXPECT_EQ(result.exitCode, 69) << script;
        EXPECT_THAT(result.out, HasSubstr("IPv4: not checked: /sbin/iptables does not list its rules\n")) << script;
    }
    daemon.Publish(R"("state":3)");
    EXPECT_EQ(Rules().exitCode, 4) << "no guard is needed then";
}

// The first look at the filter comes at the moment at which the tunnel gets up.
TEST_F(ArdvrelayctlTunnelPrograms, AreAskedAgainBeforeTheDaemonIsBlamed) {
    const MadeUpDaemon daemon;
    daemon.Publish(ReadyTunnel());
    std::filesystem::rename(kDaemonStatusFile, "/tmp/next");
    daemon.Publish(Tunnel(R"("status":"CREATING")"));
    ReplaceBoth(
        "mv /tmp/next /tmp/.ardvrelayd.status 2>/dev/null\n"
        "[ \"$0\" = /sbin/iptables ] && icmp=icmp || icmp=ipv6-icmp\n"
        "echo '-A INPUT -i tun1000 -j TETHRA_RELAY'\necho '-A INPUT -i tun1000 -j DROP'\n"
        "echo '-A FORWARD -i tun1000 -j DROP'\n"
        "for port in 5000 80; do echo \"-A TETHRA_RELAY -i tun1000 -p tcp -m tcp --dport $port -j ACCEPT\"; done\n"
        "echo \"-A TETHRA_RELAY -i tun1000 -p $icmp -j ACCEPT\"\necho '-A TETHRA_RELAY -i tun1000 -j DROP'\n");
    const auto result = Rules();
    EXPECT_EQ(result.exitCode, 0) << result.out;
    EXPECT_FALSE(std::filesystem::exists("/tmp/next"));
    EXPECT_THAT(result.out, HasSubstr("hos        5000  open\n"));
}

TEST_F(ArdvrelayctlTunnelPrograms, ThatHangAreEnded) {
    const MadeUpDaemon daemon;
    daemon.Publish(ReadyTunnel());
    Replace("/sbin/iptables", "echo $$ >/run/hanging; exec sleep 1000");
    Replace("/sbin/ip6tables", "exit 1");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(Rules().exitCode, 69);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(15));
    const auto process = ReadText("/run/hanging");
    ASSERT_FALSE(process.empty());
    EXPECT_FALSE(std::filesystem::exists("/proc/" + process.substr(0, process.find('\n'))));
}

TEST_F(ArdvrelayctlTunnelPrograms, GetNothingOfTheToolsSurroundings) {
    const MadeUpDaemon daemon;
    daemon.Publish(ReadyTunnel());
    ReplaceBoth("{ echo \"$0 $@\"; env | sort; ls /proc/$$/fd; grep SigIgn /proc/$$/status; wc -c; } > /run/seen 2>&1");
    const auto result = RunProgram(
        {"/bin/sh", "-c", "trap '' PIPE CHLD; SECRET=1 exec \"$0\" tunnel rules 7</etc/passwd", ARDV_RELAYCTL},
        "input");
    EXPECT_EQ(result.exitCode, 8) << "an empty filter is no guard";
    const auto seen = ReadText("/run/seen");
    EXPECT_THAT(seen, StartsWith("/sbin/ip6tables -w 5 -S\nLC_ALL=C\nPATH=/usr/sbin:/usr/bin:/sbin:/bin\n"));
    EXPECT_THAT(seen, Not(HasSubstr("SECRET")));
    EXPECT_THAT(seen, Not(HasSubstr("\n7\n")));
    EXPECT_THAT(seen, testing::EndsWith("\n0\n")) << "no input";
    constexpr const char kIgnored[] = "SigIgn:\t";
    ASSERT_THAT(seen, HasSubstr(kIgnored));
    const auto ignored = std::stoull(seen.substr(seen.find(kIgnored) + sizeof kIgnored - 1), nullptr, 16);
    EXPECT_EQ(ignored & (1ULL << (SIGPIPE - 1U) | 1ULL << (SIGCHLD - 1U)), 0U);
}

TEST_F(ArdvrelayctlTunnelPrograms, ArePrintedFitForATerminalWhateverTheyPrint) {
    const MadeUpDaemon daemon;
    daemon.Publish(ReadyTunnel("[]"));
    ReplaceBoth(
        R"(printf -- '-A\n-A INPUT\n-A INPUT -j\n-P\n-A INPUT "un\\"closed\n-A INPUT -j ACCEPT \033[2J\n\0\377-A x -j y\n-A INPUT -i')");
    const auto result = Rules();
    EXPECT_EQ(result.exitCode, 8);
    EXPECT_THAT(result.out, HasSubstr("pass: INPUT -j ACCEPT ?[2J\n"));
    std::string many;
    ReplaceBoth("for i in {1..20000}; do echo \"-A TETHRA_RELAY -j ACCEPT\"; done");
    EXPECT_EQ(RunJson({"tunnel", "rules"})["filter"][0]["faults"].size(), 20U) << "which are enough";
}

}  // namespace
}  // namespace ardv::test
