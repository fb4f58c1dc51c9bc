// SPDX-License-Identifier: Apache-2.0
#include <csignal>
#include <ctime>

#include "ardvrelayctl_tunnel.h"

namespace ardv::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

TEST_F(ArdvrelayctlTunnel, IsShownWithAllThatTheDaemonSaysOfIt) {
    const MadeUpDaemon daemon;
    daemon.Publish(ReadyTunnel());
    const auto result = Status();
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_THAT(result.out, StartsWith("status: READY\nmeaning: the tunnel is up\nrelay: 198.51.100.7\n"
                                       "candidate: udp 198.51.100.7 port 1194\npeer: 10.8.0.1\nlocal: 10.8.0.2\n"
                                       "local_ipv6: fd78::2\nsince: 1970-01-02 "));
    EXPECT_THAT(result.out, HasSubstr(" d ago)\nopenvpn: 1\nopen: hos 5000, http 80\n"));
    const auto report = RunJson({"tunnel", "status"});
    EXPECT_EQ(report["ordered"], true);
    EXPECT_EQ(report["meaning"], "the tunnel is up");
    EXPECT_EQ(report["tunnel"], JsonOf("{" + ReadyTunnel() + "}")["tunnel"]);
    EXPECT_FALSE(report.isMember("exit_code"));
}

TEST_F(ArdvrelayctlTunnel, IsShownWithWhatWentWrongAndWhatComesNext) {
    const MadeUpDaemon daemon;
    const auto inAWhile = std::to_string(std::time(nullptr) + 90);
    daemon.Publish(Tunnel(R"("status":"FAILED","relay_ip":"198.51.100.7","pid":2147483647,"open":[],
        "error":"no answer","retry_at":)" +
                          inAWhile));
    const auto result = Status();
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.out, StartsWith("status: FAILED\nmeaning: no candidate has led to the relay\n"));
    EXPECT_THAT(result.out, HasSubstr("last_error: no answer\nnext_try: 20"));
    EXPECT_THAT(result.out, HasSubstr(" (in 1 min)\nopenvpn: 2147483647, which is gone\nopen: (none)\n"));
    EXPECT_THAT(result.out, Not(HasSubstr("candidate: ")));
    daemon.Publish(Tunnel(R"("status":"NONE","retry_at":1)"));
    EXPECT_THAT(Status().out, HasSubstr("next_try: 1970-01-01 "));
    EXPECT_THAT(Status().out, HasSubstr(" (now)\n"));
}

struct Word {
    const char* status;
    const char* meaning;
};

class ArdvrelayctlTunnelWord : public ArdvrelayctlTunnel, public testing::WithParamInterface<Word> {};

