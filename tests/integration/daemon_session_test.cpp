// SPDX-License-Identifier: Apache-2.0
// The daemon's session with the control servers: what begins, breaks, moves and restores it.
#include <cstdlib>
#include <numeric>
#include <stdexcept>

#include "integration/daemon_fixture.h"
#include "support/scratch_folder.h"

namespace ardv::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

/** A request of the control protocol that a fault is for. */
std::string Fault(const std::string& command, const std::string& members) {
    return R"({"count":0,"command":")" + command + R"(",)" + members + "}";
}

class DaemonSession : public DaemonTest {
protected:
    /** Waits until this many requests of a command have come in. */
    bool AwaitCount(const std::string& command, std::size_t count) const {
        return Await([&] { return Count(command) >= count; });
    }

    /** Waits until the results that came are these, e.g. "c1=0 c2=9". */
    std::string AwaitResults(const std::string& expected) const {
        std::string seen;
        Await([&] {
            seen.clear();
            for (const auto& row : control.Results()) {
                seen += (seen.empty() ? "" : " ") + row["id"].asString() + "=" + row["result"].asString();
            }
            return seen == expected;
        });
        return seen;
    }
};

TEST_F(DaemonSession, BeginsWhenTheServerComesUp) {
    control.Stop();
    Start();
    EXPECT_EQ(AwaitStatus("starting err_network"), "starting err_network");
    control.Start();
    EXPECT_EQ(AwaitStatus(kLoggedIn), kLoggedIn);
    ExpectOrderlyEnd();
}

TEST_F(DaemonSession, IsRestoredAfterTheServerDied) {
    StartAndLogIn();
    control.Kill();
    EXPECT_EQ(AwaitStatus("starting err_network"), "starting err_network");
    EXPECT_EQ(AliasWord(), "success");
    control.Start();
    EXPECT_EQ(AwaitStatus(kLoggedIn), kLoggedIn);
    EXPECT_TRUE(AwaitWait());
    ExpectOrderlyEnd();
}

TEST_F(DaemonSession, KeepsItsIdentifierAtAServerThatLostItsState) {
    StartAndLogIn();
    const auto id = ServerId();
    control.Kill();
    std::filesystem::remove(control.StateFile());
    control.Start();
    EXPECT_TRUE(Await([&] { return ServerId() == id; }));
    EXPECT_EQ(AwaitStatus(kLoggedIn), kLoggedIn);
    EXPECT_EQ(JsonFrom(ReadText(kDaemonConfig))["serverID"], id);
}

TEST_F(DaemonSession, IsBegunAnewSoonWhenTheServerEndsIt) {
    StartPatient();
    control.EndSessions();
    EXPECT_TRUE(AwaitCount("register", 2));
    EXPECT_EQ(AwaitStatus(kLoggedIn), kLoggedIn);
    EXPECT_TRUE(AwaitWait());
    EXPECT_EQ(Count("register"), 2U);
}

TEST_F(DaemonSession, TakesItsTimeWhenTheServerEndsOneAfterTheOther) {
    control.SetFault(Fault("wait", R"("kind":"errno","value":6)"));
    Start({"--retry-base", "0.5", "--retry-cap", "0.5"});
    EXPECT_TRUE(AwaitCount("register", 2));
    EXPECT_TRUE(Holds([&] { return Count("register") <= 12; }, seconds(1))) << "the floor of the back-off is 0.1 s";
    control.ClearFault();
    EXPECT_EQ(AwaitStatus(kLoggedIn), kLoggedIn);
    EXPECT_TRUE(AwaitWait());
}

TEST_F(DaemonSession, OutlastsASilentServer) {
    control.SetFault(Fault("register", R"("kind":"silent")"));
    Start();
    EXPECT_TRUE(AwaitCount("register", 1));
    EXPECT_EQ(DaemonStatus(), "starting success");
    EXPECT_TRUE(DaemonReport()["healthy"].asBool());
    control.ClearFault();
    EXPECT_EQ(AwaitStatus(kLoggedIn), kLoggedIn);
}

