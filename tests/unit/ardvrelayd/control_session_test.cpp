// SPDX-License-Identifier: Apache-2.0
#include "control_session.h"

#include "session_fixture.h"
#include "support/http_server.h"

using namespace ardv::test;
using namespace ardv::daemon;
using namespace ARDV::Relay;
using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::Not;

namespace {

/** What follows a failure. */
enum class Next { kNothing, kAtOnce, kUsual, kSlow };

struct FailureRow {
    const char* name;
    std::string body;
    int status;
    RELAYD_RET error;
    Next next;
};

std::vector<FailureRow> FailureRows() {
    std::vector<FailureRow> rows = {
        {"HttpClientError", "no", 404, RELAYD_RET_ERR_NETWORK, Next::kUsual},
        {"HttpServerError", "no", 503, RELAYD_RET_ERR_SERVER_BUSY, Next::kUsual},
        {"OtherHttpStatus", R"({"errno":0})", 202, RELAYD_RET_ERR_UNKNOWN, Next::kUsual},
        {"Text", "no", 200, RELAYD_RET_ERR_UNKNOWN, Next::kUsual},
        {"Array", R"([{"errno":0}])", 200, RELAYD_RET_ERR_UNKNOWN, Next::kUsual},
        {"NoErrno", "{}", 200, RELAYD_RET_ERR_UNKNOWN, Next::kUsual},
        {"NoSession", R"({"errno":0,"serverID":"box-1","channel":"c1"})", 200, RELAYD_RET_ERR_UNKNOWN, Next::kUsual},
    };
    const struct {
        std::vector<int> numbers;
        RELAYD_RET error;
        Next next;
    } groups[] = {
        {{6}, RELAYD_RET_ERR_AUTH, Next::kAtOnce},
        {{14}, RELAYD_RET_ERR_SERVER_IP_CHANGED, Next::kAtOnce},
        {{13}, RELAYD_RET_ERR_SERVER_CHANGED, Next::kUsual},
        {{2, 10}, RELAYD_RET_ERR_AUTH, Next::kNothing},
        {{15}, RELAYD_RET_ERR_API_KEY_EXPIRED, Next::kNothing},
        {{30}, RELAYD_RET_ERR_VIOLATION, Next::kNothing},
        {{3, 4, 5, 9, 12, 16, 29}, RELAYD_RET_ERR_NOT_SUPPORT, Next::kSlow},
        {{11}, RELAYD_RET_ERR_SERVER_LIMIT, Next::kSlow},
        {{1, 7, 8}, RELAYD_RET_ERR_UNKNOWN, Next::kUsual},
    };
    static std::list<std::string> names;
    for (const auto& group : groups) {
        for (const int number : group.numbers) {
            names.push_back("Errno" + std::to_string(number));
            rows.push_back({names.back().c_str(), ErrnoText(number), 200, group.error, group.next});
        }
    }
    return rows;
}

class RegistrationFailure : public SessionTest, public testing::WithParamInterface<FailureRow> {
protected:
    /** Expects the next attempt as late as a plan says. */
    void ExpectNext(std::chrono::milliseconds from, std::chrono::milliseconds to) {
        EXPECT_EQ(session_->State(), RELAYD_STATE_STARTING);
        ASSERT_TRUE(UntilNext());
        EXPECT_GT(*UntilNext(), from - 5s);
        EXPECT_LE(*UntilNext(), to);
    }
};

}  // namespace

TEST_P(RegistrationFailure, IsFollowedByWhatThePolicySays) {
    const auto& row = GetParam();
    server_.AlwaysAnswer("register", row.body, row.status);
    Begin(kLongPlans);
    ASSERT_TRUE(RunUntilFailures(row.next == Next::kAtOnce ? 2 : 1));
    EXPECT_EQ(session_->Error(), row.error);
    EXPECT_EQ(server_.Count("register"), row.next == Next::kAtOnce ? 2U : 1U);
    EXPECT_EQ(server_.Count("wait"), 0U);
    if (row.next == Next::kNothing) {
        EXPECT_EQ(session_->State(), RELAYD_STATE_NONE);
        EXPECT_FALSE(UntilNext()) << "waits for its user";
    } else if (row.next == Next::kSlow) {
        ExpectNext(12min, 1h);
    } else {
        ExpectNext(10s, 50s);
    }
    std::string why;
    EXPECT_TRUE(session_->IsHealthy(why)) << why;
}