TEST_P(ArdvrelayctlTunnelWord, HasASentence) {
    const MadeUpDaemon daemon;
    daemon.Publish(Tunnel(std::string(R"("status":")") + GetParam().status + '"'));
    EXPECT_THAT(Status().out, HasSubstr(std::string("meaning: ") + GetParam().meaning + "\n"));
    EXPECT_EQ(Status().exitCode, 0);
}

INSTANTIATE_TEST_SUITE_P(EachStatus, ArdvrelayctlTunnelWord,
                         testing::Values(Word{"NONE", "there is no tunnel yet"}, Word{"READY", "the tunnel is up"},
                                         Word{"CLOSE", "the tunnel was up, and has ended"},
                                         Word{"FAILED", "no candidate has led to the relay"},
                                         Word{"INVALID_CONF", "what the service says of its relay cannot be used"},
                                         Word{"CREATING", "the tunnel is being set up"},
                                         Word{"ready", "a status that this tool does not know"}),
                         [](const auto& each) { return std::string(each.param.status); });

TEST_F(ArdvrelayctlTunnel, IsNotThereWhereTheServiceHasOrderedNone) {
    const MadeUpDaemon daemon;
    for (const char* members : {R"("state":3)", R"("state":3,"tunnel":null)"}) {
        daemon.Publish(members);
        const auto result = Status();
        EXPECT_EQ(result.exitCode, 4);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, "ardvrelayctl: the service has not asked for a tunnel\n");
        EXPECT_EQ(RunJson({"tunnel", "status"}), JsonOf(R"({"running":true,"ordered":false,"exit_code":4,
            "error":"the service has not asked for a tunnel"})"));
        EXPECT_EQ(Rules().exitCode, 4);
        EXPECT_THAT(Rules().out, HasSubstr("hos        5000  closed  the service has not asked for a tunnel\n"));
    }
}

TEST_F(ArdvrelayctlTunnel, IsNotToldOfADaemonThatDoesNotRun) {
    EXPECT_EQ(Status().exitCode, 5);
    EXPECT_EQ(Status().err, "ardvrelayctl: the daemon does not run\n");
    EXPECT_EQ(Rules().exitCode, 5);
    EXPECT_THAT(Rules().out, HasSubstr("hos        5000  closed  the daemon does not run\n"));
    const MadeUpDaemon daemon;
    daemon.Publish(ReadyTunnel());
    daemon.Die();
    EXPECT_EQ(Status().exitCode, 5);
    EXPECT_EQ(Status().out, "") << "what a dead daemon said of its tunnel says nothing";
    WriteText(kDaemonStatusFile, "{ damaged");
    EXPECT_EQ(Status().exitCode, 6);
    EXPECT_EQ(Rules().exitCode, 6);
}

TEST_F(ArdvrelayctlTunnel, CannotBeShownWithoutAStatus) {
    const MadeUpDaemon daemon;
    for (const char* tunnel : {"7", "[]", "{}", "\"READY\"", "true", R"({"status":1})", R"({"status":""})",
                               R"({"status":["READY"]})", R"([{"status":"READY"}])"}) {
        daemon.Publish(std::string(R"("state":3,"tunnel":)") + tunnel);
        EXPECT_EQ(Status().exitCode, 6) << tunnel;
        EXPECT_EQ(Status().err, "ardvrelayctl: what the daemon's status file says of the tunnel cannot be used\n");
        EXPECT_EQ(Rules().exitCode, 6) << tunnel;
        EXPECT_THAT(Run({"status"}).out, HasSubstr("\ntunnel: what the daemon says of it cannot be used\n"));
        EXPECT_EQ(Run({"status"}).exitCode, 0);
    }
}

// Each member in turn is something else.
TEST_F(ArdvrelayctlTunnel, IsShownWithoutMembersOfOtherTypes) {
    const MadeUpDaemon daemon;
    for (const char* name :
         {"pid", "relay_ip", "candidate", "peer_ip", "local_ip", "local_ip6", "since", "error", "retry_at", "open"}) {
        for (const char* value : {"null", "true", "[[]]", "{\"a\":{}}", "1e300", "-1.5", "[1,{},{\"port\":\"5\"}]",
                                  "18446744073709551615", "\"\""}) {
            daemon.Publish(Tunnel(std::string(R"("status":"READY",")") + name + "\":" + value));
            const auto result = Status();
            EXPECT_EQ(result.exitCode, 0) << name << ' ' << value;
            EXPECT_EQ(result.out, "status: READY\nmeaning: the tunnel is up\nopen: (none)\n") << name << ' ' << value;
        }
    }
}

TEST_F(ArdvrelayctlTunnel, PassesOverPortsThatAreNone) {
    const MadeUpDaemon daemon;
    daemon.Publish(ReadyTunnel(R"([{"id":"a","port":0},{"id":"b","port":65536},{"id":"c","port":-1},{"id":"d"},
        {"id":"e","port":"80"},{"id":"f","port":65535},{"port":1},{"id":"g","port":80.5}])"));
    EXPECT_THAT(Status().out, HasSubstr("open: f 65535,  1\n"));
}

TEST_F(ArdvrelayctlTunnel, HasNothingOpenUnlessItIsUp) {
    const MadeUpDaemon daemon;
    for (const char* status : {"NONE", "CREATING", "CLOSE", "FAILED", "INVALID_CONF"}) {
        daemon.Publish(Tunnel(std::string(R"("status":")") + status + R"(","open":[{"id":"hos","port":5000}])"));
        EXPECT_THAT(Status().out, HasSubstr("open: (none)\n")) << status;
    }
}

TEST_F(ArdvrelayctlTunnel, IsOpenForAServiceThatOneOfItsPackagesProvides) {
    const MadeUpDaemon daemon;
    daemon.Publish(Tunnel(R"("status":"FAILED")"));
    WriteText(kPermissionFile, R"([{"id":"filara","enabled":true}])");
    WriteText(kConfigFile, R"({"tethra":{"enabled":true},"service":[{"id":"filara","port":6690}]})");
    EXPECT_THAT(Rules().out, HasSubstr("filara  6690  closed  the package Filara is not installed or not enabled\n"));
    InstallPackage("Drivara");
    EXPECT_THAT(Rules().out, HasSubstr("filara  6690  closed  the tunnel is not up\n"));
}

TEST_F(ArdvrelayctlTunnel, IsShownFitForATerminal) {
    const MadeUpDaemon daemon;
    daemon.Publish(Tunnel(R"("status":"\u001b[2JREADY","relay_ip":"a\nb","error":"\u202e\u0000x","local_ip":"\ttab",
        "candidate":{"protocol":"\u0007","host":"\u009b","port":"\r"}")"));
    daemon.Publish(Tunnel(R"("status":"\u001b[2JREADY","relay_ip":"a\nb","error":"\u202e\u0000x","local_ip":"\ttab",
        "candidate":{"protocol":"\u0007","host":"\u009b","port":"\r"})"));
    EXPECT_EQ(Status().out,
              "status: ?[2JREADY\nmeaning: a status that this tool does not know\nrelay: a?b\ncandidate: ? ? port ?\n"
              "local: ?tab\nlast_error: ??x\nopen: (none)\n");
    EXPECT_THAT(Run({"status"}).out, HasSubstr("\ntunnel: ?[2JREADY, relay a?b, ??x\n"));
    EXPECT_EQ(RunJson({"tunnel", "status"})["tunnel"]["relay_ip"], "a\nb");
    std::string many = "[";
    for (int i = 1; i <= 3000; ++i) {
        many += (i > 1 ? "," : "") + std::string(R"({"id":"\u001b","port":)") + std::to_string(i) + "}";
    }
    daemon.Publish(ReadyTunnel(many + "]"));
    EXPECT_THAT(Status().out, AllOf(HasSubstr("? 50, ... (--json shows all)\n"), Not(HasSubstr("? 51"))));
    EXPECT_EQ(RunJson({"tunnel", "status"})["tunnel"]["open"].size(), 1000U) << "which is more than there are services";
}

TEST_F(ArdvrelayctlTunnel, IsALineOfTheStatusWhereItIsOrdered) {
    const MadeUpDaemon daemon;
    daemon.Publish(R"("state":3)");
    EXPECT_THAT(Run({"status"}).out, Not(HasSubstr("tunnel")));
    EXPECT_FALSE(RunJson({"status"}).isMember("tunnel"));
    daemon.Publish(ReadyTunnel());
    EXPECT_THAT(Run({"status"}).out, HasSubstr("services: (none)\ntunnel: READY, relay 198.51.100.7\n"));
    EXPECT_EQ(RunJson({"status"})["tunnel"], JsonOf("{" + ReadyTunnel() + "}")["tunnel"]);
    daemon.Publish(Tunnel(R"("status":"FAILED","relay_ip":"198.51.100.7","error":"no answer")"));
    EXPECT_THAT(Run({"status"}).out, HasSubstr("\ntunnel: FAILED, relay 198.51.100.7, no answer\n"));
}

TEST_F(ArdvrelayctlTunnel, IsFollowedByTheWatchOfTheStatus) {
    const MadeUpDaemon daemon;
    daemon.Publish(R"("state":3)");
    auto tool = Start({"status", "--watch"});
    tool.ReadUpTo("services: (none)\n");
    daemon.Publish(Tunnel(R"("status":"CREATING","relay_ip":"198.51.100.7")"));
    tool.ReadUpTo("tunnel: CREATING, relay 198.51.100.7\n");
    daemon.Publish(ReadyTunnel());
    tool.ReadUpTo("tunnel: READY, relay 198.51.100.7\n");
    tool.Signal(SIGINT);
    EXPECT_EQ(tool.Wait(), 128 + SIGINT);
}

}  // namespace
}  // namespace ardv::test