TEST_F(DaemonSession, BeginsAnewOnAReloadWhileTheServerIsSilent) {
    control.SetFault(R"({"kind":"silent","command":"register"})");
    Start();
    EXPECT_TRUE(AwaitCount("register", 1));
    Edit([](Json::Value& c) { c["server_smartdns"]["enabled"] = true; });
    EXPECT_TRUE(daemon->Reload());
    EXPECT_EQ(AwaitStatus(kLoggedIn), kLoggedIn);
}

TEST_F(DaemonSession, BearsWithASlowServer) {
    control.SetFault(R"({"kind":"slow","delay_ms":500})");
    StartAndLogIn();
    EXPECT_EQ(Count("register"), 1U);
    ExpectOrderlyEnd();
}

TEST_F(DaemonSession, StoresTheHostOfAServerThatItIsSentToByAnError) {
    control.SetFault(R"({"kind":"errno","value":13,"members":{"control_host":"localhost"},"command":"register"})");
    StartAndLogIn();
    EXPECT_EQ(JsonFrom(ReadText(kDaemonConfig))["server_control"]["host"], "localhost");
    EXPECT_EQ(Count("register"), 2U);
}

TEST_F(DaemonSession, StoresTheHostOfAServerThatItIsSentToByARegistration) {
    control.SetAnswers(R"({"control_host":"localhost"})");
    StartAndLogIn();
    EXPECT_EQ(JsonFrom(ReadText(kDaemonConfig))["server_control"]["host"], "localhost");
    EXPECT_EQ(Count("register"), 2U);
}

TEST_F(DaemonSession, MovesAlthoughTheConfigurationCannotBeWritten) {
    control.SetAnswers(R"({"control_host":"localhost"})");
    const std::string folder = std::filesystem::path(kDaemonConfig).parent_path();
    const std::string text = ReadText(kDaemonConfig);
    const MountedDisk disk(folder, 4096);
    WriteText(kDaemonConfig, text);
    WriteText(folder + "/rest", "");
    StartAndLogIn();
    EXPECT_EQ(ReadText(kDaemonConfig), text);
    EXPECT_NE(daemon->Log().find("the server identifier is not stored"), std::string::npos);
    EXPECT_NE(daemon->Log().find("the control server's host is not stored"), std::string::npos);
    ExpectOrderlyEnd();
}

TEST_F(DaemonSession, IsNotDrivenRoundByServersThatSendItToEachOther) {
    ControlServerProcess other({{.folder = "/run/other", .address = "127.0.0.2", .httpPort = control.HttpPort()}});
    control.SetAnswers(R"({"control_host":"127.0.0.2"})");
    other.SetAnswers(R"({"control_host":"127.0.0.1"})");
    Start({"--retry-base", "0.5", "--retry-cap", "0.5"});
    EXPECT_EQ(AwaitStatus("starting err_server_changed"), "starting err_server_changed");
    EXPECT_TRUE(Holds([&] { return Count("register") + other.Requests().size() <= 48; }, seconds(1)))
        << "four tries, then 0.1 s at least";
    other.SetAnswers("{}");
    EXPECT_EQ(AwaitStatus(kLoggedIn), kLoggedIn);
}

TEST_F(DaemonSession, AsksTheGlobalServerWhenTheAssignedOneIsGone) {
    Edit([](Json::Value& c) { c["server_control"]["host"] = "127.0.0.3"; });
    control.SetAnswers(R"({"control_host":"127.0.0.1"})");
    StartAndLogIn();
    EXPECT_EQ(JsonFrom(ReadText(kDaemonConfig))["server_control"]["host"], "127.0.0.1");
}

TEST_F(DaemonSession, TakesOverWhatTheServerAssigns) {
    control.SetAnswers(R"({"reachable":true,"smartdns":{"enabled":true},"keep_alive":60})");
    Start();
    EXPECT_EQ(AwaitStatus("direct_connect success"), "direct_connect success");
    EXPECT_TRUE(JsonFrom(ReadText(kDaemonConfig))["server_smartdns"]["enabled"].asBool());
    EXPECT_EQ(DaemonReport()["session"]["keep_alive_seconds"], 60);
}

