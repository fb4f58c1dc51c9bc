// SPDX-License-Identifier: Apache-2.0
#include <csignal>
#include <ctime>

#include <relay/daemon/daemon.h>

#include "ardvrelayctl_daemon.h"

namespace ardv::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr const char kLoggedIn[] = R"("serverID":"box-1","state":3,"error":0,"service":[{"id":"hos"},{"id":"http"}])";

/** What the library prints of the status. */
std::string PrintedByLibrary() {
    testing::internal::CaptureStdout();
    ARDV::Relay::Daemon::Status(false);
    return testing::internal::GetCapturedStdout();
}

class ArdvrelayctlStatus : public ArdvrelayctlDaemon {};

TEST_F(ArdvrelayctlStatus, SaysThatNoDaemonRuns) {
    const auto result = Run({"status"});
    EXPECT_EQ(result.exitCode, 5);
    EXPECT_EQ(result.err, "");
    EXPECT_THAT(result.out, StartsWith("serverID: \nstate: not_running\nalias: attic\nalias_status: \nadvice: "));
    EXPECT_THAT(result.out, HasSubstr("ardvrelayctl doctor"));
    const auto report = RunJson({"status"});
    EXPECT_EQ(report["running"], false);
    EXPECT_EQ(report["state"], "not_running");
    EXPECT_EQ(report["exit_code"], 5);
    EXPECT_FALSE(report.isMember("pid"));
}