INSTANTIATE_TEST_SUITE_P(Answers, RegistrationFailure, testing::ValuesIn(FailureRows()),
                         [](const auto& instance) { return std::string(instance.param.name); });

TEST_F(SessionTest, RegistersAndThenWaitsForCommands) {
    Begin(kLongPlans);
    EXPECT_EQ(session_->State(), RELAYD_STATE_STARTING);
    ASSERT_TRUE(RunUntilCount("wait", 1));
    EXPECT_EQ(session_->State(), RELAYD_STATE_LOGIN);
    EXPECT_EQ(session_->Error(), RELAYD_RET_SUCCESS);
    EXPECT_TRUE(session_->IsStanding());
    const auto seen = server_.Seen();
    ASSERT_EQ(seen.size(), 2U);
    EXPECT_EQ(seen[0]["command"], "register");
    EXPECT_EQ(seen[0]["identity"]["serial"], "AV0000000001");
    EXPECT_FALSE(seen[0].isMember("serverID"));
    EXPECT_EQ(seen[1], JsonOf(R"({"version":1,"command":"wait","serverID":"box-1","channel":"c1"})"));
    EXPECT_GT(changes_, 0);
}

TEST_F(SessionTest, SendsNothingForADeviceWithoutAnIdentity) {
    WriteText(kIdentityFile, "");
    Begin(kLongPlans);
    ASSERT_TRUE(RunUntilFailures(1));
    EXPECT_EQ(session_->State(), RELAYD_STATE_STARTING);
    EXPECT_EQ(session_->Error(), RELAYD_RET_ERR_CONFIG);
    EXPECT_TRUE(server_.Seen().empty());
    ASSERT_TRUE(UntilNext());
    EXPECT_GT(*UntilNext(), 11min);
    std::string why;
    EXPECT_TRUE(session_->IsHealthy(why)) << why;
}

TEST_F(SessionTest, DoesNothingBeforeItsDelayIsOver) {
    Begin(kLongPlans);
    session_->Stop();
    session_->Start(1h);
    EXPECT_EQ(session_->State(), RELAYD_STATE_STARTING);
    EXPECT_TRUE(engine_.Transfers().empty());
    ASSERT_TRUE(UntilNext());
    EXPECT_GT(*UntilNext(), 59min);
    session_->Start(0ms);
    EXPECT_GT(*UntilNext(), 59min) << "it has begun already";
    EXPECT_TRUE(session_->IsHoldingOff());
    session_->TryNow();
    EXPECT_FALSE(session_->IsHoldingOff());
    EXPECT_TRUE(RunUntilCount("wait", 1));
}

TEST_F(SessionTest, StoresWhatTheServerAssigns) {
    server_.Answer("register", ControlScript::Registered(R"(,"smartdns":{"enabled":true})"));
    Stand(kLongPlans);
    EXPECT_EQ(Stored()["serverID"], "box-1");
    EXPECT_EQ(Stored()["server_smartdns"]["enabled"], true);
    EXPECT_EQ(Stored()["tethra"]["enabled"], true) << "the rest of the file stays";
    session_->RegisterNow();
    ASSERT_TRUE(RunUntilCount("register", 2));
    EXPECT_EQ(server_.Seen("register")[1]["serverID"], "box-1");
}