TEST_F(DaemonSession, IsInDoubtWhileTheServerDoesNotAnswerAndThenStandsAgain) {
    StartAndLogIn();
    control.SetFault(Fault("keep_alive", R"("kind":"status","status":500)"));
    EXPECT_EQ(control.BreakWaits(R"({"kind":"reset"})"), 1);
    EXPECT_EQ(AwaitStatus("starting err_server_busy"), "starting err_server_busy");
    EXPECT_TRUE(AwaitCount("keep_alive", 3));
    control.ClearFault();
    EXPECT_EQ(AwaitStatus(kLoggedIn), kLoggedIn);
    EXPECT_TRUE(AwaitWait());
    EXPECT_EQ(Count("register"), 1U);
}

TEST_F(DaemonSession, IsBegunAnewWhenAKeepAliveSaysThatItIsOver) {
    StartAndLogIn();
    control.SetFault(R"({"kind":"errno","value":6,"command":"keep_alive"})");
    EXPECT_EQ(control.BreakWaits(R"({"kind":"reset"})"), 1);
    EXPECT_TRUE(AwaitCount("register", 2));
    EXPECT_EQ(AwaitStatus(kLoggedIn), kLoggedIn);
}

TEST_F(DaemonSession, AsksTheControlServerWhetherItIsRefusedAndWhereItMoves) {
    StartPatient();
    control.BreakWaits(R"({"kind":"errno","value":13,"members":{"control_host":"localhost"}})");
    EXPECT_TRUE(AwaitCount("register", 2));
    EXPECT_EQ(AwaitStatus(kLoggedIn), kLoggedIn);
    EXPECT_EQ(JsonFrom(ReadText(kDaemonConfig))["server_control"]["host"], "127.0.0.1");
    control.SetFault(R"({"kind":"errno","value":30,"command":"register"})");
    EXPECT_TRUE(AwaitWait());
    control.BreakWaits(R"({"kind":"errno","value":30})");
    EXPECT_EQ(AwaitStatus("starting err_violation"), "starting err_violation") << "a wait alone refuses nobody";
    EXPECT_TRUE(daemon->Reload());
    EXPECT_EQ(AwaitStatus("error err_violation"), "error err_violation");
    EXPECT_TRUE(daemon->Reload());
    EXPECT_EQ(AwaitStatus(kLoggedIn), kLoggedIn);
}

TEST_F(DaemonSession, KeepsARefusalUntilItsUserActs) {
    control.SetFault(Fault("register", R"("kind":"errno","value":2)"));
    Start();
    EXPECT_EQ(AwaitStatus("error err_auth"), "error err_auth");
    EXPECT_EQ(RunProgram({"ip", "link", "set", "lo", "mtu", "60000"}).exitCode, 0);
    EXPECT_TRUE(Holds([&] { return Count("register") == 1; }, milliseconds(2600)));
    EXPECT_TRUE(daemon->Reload());
    EXPECT_TRUE(AwaitCount("register", 2));
    EXPECT_EQ(AwaitStatus("error err_auth"), "error err_auth");
}

TEST_F(DaemonSession, EndsAndBeginsAsTheServiceIsSwitchedOffAndOn) {
    StartAndLogIn();
    Edit([](Json::Value& c) { c["tethra"]["enabled"] = false; });
    EXPECT_TRUE(daemon->Reload());
    EXPECT_EQ(AwaitStatus("logout success"), "logout success");
    EXPECT_TRUE(Await([&] { return !control.Sessions()[ServerId()]["waiting"].asBool(); }));
    control.ClearRequests();
    alias.ClearRequests();
    daemon->Signal(SIGRTMIN + 1);
    EXPECT_TRUE(daemon->Reload());
    EXPECT_EQ(control.Requests().size() + alias.Requests().size(), 0U);
    Edit([](Json::Value& c) { c["tethra"]["enabled"] = true; });
    EXPECT_TRUE(daemon->Reload());
    EXPECT_EQ(AwaitStatus(kLoggedIn), kLoggedIn);
    EXPECT_TRUE(Await([&] { return alias.Requests().size() == 1; }));
    ExpectOrderlyEnd();
}

TEST_F(DaemonSession, TellsTheServersWhatAReloadHasChangedAndNothingElse) {
    StartAndLogIn();
    EXPECT_TRUE(daemon->Reload());
    EXPECT_EQ(Count("register"), 1U);
    Edit([](Json::Value& c) { c["server_smartdns"]["enabled"] = true; });
    EXPECT_TRUE(daemon->Reload());
    EXPECT_TRUE(AwaitCount("register", 2));
    EXPECT_EQ(AwaitStatus(kLoggedIn), kLoggedIn);
    EXPECT_TRUE(AwaitWait());
    EXPECT_TRUE(control.Sessions()[ServerId()]["registration"]["smartdns"]["enabled"].asBool());
}