TEST_F(ArdvrelayctlStatus, ShowsWhatADaemonPublishes) {
    const MadeUpDaemon daemon;
    daemon.Publish(std::string(kLoggedIn) + R"(,"version":"7.0.0","since":86400,"next":"keep_alive in 3600 s")");
    PublishAlias("attic", "success");
    const auto result = Run({"status"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_THAT(result.out,
                StartsWith("serverID: box-1\nstate: login\nalias: attic\nalias_status: success\nsince: 1970-01-02 "));
    EXPECT_THAT(result.out, HasSubstr(" d ago)\nservices: hos, http\nversion: 7.0.0\nnext: keep_alive in 3600 s\n"));
    EXPECT_THAT(result.out, Not(HasSubstr("advice")));
}

struct StatusFile {
    const char* name;
    std::string members;
};

class ArdvrelayctlStatusText : public ArdvrelayctlStatus, public testing::WithParamInterface<StatusFile> {};

TEST_P(ArdvrelayctlStatusText, BeginsWithWhatTheLibraryPrints) {
    const MadeUpDaemon daemon;
    daemon.Publish(GetParam().members);
    PublishAlias("attic", "error_auth");
    const auto text = PrintedByLibrary();
    EXPECT_THAT(text, HasSubstr("alias_status: error_auth\n"));
    EXPECT_THAT(Run({"status"}).out, StartsWith(text));
}

INSTANTIATE_TEST_SUITE_P(
    EachFile, ArdvrelayctlStatusText,
    testing::Values(StatusFile{"Login", kLoggedIn}, StatusFile{"Nothing", ""},
                    StatusFile{"Error", R"("serverID":"box-1","state":2,"error":8)"},
                    StatusFile{"Refused", R"("state":0,"error":30)"},
                    StatusFile{"OtherTypes", R"("serverID":7,"state":"x","error":[],"service":5,"since":"x")"},
                    StatusFile{"LargeNumbers", R"("state":99999999999,"error":-99999999999,"since":1e300)"},
                    StatusFile{"Reals", R"("state":3.0,"error":8.0)"},
                    StatusFile{"UnknownNumbers", R"("state":77,"error":77)"},
                    StatusFile{"StrangeServices", R"("state":5,"service":[1,{},{"id":5},[],{"id":"hos"}])"}),
    [](const auto& each) { return std::string(each.param.name); });

TEST_F(ArdvrelayctlStatus, PassesOnMembersThatItDoesNotKnow) {
    const MadeUpDaemon daemon;
    daemon.Publish(std::string(kLoggedIn) + R"(,"mine":{"deep":[1,2]})");
    const auto report = RunJson({"status"});
    EXPECT_EQ(report["file"]["mine"], JsonOf(R"({"deep":[1,2]})"));
    EXPECT_EQ(report["running"], true);
    EXPECT_EQ(report["pid"], daemon.Pid());
    EXPECT_EQ(report["server_id"], "box-1");
    EXPECT_EQ(report["services"], JsonOf(R"(["hos","http"])"));
    EXPECT_EQ(report["last_error"], "success");
    EXPECT_FALSE(report.isMember("exit_code"));
}

TEST_F(ArdvrelayctlStatus, ExplainsAFailureAndWhatToDo) {
    const MadeUpDaemon daemon;
    daemon.Publish(R"("state":0,"error":8)");
    EXPECT_THAT(Run({"status"}).out, HasSubstr("advice: the service refuses the device's identity"));
    daemon.Publish(R"("state":7,"error":0)");
    EXPECT_THAT(Run({"status"}).out, HasSubstr("advice: 'ardvrelayctl config set tethra.enabled true'"));
}

TEST_F(ArdvrelayctlStatus, ShowsTextsFitForATerminal) {
    const MadeUpDaemon daemon;
    daemon.Publish(R"("serverID":"\u001b[2J","version":"a\nb","service":[{"id":"\u202e"}],"next":{"a":"\u0007"})");
    const auto text = Run({"status"}).out;
    EXPECT_THAT(text, HasSubstr("serverID: ?[2J\n"));
    EXPECT_THAT(text, HasSubstr("services: ?\nversion: a?b\n"));
    EXPECT_EQ(text.find('\a'), std::string::npos);
    EXPECT_EQ(RunJson({"status"})["server_id"], "\x1b[2J");
}

TEST_F(ArdvrelayctlStatus, KnowsADaemonThatDiedWithoutItsParentsNotice) {
    const MadeUpDaemon daemon;
    daemon.Publish(kLoggedIn);
    daemon.Die();
    auto tool = Start({"wait", "--for", "login", "--timeout", "0"});
    EXPECT_EQ(tool.Wait(), 124);
    EXPECT_EQ(Run({"status"}).exitCode, 5);
}

TEST_F(ArdvrelayctlStatus, ReportsABadStatusFile) {
    for (const char* text : {"{ damaged", "{}", "[]", "7", R"({"pid":-1})", R"({"pid":"x"})", ""}) {
        WriteText(kDaemonStatusFile, text);
        const auto result = Run({"status"});
        EXPECT_EQ(result.exitCode, 6) << text;
        EXPECT_THAT(result.err, HasSubstr("the daemon's status file cannot be used"));
        EXPECT_EQ(RunJson({"status"})["exit_code"], 6);
        EXPECT_EQ(ReadText(kDaemonStatusFile), text);
    }
}

TEST_F(ArdvrelayctlStatus, IsShownThoughTheConfigurationIsDamaged) {
    const MadeUpDaemon daemon;
    daemon.Publish(kLoggedIn);
    WriteText(kConfigFile, "{ damaged");
    const auto result = Run({"status"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.out, HasSubstr("state: login\nalias: \n"));
    EXPECT_THAT(result.err, HasSubstr("is damaged or not valid"));
    EXPECT_EQ(ReadText(kConfigFile), "{ damaged");
    EXPECT_EQ(Run({"--config", "/nonexistent", "status"}).exitCode, 78);
}

TEST_F(ArdvrelayctlStatus, TellsOfAServiceWhatTheLibraryTells) {
    const MadeUpDaemon daemon;
    daemon.Publish(R"("serverID":"box-1","state":5,"error":6,"service":[{"id":"hos"}])");
    for (const char* service : {"hos", "photo"}) {
        std::string serverId;
        std::string state;
        std::string error;
        ASSERT_TRUE(ARDV::Relay::Daemon::GetStatus(serverId, state, error, service));
        const auto report = RunJson({"status", "--service", service});
        EXPECT_EQ(report["server_id"], serverId);
        EXPECT_EQ(report["state"], state);
        EXPECT_EQ(report["last_error"], error);
    }
}

TEST_F(ArdvrelayctlStatus, ShowsOneService) {
    const MadeUpDaemon daemon;
    daemon.Publish(kLoggedIn);
    const auto relayed = Run({"status", "--service", "http"});
    EXPECT_EQ(relayed.exitCode, 0);
    EXPECT_EQ(relayed.out, "serverID: box-1\nstate: login\n");
    const auto other = Run({"status", "--service", "photo"});
    EXPECT_EQ(other.exitCode, 4);
    EXPECT_EQ(other.out, "serverID: --\nstate: not_running\n");
    EXPECT_EQ(other.err, "ardvrelayctl: the daemon does not relay the service photo\n");
    const auto report = RunJson({"status", "--service", "photo"});
    EXPECT_EQ(report["relayed"], false);
    EXPECT_EQ(report["exit_code"], 4);
    daemon.Die();
    EXPECT_EQ(Run({"status", "--service", "http"}).exitCode, 5);
}

TEST_F(ArdvrelayctlStatus, IsShownAgainOnEachChange) {
    const MadeUpDaemon daemon;
    daemon.Publish(R"("state":2)");
    auto tool = Start({"status", "--watch"});
    EXPECT_THAT(tool.ReadUpTo("services: (none)\n"), HasSubstr("state: starting\n"));
    daemon.Publish(R"("state":3)");
    EXPECT_THAT(tool.ReadUpTo("services: (none)\n"), HasSubstr("state: login\n"));
    PublishAlias("attic", "success");
    EXPECT_THAT(tool.ReadUpTo("services: (none)\n"), HasSubstr("alias_status: success\n"));
    std::filesystem::remove(kAliasStatusFile);
    EXPECT_THAT(tool.ReadUpTo("services: (none)\n"), HasSubstr("alias_status: \n"));
    tool.Signal(SIGINT);
    EXPECT_EQ(tool.Wait(), 128 + SIGINT);
}

TEST_F(ArdvrelayctlStatus, IsShownAgainWhenTheDaemonDies) {
    const MadeUpDaemon daemon;
    daemon.Publish(R"("state":3)");
    auto tool = Start({"status", "--watch", "--json"});
    EXPECT_EQ(JsonOf(tool.ReadUpTo("\n"))["state"], "login");
    daemon.Die();
    EXPECT_EQ(JsonOf(tool.ReadUpTo("\n"))["state"], "not_running");
    const MadeUpDaemon next;
    next.Publish(R"("state":2)");
    EXPECT_EQ(JsonOf(tool.ReadUpTo("\n"))["state"], "starting");
    next.Die();
    EXPECT_EQ(JsonOf(tool.ReadUpTo("\n"))["state"], "not_running");
}

TEST_F(ArdvrelayctlStatus, SleepsWhileNothingOfItChanges) {
    const MadeUpDaemon daemon;
    daemon.Publish(R"("state":3)");
    auto tool = Start({"status", "--watch", "--json"});
    tool.ReadUpTo("\n");
    daemon.Publish(R"("state":4)");
    tool.ReadUpTo("\n");
    const long before = tool.VoluntarySwitches();
    for (int i = 0; i < 3; ++i) {
        WriteText("/tmp/somebody-elses", "x");
        daemon.Publish(R"("state":4)");
    }
    daemon.Publish(R"("state":5)");
    EXPECT_EQ(JsonOf(tool.ReadUpTo("\n"))["state"], "connected") << "and no line for what stayed the same";
    EXPECT_LT(tool.VoluntarySwitches() - before, 30);
}

TEST_F(ArdvrelayctlStatus, EndsItsWatchWhenNobodyReadsIt) {
    const MadeUpDaemon daemon;
    daemon.Publish(R"("state":3)");
    auto tool = Start({"status", "--watch"});
    tool.ReadUpTo("state: login\n");
    tool.StopReading();
    EXPECT_THAT((std::vector<int>{0, 74}), testing::Contains(tool.Wait()));
}

TEST_F(ArdvrelayctlStatus, TellsSomebodyWhoIsNotRootThatTheDaemonRuns) {
    if (RunProgram({"setpriv", "--reuid=65534", "--clear-groups", ARDV_RELAYCTL, "--version"}).exitCode != 0) {
        GTEST_SKIP() << "this machine lets no other user run the tool";
    }
    const MadeUpDaemon daemon;
    daemon.Publish(kLoggedIn);
    for (const auto& [command, exitCode] :
         std::vector<std::pair<std::vector<std::string>, int>>{{{"status"}, 0},
                                                               {{"status", "--service", "hos"}, 0},
                                                               {{"reload"}, 77},
                                                               {{"stop"}, 77},
                                                               {{"report"}, 77},
                                                               {{"alias", "update"}, 77}}) {
        std::vector<std::string> words = {"setpriv", "--reuid=65534", "--clear-groups", ARDV_RELAYCTL};
        words.insert(words.end(), command.begin(), command.end());
        EXPECT_EQ(RunProgram(words).exitCode, exitCode) << command[0];
    }
    EXPECT_EQ(daemon.SignalsLeft(), 0);
}

}  // namespace
}  // namespace ardv::test