TEST_F(SessionTest, IsDirectlyConnectedWhereTheServiceReachesTheDevice) {
    server_.Answer("register", ControlScript::Registered(R"(,"reachable":true,"keep_alive":60)"));
    Stand(kLongPlans);
    EXPECT_EQ(session_->State(), RELAYD_STATE_DIRECT_CONNECT);
    server_.Answer("keep_alive", R"({"errno":0,"reachable":false})");
    LetPass(60s);
    ASSERT_TRUE(RunUntil([&] { return session_->State() == RELAYD_STATE_LOGIN; }));
    EXPECT_EQ(server_.Count("register"), 1U);
}

TEST_F(SessionTest, IsDirectlyConnectedOnlyAsLongAsTheSessionThatSaidSo) {
    server_.Answer("register", ControlScript::Registered(R"(,"reachable":true)"));
    Stand(kLongPlans);
    ASSERT_EQ(session_->State(), RELAYD_STATE_DIRECT_CONNECT);
    session_->RegisterNow();
    ASSERT_TRUE(RunUntilCount("wait", 2));
    EXPECT_EQ(session_->State(), RELAYD_STATE_LOGIN);
}

TEST_F(SessionTest, GivesASignOfLifeAsOftenAsTheServerAsks) {
    server_.Answer("register", ControlScript::Registered(R"(,"keep_alive":100)"));
    Stand(kLongPlans);
    ASSERT_TRUE(UntilNext());
    EXPECT_GT(*UntilNext(), 95s);
    EXPECT_LE(*UntilNext(), 100s);
    server_.Answer("keep_alive", R"({"errno":0,"keep_alive":300})");
    LetPass(100s);
    ASSERT_TRUE(RunUntil([&] { return UntilNext() > 290s; }));
    EXPECT_LE(*UntilNext(), 300s);
    ASSERT_EQ(server_.Count("keep_alive"), 1U);
    EXPECT_EQ(server_.Seen("keep_alive")[0],
              JsonOf(R"({"version":1,"command":"keep_alive","serverID":"box-1","session":"s1"})"));
    LetPass(300s);
    ASSERT_TRUE(RunUntilCount("keep_alive", 2));
    ASSERT_TRUE(RunUntil([&] { return UntilNext() > 290s; })) << "an answer without an interval keeps the last";
    EXPECT_EQ(server_.Count("register"), 1U);
    EXPECT_EQ(server_.Count("wait"), 1U) << "the wait goes on meanwhile";
}

TEST_F(SessionTest, GivesASignOfLifeEachHourWhereTheServerSaysNothing) {
    server_.Answer("register", ControlScript::Registered(R"(,"keep_alive":60)"));
    Stand(kLongPlans);
    session_->RegisterNow();
    ASSERT_TRUE(RunUntilCount("wait", 2));
    ASSERT_TRUE(UntilNext());
    EXPECT_GT(*UntilNext(), 3590s) << "what an older session was told counts no more";
    EXPECT_LE(*UntilNext(), 3600s);
}

TEST_F(SessionTest, IsInDoubtWhereASignOfLifeIsNotAnswered) {
    Stand(kLongPlans);
    server_.Answer("keep_alive", "busy", 503);
    LetPass(3600s);
    ASSERT_TRUE(RunUntilFailures(1));
    EXPECT_EQ(session_->State(), RELAYD_STATE_STARTING);
    EXPECT_EQ(session_->Error(), RELAYD_RET_ERR_SERVER_BUSY);
    EXPECT_FALSE(session_->IsStanding());
    EXPECT_TRUE(engine_.Transfers().empty()) << "it doesn't wait for commands meanwhile";
    ASSERT_TRUE(UntilNext());
    EXPECT_LE(*UntilNext(), 50s);
    session_->TryNow();
    ASSERT_TRUE(RunUntilCount("wait", 2));
    EXPECT_EQ(session_->State(), RELAYD_STATE_LOGIN);
    EXPECT_EQ(session_->Error(), RELAYD_RET_SUCCESS);
    EXPECT_EQ(server_.Count("register"), 1U) << "the same session";
    EXPECT_EQ(server_.Seen("wait")[1]["channel"], "c1");
}