TEST_F(DaemonSession, KeepsItsSettingsWhenTheFileIsDamaged) {
    StartAndLogIn();
    WriteText(kDaemonConfig, R"({"tethra": {"enabled": true)");
    EXPECT_TRUE(daemon->Reload());
    EXPECT_TRUE(daemon->Reload()) << "when the damaged file is out of the way";
    EXPECT_TRUE(Holds([] { return DaemonStatus() == kLoggedIn; }, milliseconds(200)));
    EXPECT_EQ(AliasWord(), "success");
    EXPECT_NE(daemon->Log().find("is not taken over"), std::string::npos);
    ExpectOrderlyEnd();
}

TEST_F(DaemonSession, KeepsItsSettingsWhenThoseOfTheFileCannotBeUsed) {
    StartAndLogIn();
    Edit([](Json::Value& c) { c["server_control"]["port"] = -1; });
    EXPECT_TRUE(daemon->Reload());
    EXPECT_TRUE(Holds([] { return DaemonStatus() == kLoggedIn; }, milliseconds(200)));
    EXPECT_NE(daemon->Log().find("is not taken over"), std::string::npos);
}

/** A fault of the wait-command server, and what is told of it while the control server is well. */
struct WaitFault {
    const char* name;
    const char* members;
    const char* status;
};

class BrokenWait : public DaemonSession, public testing::WithParamInterface<WaitFault> {};

const WaitFault kWaitFaults[] = {
    {"Reset", R"("kind":"reset")", "login err_network"},
    {"Http500", R"("kind":"status","status":500)", "login err_server_busy"},
    {"Http404", R"("kind":"status","status":404)", "login err_network"},
    {"GarbageBody", R"("kind":"garbage")", "login err_unknown"},
    {"GarbageProtocol", R"("kind":"garbage","variant":"protocol")", "login err_unknown"},
    {"EmptyBody", R"("kind":"reply","body":"")", "login err_unknown"},
    {"Deep", R"("kind":"deep")", "login err_unknown"},
    {"Errno1", R"("kind":"errno","value":1)", "login err_unknown"},
    {"Errno3", R"("kind":"errno","value":3)", "login err_not_support"},
    {"Errno11", R"("kind":"errno","value":11)", "login err_server_limit"},
};

INSTANTIATE_TEST_SUITE_P(By, BrokenWait, testing::ValuesIn(kWaitFaults), ParamName<WaitFault>);

TEST_P(BrokenWait, LeavesTheSessionStandingAndIsTriedAgain) {
    StartAndLogIn({"--retry-base", "0.005", "--retry-cap", "0.05"});
    const std::string members = GetParam().members;
    control.SetFault(Fault("wait", members));
    EXPECT_EQ(control.BreakWaits("{" + members + "}"), 1);
    EXPECT_EQ(AwaitStatus(GetParam().status), GetParam().status);
    EXPECT_TRUE(AwaitCount("wait", 3));
    control.ClearFault();
    EXPECT_EQ(AwaitStatus(kLoggedIn), kLoggedIn);
    EXPECT_TRUE(AwaitWait());
    EXPECT_EQ(Count("register"), 1U);
    ExpectOrderlyEnd();
}

