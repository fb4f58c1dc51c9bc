// SPDX-License-Identifier: Apache-2.0
#include <chrono>

#include "ardvrelayctl_daemon.h"

namespace ardv::test {
namespace {

using testing::HasSubstr;

class ArdvrelayctlWait : public ArdvrelayctlDaemon {
protected:
    static ProgramResult Look(const std::string& goal) { return Run({"wait", "--for=" + goal, "--timeout=0"}); }
};

TEST_F(ArdvrelayctlWait, ReturnsAtOnceWhereTheStateIsReached) {
    const MadeUpDaemon daemon;
    for (const int state : {3, 4, 5, 6}) {
        daemon.Publish("\"state\":" + std::to_string(state));
        const auto result = Run({"wait", "--for", "login"});
        EXPECT_EQ(result.exitCode, 0) << state;
        EXPECT_THAT(result.out, HasSubstr("login: state "));
        EXPECT_EQ(Look("tunnel").exitCode, state == 6 ? 0 : 124) << state;
    }
    PublishAlias("attic", "success");
    EXPECT_EQ(Run({"wait", "--for", "alias"}).exitCode, 0);
}

TEST_F(ArdvrelayctlWait, SaysHowTheTunnelIsThatDoesNotCome) {
    const MadeUpDaemon daemon;
    daemon.Publish(R"("state":3,"tunnel":{"status":"FAILED","error":"no candidate can be used"})");
    const auto result = Look("tunnel");
    EXPECT_EQ(result.exitCode, 124);
    EXPECT_THAT(result.err, HasSubstr("last seen: state login"));
    EXPECT_THAT(result.err, HasSubstr(", tunnel FAILED (no candidate can be used)"));
}

TEST_F(ArdvrelayctlWait, GivesUpInTimeAndSaysWhatItLastSaw) {
    const MadeUpDaemon daemon;
    for (const int state : {0, 1, 2, 7, 8, 77}) {
        daemon.Publish("\"state\":" + std::to_string(state));
        EXPECT_EQ(Look("login").exitCode, 124) << state;
    }
    daemon.Publish(R"("state":2,"error":7)");
    const auto start = std::chrono::steady_clock::now();
    const auto result = Run({"wait", "--for", "login", "--timeout", "1"});
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
    EXPECT_EQ(result.exitCode, 124);
    EXPECT_EQ(result.err,
              "ardvrelayctl: gave up waiting for login; last seen: state starting, error err_resolv (the control "
              "server's name does not resolve), alias attic not recorded\n");
    const auto report = RunJson({"wait", "--for", "login", "--timeout", "0"});
    EXPECT_EQ(report["reached"], false);
    EXPECT_EQ(report["state"], "starting");
    EXPECT_EQ(report["exit_code"], 124);
}

TEST_F(ArdvrelayctlWait, ReturnsWhenTheStateIsReached) {
    auto tool = Start({"wait", "--for", "login", "--timeout", "30", "--json"});
    const MadeUpDaemon daemon;
    daemon.Publish(R"("state":2)");
    daemon.Publish(R"("state":3)");
    const auto report = JsonOf(tool.ReadUpTo("\n}\n"));
    EXPECT_EQ(report["reached"], true);
    EXPECT_EQ(report["for"], "login");
    EXPECT_EQ(tool.Wait(), 0);
}

TEST_F(ArdvrelayctlWait, ReturnsWhenTheConfiguredAliasIsMapped) {
    const MadeUpDaemon daemon;
    daemon.Publish(R"("state":2)");
    PublishAlias("cellar", "success");
    auto tool = Start({"wait", "--for", "alias", "--timeout", "30"});
    PublishAlias("attic", "error_network");
    PublishAlias("attic", "success");
    tool.ReadUpTo("alias attic success\n");
    EXPECT_EQ(tool.Wait(), 0);
}

TEST_F(ArdvrelayctlWait, TakesAnAliasThatNoDaemonKeepsForNone) {
    PublishAlias("attic", "success");
    EXPECT_EQ(Look("alias").exitCode, 124) << "what a daemon that is gone has left";
    const MadeUpDaemon daemon;
    daemon.Publish(R"("state":7)");
    EXPECT_EQ(Look("alias").exitCode, 124);
    daemon.Publish(R"("state":2,"error":6)");
    EXPECT_EQ(Look("alias").exitCode, 0) << "which the control server's failure is nothing to";
}

TEST_F(ArdvrelayctlWait, DoesNotWaitForAnAliasThatIsNotSet) {
    WriteText(kConfigFile, "{}");
    const auto result = Run({"wait", "--for", "alias"});
    EXPECT_EQ(result.exitCode, 4);
    EXPECT_THAT(result.err, HasSubstr("there is no alias to wait for"));
    WriteText(kConfigFile, "{ damaged");
    EXPECT_EQ(Run({"wait", "--for", "alias"}).exitCode, 78);
}

TEST_F(ArdvrelayctlWait, OutlivesADaemonThatDies) {
    const MadeUpDaemon first;
    first.Publish(R"("state":2)");
    auto tool = Start({"wait", "--for", "login", "--timeout", "30"});
    first.Die();
    const MadeUpDaemon second;
    second.Publish(R"("state":3)");
    tool.ReadUpTo("login: state login");
    EXPECT_EQ(tool.Wait(), 0);
}

TEST_F(ArdvrelayctlWait, TakesOnlyWhatCanBeWaitedFor) {
    for (const auto& arguments : std::vector<std::vector<std::string>>{{"wait"},
                                                                       {"wait", "--for", "sun"},
                                                                       {"wait", "--for", "login", "--timeout", "-1"},
                                                                       {"wait", "--for", "login", "--timeout", "86401"},
                                                                       {"wait", "--for", "login", "--timeout", "x"}}) {
        EXPECT_EQ(Run(arguments).exitCode, 64);
    }
}

}  // namespace
}  // namespace ardv::test