TEST_F(SessionTest, RegistersAnewAtOnceWhenItIsOver) {
    Stand(kLongPlans);
    server_.Answer("keep_alive", ErrnoText(6));
    LetPass(3600s);
    ASSERT_TRUE(RunUntilCount("wait", 2));
    EXPECT_EQ(server_.Count("register"), 2U);
    EXPECT_EQ(server_.Seen("wait")[1]["channel"], "c2");
    EXPECT_EQ(session_->State(), RELAYD_STATE_LOGIN);
}

TEST_F(SessionTest, RegistersAtOnceAgainOnlyAfterAMinute) {
    const auto failures = [this] { return session_->Describe()["failures"].asUInt(); };
    server_.Answer("register", ErrnoText(6));
    Stand(kShortPlans);
    EXPECT_EQ(server_.Count("register"), 2U);
    EXPECT_EQ(failures(), 0U);
    server_.Answer("wait", ErrnoText(6));
    ASSERT_TRUE(RunUntilCount("wait", 2));
    EXPECT_EQ(failures(), 1U) << "the second time in a row, after a while";
    LetPass(61s);
    server_.Answer("wait", ErrnoText(6));
    ASSERT_TRUE(RunUntilCount("wait", 3));
    EXPECT_EQ(server_.Count("register"), 4U);
    EXPECT_EQ(failures(), 0U) << "at once";
}

TEST_F(SessionTest, CountsOnWhereASessionDidNotLast) {
    server_.Answer("register", "busy", 503);
    server_.Answer("wait", ErrnoText(6));
    server_.Answer("wait", ErrnoText(6));
    Begin(kShortPlans);
    ASSERT_TRUE(RunUntilFailures(3));
    EXPECT_EQ(session_->Describe()["failures"].asUInt(), 2U);
}

TEST_F(SessionTest, TriesAgainByItselfUntilTheServerIsBack) {
    for (int i = 0; i < 3; ++i) {
        server_.Answer("register", "busy", 503);
    }
    Stand(kShortPlans);
    EXPECT_EQ(server_.Count("register"), 4U);
    EXPECT_EQ(errors_.Describe()[0]["times"].asUInt(), 3U);
    EXPECT_EQ(errors_.Describe()[0]["result"], "err_server_busy");
}

TEST_F(SessionTest, WaitsForItsUserAfterARefusal) {
    server_.Answer("register", ErrnoText(2));
    server_.Answer("register", ErrnoText(30));
    Begin(kShortPlans);
    ASSERT_TRUE(RunUntilFailures(1));
    EXPECT_EQ(session_->State(), RELAYD_STATE_NONE);
    session_->TryNow();
    EXPECT_TRUE(engine_.Transfers().empty()) << "the clock, for one, is no reason to ask again";
    session_->RegisterNow();
    ASSERT_TRUE(RunUntilFailures(2));
    EXPECT_EQ(session_->Error(), RELAYD_RET_ERR_VIOLATION);
    session_->RegisterNow();
    ASSERT_TRUE(RunUntilCount("wait", 1));
    EXPECT_EQ(server_.Count("register"), 3U);
}

TEST_F(SessionTest, NamesTheServersErrorAmongTheRecentOnes) {
    server_.Answer("register", ErrnoText(15));
    Begin(kLongPlans);
    ASSERT_TRUE(RunUntilFailures(1));
    const auto error = errors_.Describe()[0];
    EXPECT_EQ(error["what"], "register");
    EXPECT_EQ(error["result"], "err_api_key_expired (API_KEY_EXPIRED)");
}