TEST_F(DaemonSession, IsNotDrivenRoundByWaitsThatAreAnsweredAtOnce) {
    StartAndLogIn({"--retry-base", "0.5", "--retry-cap", "0.5"});
    control.ClearRequests();
    control.SetFault(Fault("wait", R"("kind":"reply","body":"{\"errno\":0}")"));
    control.BreakWaits(R"({"kind":"reply","body":"{\"errno\":0}"})");
    EXPECT_TRUE(Holds([&] { return Count("wait") <= 15; }, seconds(1))) << "four at once, then 0.1 s at least";
    EXPECT_EQ(DaemonStatus(), kLoggedIn);
    control.ClearFault();
    EXPECT_TRUE(AwaitWait());
}

TEST_F(DaemonSession, IsNotDrivenRoundByCommandsWithoutEnd) {
    StartAndLogIn({"--retry-base", "0.5", "--retry-cap", "0.5"});
    const std::string body = R"({\"errno\":0,\"commands\":[{\"id\":\"a\",\"command\":\"update_alias\"}]})";
    const auto reply = R"("kind":"reply","body":")" + body + "\"";
    control.ClearRequests();
    alias.ClearRequests();
    control.SetFault(Fault("wait", reply));
    control.BreakWaits("{" + reply + "}");
    EXPECT_TRUE(Holds([&] { return Count("wait") <= 16; }, seconds(1)));
    EXPECT_EQ(alias.Requests().size(), 1U);
    control.ClearFault();
    EXPECT_TRUE(AwaitWait());
    EXPECT_TRUE(Await([&] { return !control.Results().empty(); }));
}

TEST_F(DaemonSession, CarriesACommandOutOnceHoweverOftenItComes) {
    StartAndLogIn();
    const auto before = alias.Requests().size();
    control.Command(ServerId(), R"({"id":"a","command":"update_alias"})");
    EXPECT_EQ(AwaitResults("a=0"), "a=0");
    control.Command(ServerId(), R"({"id":"a","command":"update_alias"})");
    EXPECT_EQ(AwaitResults("a=0 a=0"), "a=0 a=0");
    EXPECT_EQ(alias.Requests().size(), before + 1);
}

TEST_F(DaemonSession, TellsTheResultOfACommandThatFails) {
    StartAndLogIn();
    alias.Stop();
    control.Command(ServerId(), R"({"id":"a","command":"update_alias"})");
    EXPECT_EQ(AwaitResults("a=6"), "a=6");
    alias.Start();
    EXPECT_EQ(AwaitAlias("success"), "success");
}

/** A command that the daemon does not carry out, and the result that it tells. */
struct Refusal {
    const char* name;
    const char* members;
    const char* result;
};

class RefusedCommand : public DaemonSession, public testing::WithParamInterface<Refusal> {};

const Refusal kRefusals[] = {
    {"Unknown", R"("command":"format_disk")", "9"},
    {"NoName", R"("x":1)", "9"},
    {"NameOfAnotherType", R"("command":["update_alias"])", "9"},
    {"CloseTunnel", R"("command":"close_tunnel")", "0"},
    {"OpenTunnelOverPlainHttp",
     R"("command":"open_tunnel","relay":{"relay_ip":"192.0.2.1"},"candidates":[{"type":"relay","port":"443"}])", "30"},
};

INSTANTIATE_TEST_SUITE_P(Of, RefusedCommand, testing::ValuesIn(kRefusals), ParamName<Refusal>);

TEST_P(RefusedCommand, HasItsResult) {
    StartAndLogIn();
    control.Command(ServerId(), R"({"id":"a",)" + std::string(GetParam().members) + "}");
    EXPECT_EQ(AwaitResults(std::string("a=") + GetParam().result), std::string("a=") + GetParam().result);
    EXPECT_EQ(DaemonStatus(), kLoggedIn);
}

TEST_F(DaemonSession, TellsNoSecretOfAnAnswerThatIsCutOff) {
    control.SetFault(Fault(
        "register",
        R"("kind":"reply","body":"{\"errno\":0,\"serverID\":\"box\",\"session\":\"half-a-session\",\"channel\":\"half-a-ch")"));
    Start();
    EXPECT_EQ(AwaitStatus("starting err_unknown"), "starting err_unknown");
    EXPECT_TRUE(AwaitCount("register", 2));
    EXPECT_EQ(daemon->Log().find("half-a-"), std::string::npos);
    EXPECT_EQ(Json::FastWriter().write(DaemonReport()).find("half-a-"), std::string::npos);
}

TEST_F(DaemonSession, TellsNoSecretInItsReport) {
    StartAndLogIn();
    const auto report = Json::FastWriter().write(DaemonReport());
    EXPECT_GT(report.size(), 500U);
    for (const auto& secret : Secrets()) {
        EXPECT_EQ(report.find(secret), std::string::npos) << "a secret is told";
    }
}

TEST_F(DaemonSession, BeginsWithinTheStartSpread) {
    std::vector<std::string> options = DaemonProcess::Hasty();
    options.insert(options.end(), {"--start-spread", "1000"});
    Start(options);
    EXPECT_EQ(AwaitStatus("starting success"), "starting success");
    EXPECT_TRUE(Holds([&] { return Count("register") == 0; }, milliseconds(200)));
    std::vector<Json::Int64> delays;
    const auto report = DaemonReport();
    for (const auto& timer : report["timers"]) {
        if (timer["name"] == "control session") {
            delays.push_back(timer["due_in_milliseconds"].asInt64());
        }
    }
    ASSERT_EQ(delays.size(), 1U);
    EXPECT_LT(delays[0], 1000000);
    ExpectOrderlyEnd();
}

TEST_F(DaemonSession, KeepsItsFirstTimeWhileTheNetworkComesUp) {
    Start({"--start-spread", "1000"});
    EXPECT_EQ(AwaitStatus("starting success"), "starting success");
    EXPECT_EQ(RunProgram({"ip", "address", "add", "127.5.0.1/24", "dev", "lo"}).exitCode, 0);
    EXPECT_TRUE(Holds([&] { return Count("register") == 0; }, milliseconds(2600)));
    EXPECT_TRUE(daemon->Reload()) << "somebody asks for it";
    EXPECT_EQ(AwaitStatus(kLoggedIn), kLoggedIn);
}

TEST_F(DaemonSession, BeginsAlthoughNoStatusCanBePublished) {
    ASSERT_EQ(RunProgram({"mount", "-o", "remount,size=64k", "/tmp"}).exitCode, 0);
    EXPECT_THROW(WriteText("/tmp/rest", std::string(100000, 'x')), std::runtime_error) << "the disk is not full";
    Start();
    EXPECT_TRUE(AwaitWait()) << daemon->Log();
    EXPECT_EQ(DaemonStatus(), "not_running success");
    EXPECT_NE(daemon->Log().find("the status is not published"), std::string::npos);
    std::filesystem::remove("/tmp/rest");
    daemon->Signal(SIGHUP);
    EXPECT_EQ(AwaitStatus(kLoggedIn), kLoggedIn);
    ExpectOrderlyEnd();
}

TEST_F(DaemonSession, TriesSlowlyWhereTheServerSaysThatItIsOfNoUse) {
    const std::vector<std::string> options{"--retry-base", "0.02", "--retry-cap", "0.02"};
    control.SetFault(Fault("register", R"("kind":"errno","value":1)"));
    Start(options);
    EXPECT_TRUE(AwaitCount("register", 25));
    EXPECT_EQ(daemon->Stop(SIGTERM, kLongestEnd), 0);
    control.ClearFault();
    control.SetFault(Fault("register", R"("kind":"errno","value":11)"));
    control.ClearRequests();
    Start(options);
    EXPECT_TRUE(Holds([&] { return Count("register") <= 5; }, seconds(1)))
        << "the floor of the slow back-off is 0.24 s";
}

/** The times between requests, in milliseconds. */
std::vector<long> Intervals(const Json::Value& requests) {
    std::vector<long> times;
    for (const auto& request : requests) {
        const auto time = request["time"].asString();  // 2026-01-31T08:15:00.123Z
        times.push_back(std::stol(time.substr(14, 2)) * 60000 + std::stol(time.substr(17, 2)) * 1000 +
                        std::stol(time.substr(20, 3)));
    }
    std::adjacent_difference(times.begin(), times.end(), times.begin());
    return times;
}

TEST_F(DaemonSession, SpreadsItsTries) {
    control.SetFault(Fault("register", R"("kind":"errno","value":1)"));
    std::vector<long> intervals[2];
    for (auto& run : intervals) {
        control.ClearRequests();
        Start({"--retry-base", "0.1", "--retry-cap", "0.1"});
        EXPECT_TRUE(AwaitCount("register", 12));
        EXPECT_EQ(daemon->Stop(SIGTERM, kLongestEnd), 0);
        run = Intervals(control.Requests());
    }
    long difference = 0;
    for (std::size_t i = 1; i < 12; ++i) {
        difference += std::labs(intervals[0][i] - intervals[1][i]);
    }
    EXPECT_GT(difference, 80) << "300 where both are random, 0 and some noise where they are not";
}

}  // namespace
}  // namespace ardv::test
