// SPDX-License-Identifier: Apache-2.0
#include <csignal>

#include "ardvrelayctl_daemon.h"

namespace ardv::test {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr const char kReport[] = R"({"version":"7.0.0","timers":[{"name":"keep_alive","left_ms":12},{"name":"alias"}],)"
                                 R"("session":{"state":"login","servers":["a","b"]},"odd":"\u001b[2J"})";

class ArdvrelayctlReport : public ArdvrelayctlDaemon {
protected:
    static bool IsReportFileLeft(const MadeUpDaemon& daemon) {
        return std::filesystem::exists("/tmp/.ardvrelayd." + std::to_string(daemon.Pid()) + ".debug");
    }
};

TEST_F(ArdvrelayctlReport, ComesAsTheDaemonWroteIt) {
    const MadeUpDaemon daemon({.report = kReport});
    EXPECT_EQ(RunJson({"report"}), JsonOf(kReport));
    EXPECT_FALSE(IsReportFileLeft(daemon));
}

TEST_F(ArdvrelayctlReport, IsShownInSections) {
    const MadeUpDaemon daemon({.report = kReport});
    const auto result = Run({"report"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out,
              "odd: ?[2J\nversion: 7.0.0\n\n[session]\nservers[0]: a\nservers[1]: b\nstate: login\n\n[timers]\n"
              "left_ms  name\n12       keep_alive\n-        alias\n");
}

TEST_F(ArdvrelayctlReport, IsAwaitedFromADaemonThatThinks) {
    const MadeUpDaemon daemon({.report = kReport, .thinks = std::chrono::milliseconds(300)});
    const auto result = Run({"report"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_THAT(result.out, HasSubstr("version: 7.0.0\n"));
    EXPECT_FALSE(IsReportFileLeft(daemon));
}

TEST_F(ArdvrelayctlReport, IsGivenToTwoWhoAskAtTheSameTime) {
    const MadeUpDaemon daemon({.report = kReport, .thinks = std::chrono::milliseconds(100)});
    auto one = Start({"report", "--json"});
    auto other = Start({"report", "--json"});
    EXPECT_EQ(one.Wait(), 0);
    EXPECT_EQ(other.Wait(), 0);
}

void ExpectFindings(const ProgramResult& result, const std::string& process) {
    EXPECT_EQ(result.exitCode, 7);
    EXPECT_THAT(result.err, HasSubstr("ardvrelayctl: the daemon does not answer\n"));
    EXPECT_THAT(result.out, HasSubstr("pid file: /var/run/ardvrelayd.pid names process "));
    EXPECT_THAT(result.out, HasSubstr("(ardvrelayd) is " + process));
    EXPECT_THAT(result.out, HasSubstr("status file: /tmp/.ardvrelayd.status, written "));
    EXPECT_THAT(result.out, HasSubstr("status: state login"));
}

TEST_F(ArdvrelayctlReport, IsReplacedByWhatIsFoundOfADaemonThatHangs) {
    WriteText("/var/log/ardvrelayd.log", "first\nlast \x1b words\n");
    const MadeUpDaemon silent({.report = ""});
    silent.Publish(R"("state":3)");
    const auto result = Run({"report"});
    ExpectFindings(result, "sleeping");
    EXPECT_THAT(result.out, HasSubstr("  first\n  last ? words\n"));
    EXPECT_FALSE(IsReportFileLeft(silent));
    const auto report = RunJson({"report"});
    EXPECT_EQ(report["exit_code"], 7);
    EXPECT_EQ(report["log"].size(), 2U);
}

TEST_F(ArdvrelayctlReport, IsReplacedByWhatIsFoundOfADaemonThatIsStopped) {
    const MadeUpDaemon daemon;
    daemon.Publish(R"("state":3)");
    kill(daemon.Pid(), SIGSTOP);
    ExpectFindings(Run({"report"}), "stopped by a signal");
}

TEST_F(ArdvrelayctlReport, IsReplacedByWhatIsFoundOfADaemonThatTalksNonsense) {
    const MadeUpDaemon daemon({.report = "{ nonsense"});
    daemon.Publish(R"("state":3)");
    ExpectFindings(Run({"report"}), "sleeping");
}

TEST_F(ArdvrelayctlReport, IsReplacedByWhatIsFoundOfADeadDaemon) {
    {
        const MadeUpDaemon daemon;
        daemon.Publish(R"("state":3)");
    }
    const auto result = Run({"report"});
    EXPECT_EQ(result.exitCode, 5);
    EXPECT_THAT(result.out, HasSubstr(" does not exist\n"));
    EXPECT_THAT(result.out, HasSubstr("status: the daemon does not run"));
    EXPECT_EQ(RunJson({"report"})["exit_code"], 5);
    std::filesystem::remove(kDaemonPidFile);
    EXPECT_THAT(Run({"report"}).out, HasSubstr("pid file: /var/run/ardvrelayd.pid names no process\n"));
}

TEST_F(ArdvrelayctlReport, IsNotAskedOfAnotherProgram) {
    const MadeUpDaemon stranger({.name = "stranger"});
    const auto result = Run({"report"});
    EXPECT_EQ(result.exitCode, 5);
    EXPECT_THAT(result.out, HasSubstr("(stranger) is sleeping"));
    EXPECT_EQ(stranger.SignalsLeft(), 0);
}

TEST_F(ArdvrelayctlReport, ShowsOnlyTheEndOfALog) {
    std::string log;
    for (int i = 0; i < 2000; ++i) {
        log += "line " + std::to_string(i) + "\n";
    }
    WriteText("/var/log/ardvrelayd.log", log);
    const auto result = Run({"report"});
    EXPECT_THAT(result.out, HasSubstr("  line 1990\n"));
    EXPECT_THAT(result.out, Not(HasSubstr("  line 1989\n")));
    EXPECT_THAT(result.out, HasSubstr("  line 1999\n"));
    const std::string longLine(5000, 'x');
    WriteText("/var/log/ardvrelayd.log", longLine + "\n" + longLine + "\nlast\n");
    const auto lines = RunJson({"report"})["log"];
    EXPECT_EQ(lines.size(), 2U) << "whole ones alone";
    EXPECT_EQ(lines[0], longLine);
}

}  // namespace
}  // namespace ardv::test
