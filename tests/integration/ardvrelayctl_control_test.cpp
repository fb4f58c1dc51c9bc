// SPDX-License-Identifier: Apache-2.0
#include <csignal>

#include "ardvrelayctl_daemon.h"

namespace ardv::test {
namespace {

using testing::HasSubstr;

class ArdvrelayctlControl : public ArdvrelayctlDaemon {};

TEST_F(ArdvrelayctlControl, HasTheDaemonReadItsConfigurationAgain) {
    MadeUpDaemon daemon;
    const auto result = Run({"reload"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out, "the daemon reads its configuration again\n");
    EXPECT_EQ(daemon.NextSignal(), SIGHUP);
    EXPECT_EQ(RunJson({"reload"})["pid"], daemon.Pid());
    EXPECT_EQ(daemon.NextSignal(), SIGHUP);
}

TEST_F(ArdvrelayctlControl, DoesNotHaveTheDaemonReadAConfigurationThatCannotBeUsed) {
    const MadeUpDaemon daemon;
    for (const char* text : {"{ damaged", R"({"server_control":{"port":-1}})"}) {
        WriteText(kConfigFile, text);
        const auto result = Run({"reload"});
        EXPECT_EQ(result.exitCode, 78) << text;
        EXPECT_THAT(result.err, HasSubstr("; the daemon was not told, and keeps what it has\n"));
        EXPECT_EQ(ReadText(kConfigFile), text);
    }
    std::filesystem::remove(kConfigFile);
    EXPECT_EQ(RunJson({"reload"})["exit_code"], 78);
    EXPECT_EQ(daemon.SignalsLeft(), 0);
}

TEST_F(ArdvrelayctlControl, TakesADeadProcessForNoOtherProgram) {
    const MadeUpDaemon daemon;
    daemon.Die();
    EXPECT_THAT(Run({"reload"}).err, HasSubstr(", is gone\n")) << "although its parent has not taken notice";
    EXPECT_THAT(Run({"doctor"}).out, HasSubstr(", which is gone\n"));
}

TEST_F(ArdvrelayctlControl, EndsTheDaemonAndWaitsUntilItIsGone) {
    MadeUpDaemon daemon;
    const auto result = Run({"stop"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out, "the daemon has ended\n");
    EXPECT_EQ(daemon.NextSignal(), SIGTERM);
    EXPECT_EQ(Run({"stop"}).exitCode, 5) << "which has ended already";
}

TEST_F(ArdvrelayctlControl, GivesUpOnADaemonThatDoesNotEnd) {
    MadeUpDaemon daemon({.endsOnTerm = false});
    const auto result = Run({"stop", "--timeout", "1"});
    EXPECT_EQ(result.exitCode, 124);
    EXPECT_THAT(result.err, HasSubstr("still runs (process " + std::to_string(daemon.Pid()) + ")"));
    EXPECT_EQ(daemon.NextSignal(), SIGTERM);
    EXPECT_EQ(daemon.SignalsLeft(), 0);
}

TEST_F(ArdvrelayctlControl, HasTheDaemonMapTheAliasAnew) {
    MadeUpDaemon daemon;
    daemon.Publish(R"("state":3)");
    const auto result = Run({"alias", "update"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(daemon.NextSignal(), SIGRTMIN + 1);
    WriteText(kDaemonStatusFile, "{}");
    EXPECT_EQ(Run({"alias", "update"}).exitCode, 6);
    std::filesystem::remove(kDaemonStatusFile);
    EXPECT_EQ(Run({"alias", "update"}).exitCode, 5);
    EXPECT_EQ(daemon.SignalsLeft(), 0);
}

TEST_F(ArdvrelayctlControl, DoesNotMapAnAliasThatIsNotSet) {
    WriteText(kConfigFile, "{}");
    const MadeUpDaemon daemon;
    daemon.Publish(R"("state":3)");
    EXPECT_EQ(Run({"alias", "update"}).exitCode, 4);
    EXPECT_EQ(daemon.SignalsLeft(), 0);
}

TEST_F(ArdvrelayctlControl, PromisesOnlyAnAliasThatTheDaemonMaps) {
    MadeUpDaemon daemon;
    daemon.Publish(R"("state":7,"serverID":"box-1")");
    const auto off = Run({"alias", "update"});
    EXPECT_EQ(off.exitCode, 3);
    EXPECT_EQ(off.err, "ardvrelayctl: the daemon keeps no alias: the service is switched off\n");
    EXPECT_EQ(daemon.SignalsLeft(), 0);
    daemon.Publish(R"("state":2)");
    EXPECT_THAT(Run({"alias", "update"}).out, HasSubstr("once the service has given the device an identifier"));
    EXPECT_EQ(daemon.NextSignal(), SIGRTMIN + 1);
}

TEST_F(ArdvrelayctlControl, SaysThatNoDaemonRuns) {
    for (const char* text : {"", "0\n", "-1\n", "x", "999999999\n"}) {
        WriteText(kDaemonPidFile, text);
        for (const char* command : {"reload", "stop"}) {
            const auto result = Run({command});
            EXPECT_EQ(result.exitCode, 5) << text;
            EXPECT_THAT(result.err, HasSubstr("ardvrelayctl: the daemon does not run: "));
            EXPECT_EQ(RunJson({command})["exit_code"], 5);
        }
    }
}

TEST_F(ArdvrelayctlControl, LeavesAnotherProgramAlone) {
    const MadeUpDaemon stranger({.name = "stranger"});
    stranger.Publish(R"("state":3)");
    for (const auto& arguments : std::vector<std::vector<std::string>>{{"reload"}, {"stop"}, {"alias", "update"}}) {
        const auto result = Run(arguments);
        EXPECT_EQ(result.exitCode, 5) << arguments[0];
        EXPECT_THAT(result.err, HasSubstr("another program"));
    }
    EXPECT_EQ(stranger.SignalsLeft(), 0);
}

TEST_F(ArdvrelayctlControl, FindsADaemonWithAnotherPidFile) {
    MadeUpDaemon daemon({.pidFile = "/run/other/daemon.pid"});
    EXPECT_EQ(Run({"reload"}).exitCode, 5);
    EXPECT_EQ(Run({"--pid-file", "/run/other/daemon.pid", "reload"}).exitCode, 0);
    EXPECT_EQ(daemon.NextSignal(), SIGHUP);
    EXPECT_EQ(Run({"--pid-file", "daemon.pid", "reload"}).exitCode, 64);
    EXPECT_EQ(Run({"--pid-file", "", "reload"}).exitCode, 64);
}

TEST_F(ArdvrelayctlControl, SwitchesTheDebugLogOnAndOff) {
    MadeUpDaemon daemon;
    const auto on = Run({"log", "start", "/var/log/debug.log"});
    EXPECT_EQ(on.exitCode, 0) << on.err;
    EXPECT_EQ(on.out, "the log goes to /var/log/debug.log, up to level 7\n");
    EXPECT_EQ(JsonOf(ReadText(kConfigFile))["log_level"], 7);
    EXPECT_EQ(daemon.NextSignal(), SIGHUP);
    const auto off = Run({"log", "stop"});
    EXPECT_EQ(off.out, "the log goes to /var/log/ardvrelayd.log, up to level 4\n");
    EXPECT_EQ(JsonOf(ReadText(kConfigFile)), JsonOf(R"({"tethra":{"enabled":true},"server_alias":{"alias":"attic"}})"));
    EXPECT_EQ(daemon.NextSignal(), SIGHUP);
}

TEST_F(ArdvrelayctlControl, KeepsTheLogsSettingsForADaemonThatIsStartedLater) {
    const auto result = Run({"log", "start", "debug.log"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.out, HasSubstr("/debug.log, up to level 7, once the daemon runs\n"));
    EXPECT_EQ(JsonOf(ReadText(kConfigFile))["log_file"].asString().front(), '/') << "whatever the daemon's folder is";
    EXPECT_EQ(RunJson({"log", "stop"}), JsonOf(R"({"file":"/var/log/ardvrelayd.log","level":4,"running":false})"));
    EXPECT_EQ(Run({"log", "stop"}).out,
              "the log goes to /var/log/ardvrelayd.log, up to level 4, once the daemon runs\n");
}

TEST_F(ArdvrelayctlControl, DoesNotSendTheLogWhereNoneCanBeWritten) {
    const auto before = ReadText(kConfigFile);
    for (const char* file : {"/none/debug.log", "/tmp", "/var/log/"}) {
        const auto result = Run({"log", "start", file});
        EXPECT_EQ(result.exitCode, 73) << file;
        EXPECT_EQ(result.out, "");
    }
    EXPECT_EQ(ReadText(kConfigFile), before);
}

TEST_F(ArdvrelayctlControl, LeavesADamagedConfigurationAsItIs) {
    WriteText(kConfigFile, "{ damaged");
    for (const auto& arguments : std::vector<std::vector<std::string>>{
             {"log", "start", "/tmp/x"}, {"log", "stop"}, {"server-id"}, {"portal-domain"}}) {
        EXPECT_EQ(Run(arguments).exitCode, 78) << arguments[0];
        EXPECT_EQ(Run({"--config", "/etc/other.conf", arguments[0], arguments.back()}).exitCode, 64) << arguments[0];
    }
    EXPECT_EQ(ReadText(kConfigFile), "{ damaged");
    std::filesystem::remove(kConfigFile);
    EXPECT_EQ(Run({"log", "stop"}).exitCode, 78);
    EXPECT_FALSE(std::filesystem::exists(kConfigFile));
}

TEST_F(ArdvrelayctlControl, ShowsTheServerIdentifier) {
    EXPECT_EQ(Run({"server-id"}).exitCode, 4);
    WriteText(kConfigFile, R"({"serverID":"box-1","service":[{"id":"http"}]})");
    EXPECT_EQ(Run({"server-id"}).out, "box-1\n");
    EXPECT_EQ(Run({"server-id", "http"}).out, "box-1\n");
    const auto other = Run({"server-id", "ssh"});
    EXPECT_EQ(other.exitCode, 4);
    EXPECT_EQ(other.out, "");
    EXPECT_EQ(other.err, "ardvrelayctl: the service ssh is not offered through the relay\n");
    const auto report = RunJson({"server-id", "ssh"});
    EXPECT_EQ(report["server_id"], "box-1");
    EXPECT_EQ(report["offered"], false);
    EXPECT_EQ(report["exit_code"], 4);
}

TEST_F(ArdvrelayctlControl, ShowsThePortalDomain) {
    WriteText(kConfigFile, R"({"server_global":{"host":"global.tethra.zz"}})");
    EXPECT_EQ(Run({"portal-domain"}).out, "tethra.zz\n");
    EXPECT_EQ(RunJson({"portal-domain"})["portal_domain"], "tethra.zz");
    WriteText(kConfigFile, R"({"server_global":{"host":"elsewhere.example"}})");
    EXPECT_EQ(Run({"portal-domain"}).exitCode, 78);
}

}  // namespace
}  // namespace ardv::test