TEST_F(SessionTest, ReadsTheNetworkAnewWhereTheServerSaysItHasChanged) {
    server_.Answer("register", ErrnoText(14));
    Begin(kLongPlans);
    WriteText(kDeviceSettings, "timezone=\"Amsterdam\"\nexternal_host_ip=\"two.zz\"\n");
    ASSERT_TRUE(RunUntilCount("wait", 1));
    EXPECT_EQ(server_.Seen("register")[1]["network"]["fqdn"], "two.zz");
    EXPECT_FALSE(device_->RefreshNetwork()) << "it is known now";
}

TEST_F(SessionTest, MovesToTheServerThatAnErrorNames) {
    WriteHosts("127.0.0.1", {"eu1.box.zz"});
    server_.Answer("register", R"({"errno":13,"control_host":"eu1.box.zz"})");
    Stand(kLongPlans);
    EXPECT_EQ(server_.Count("register"), 2U);
    EXPECT_EQ(Stored()["server_control"]["host"], "eu1.box.zz");
    EXPECT_EQ(device_->Configuration().GetControlServer().GetHost(), "eu1.box.zz");
    EXPECT_EQ(session_->Error(), RELAYD_RET_SUCCESS);
}

TEST_F(SessionTest, MovesToTheServerThatARegistrationNames) {
    WriteHosts("127.0.0.1", {"eu1.box.zz"});
    server_.Answer("register", ControlScript::Registered(R"(,"control_host":"eu1.box.zz")"));
    server_.Answer("register", ControlScript::Registered(R"(,"control_host":"eu1.box.zz")"));
    Stand(kLongPlans);
    EXPECT_EQ(server_.Count("register"), 2U) << "the session stands where the server names itself";
    EXPECT_EQ(Stored()["server_control"]["host"], "eu1.box.zz");
}

TEST_F(SessionTest, StaysWhereTheNewServersNameIsNone) {
    server_.Answer("register", R"({"errno":13,"control_host":"eu1.box.zz/x"})");
    Begin(kLongPlans);
    ASSERT_TRUE(RunUntilFailures(1));
    EXPECT_EQ(server_.Count("register"), 1U);
    EXPECT_EQ(Stored()["server_control"]["host"], "127.0.0.1");
    EXPECT_EQ(session_->State(), RELAYD_STATE_STARTING);
}

TEST_F(SessionTest, MovesThreeTimesInARowAtMost) {
    WriteHosts("127.0.0.1", {"eu1.box.zz", "eu2.box.zz", "eu3.box.zz", "eu4.box.zz"});
    for (int i = 1; i <= 4; ++i) {
        server_.Answer("register",
                       ControlScript::Registered(R"(,"control_host":"eu)" + std::to_string(i) + R"(.box.zz")"));
    }
    Begin(kLongPlans);
    ASSERT_TRUE(RunUntilFailures(1));
    EXPECT_EQ(server_.Count("register"), 4U);
    EXPECT_EQ(session_->Error(), RELAYD_RET_ERR_SERVER_CHANGED);
    EXPECT_EQ(Stored()["server_control"]["host"], "eu3.box.zz");
    EXPECT_GT(*UntilNext(), 5s);
}

TEST_F(SessionTest, MovesToItselfThreeTimesInARowAtMost) {
    server_.AlwaysAnswer("register", R"({"errno":13,"control_host":"127.0.0.1"})");
    Begin(kLongPlans);
    ASSERT_TRUE(RunUntil([&] { return UntilNext().has_value() && server_.Count("register") > 1; }));
    EXPECT_EQ(server_.Count("register"), 4U);
    EXPECT_EQ(session_->State(), RELAYD_STATE_STARTING);
}

TEST_F(SessionTest, ForgetsNamesThatItCouldNotResolve) {
    WriteHosts("127.0.0.1", {});
    Begin(kLongPlans);
    device_->SetControlHost("eu1.box.zz");
    ASSERT_TRUE(RunUntilFailures(1));
    EXPECT_EQ(session_->Error(), RELAYD_RET_ERR_RESOLV);
    EXPECT_LE(*UntilNext(), 50s);
    WriteHosts("127.0.0.1", {"eu1.box.zz"});
    session_->TryNow();
    EXPECT_TRUE(RunUntilCount("wait", 1));
}

TEST_F(SessionTest, FailsWhereNobodyListens) {
    Begin(kLongPlans);
    const auto url = RefusedUrl();
    auto configuration = Stored();
    configuration["server_control"]["port"] = std::stoi(url.substr(url.rfind(':') + 1));
    WriteText(kConfigFile, JsonText::Styled(configuration));
    ASSERT_TRUE(device_->Reload());
    ASSERT_TRUE(RunUntilFailures(1));
    EXPECT_EQ(session_->Error(), RELAYD_RET_ERR_NETWORK);
    EXPECT_EQ(session_->State(), RELAYD_STATE_STARTING);
}

TEST_F(SessionTest, EndsWithNothingUnderWay) {
    Stand(kLongPlans);
    session_->Stop();
    EXPECT_EQ(session_->State(), RELAYD_STATE_LOGOUT);
    EXPECT_TRUE(session_->IsOff());
    EXPECT_TRUE(engine_.Transfers().empty());
    EXPECT_FALSE(UntilNext());
    session_->TryNow();
    session_->RegisterNow();
    EXPECT_TRUE(session_->IsOff()) << "until it is started";
    session_->Start(0ms);
    ASSERT_TRUE(RunUntilCount("wait", 2));
    EXPECT_EQ(server_.Seen("wait")[1]["channel"], "c2");
}

TEST_F(SessionTest, EndsAlsoWhileItRegisters) {
    Begin(kLongPlans);
    ASSERT_TRUE(RunUntil([&] { return !engine_.Transfers().empty(); }));
    session_->Stop();
    EXPECT_TRUE(engine_.Transfers().empty());
    EXPECT_EQ(session_->State(), RELAYD_STATE_LOGOUT);
}

TEST_F(SessionTest, IsUnhealthyWhereNothingLeadsOn) {
    Stand(kLongPlans);
    std::string why;
    EXPECT_TRUE(session_->IsHealthy(why)) << why;
    LetPass(3600s + 20s);
    EXPECT_TRUE(session_->IsHealthy(why)) << "late, but not lost: " << why;
    LetPass(20s);
    EXPECT_FALSE(session_->IsHealthy(why));
    EXPECT_THAT(why, HasSubstr("standing"));
    ASSERT_TRUE(RunUntilCount("keep_alive", 1));
    EXPECT_TRUE(session_->IsHealthy(why));
}

TEST_F(SessionTest, DescribesItselfWithoutASecret) {
    server_.Answer("register",
                   R"({"errno":0,"serverID":"box-1","session":"SECRET1","channel":"SECRET2","keep_alive":60})");
    Stand(kLongPlans);
    const auto described = session_->Describe();
    EXPECT_THAT(JsonText::Styled(described), Not(HasSubstr("SECRET")));
    EXPECT_EQ(described["phase"], "standing");
    EXPECT_EQ(described["state"], "login");
    EXPECT_EQ(described["error"], "success");
    EXPECT_EQ(described["waiting"], true);
    EXPECT_EQ(described["keep_alive_seconds"].asInt(), 60);
    EXPECT_EQ(described["standing_seconds"].asInt(), 0);
}

TEST_F(SessionTest, WritesNoSecretToTheLog) {
    const CapturedLog log;
    server_.Answer("register",
                   R"({"errno":0,"serverID":"box-1","session":"SECRET1","channel":"SECRET2","keep_alive":60})");
    server_.Answer("keep_alive", "SECRET3");
    Begin(kLongPlans);
    ASSERT_TRUE(RunUntilCount("wait", 1));
    LetPass(60s);
    ASSERT_TRUE(RunUntilFailures(1));
    for (const char* secret : {"SECRET1", "SECRET2", "0123456789abcdef", "example-api-key"}) {
        EXPECT_THAT(log.Text(), Not(HasSubstr(secret)));
    }
}
