// SPDX-License-Identifier: Apache-2.0
// The session's other half: what it does with commands.
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "session_fixture.h"

using namespace ardv::test;
using namespace ardv::daemon;
using namespace ARDV::Relay;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

/** Takes connections and answers nothing. */
class SilentServer {
public:
    SilentServer() : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        address_.sin_family = AF_INET;
        address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address_;
        EXPECT_EQ(bind(fd_, reinterpret_cast<sockaddr*>(&address_), size), 0);
        EXPECT_EQ(listen(fd_, SOMAXCONN), 0);
        EXPECT_EQ(getsockname(fd_, reinterpret_cast<sockaddr*>(&address_), &size), 0);
    }
    SilentServer(const SilentServer&) = delete;
    SilentServer& operator=(const SilentServer&) = delete;
    ~SilentServer() { close(fd_); }

    int Port() const { return ntohs(address_.sin_port); }

private:
    int fd_;
    sockaddr_in address_ = {};
};

class WaitTest : public SessionTest {
protected:
    /** Brings commands with these identifiers, and waits until the daemon has asked anew. */
    void Bring(const std::vector<std::string>& ids) {
        Json::Value answer = JsonOf(R"({"errno":0})");
        for (const auto& id : ids) {
            answer["commands"].append(JsonOf(R"({"command":"update_alias"})"))["id"] = id;
        }
        const auto count = server_.Count("wait");
        LetPass(3s);  // so that it does not look like a server in a hurry
        server_.Answer("wait", JsonText::Compact(answer));
        ASSERT_TRUE(RunUntilCount("wait", count + 1));
    }

    /** From now on the session looks for its control server at another port. */
    void LookForControlServerAt(int port) {
        auto configuration = Stored();
        configuration["server_control"]["port"] = port;
        WriteText(kConfigFile, JsonText::Styled(configuration));
        ASSERT_TRUE(device_->Reload());
    }

    /** So many identifiers, numbered. */
    static std::vector<std::string> Ids(int first, int count) {
        std::vector<std::string> ids(static_cast<std::size_t>(count));
        std::generate(ids.begin(), ids.end(), [number = first]() mutable { return std::to_string(number++); });
        return ids;
    }

    Json::Value LastResults() const { return server_.Seen("wait").back()["results"]; }
    std::optional<std::chrono::milliseconds> UntilWait() const { return TimeUntil(loop_, "wait again"); }

    /** Which timer the kernel keeps for the connection to the server that is open: 2 is TCP's keep-alive. */
    int TimerOfConnection() const {
        char server[16] = {};
        std::snprintf(server, sizeof server, "0100007F:%04X", server_.Server()["port"].asUInt());
        std::ifstream table("/proc/net/tcp");
        for (std::string line; std::getline(table, line);) {
            std::istringstream fields(line);
            std::string skip;
            std::string remote;
            std::string state;
            std::string queues;
            std::string timer;
            fields >> skip >> skip >> remote >> state >> queues >> timer;
            if (remote == server && state == "01") {
                return std::stoi(timer.substr(0, 2));
            }
        }
        return -1;
    }

    SilentServer silent_;
};

TEST_F(WaitTest, TellsOfTheTunnelByEachKindOfRequest) {
    tunnel_ = JsonOf(R"({"status":"READY","relay_ip":"198.51.100.7"})");
    Stand(kShortPlans);
    EXPECT_EQ(server_.Seen("register").back()["tunnel"], tunnel_);
    EXPECT_EQ(server_.Seen("wait").back()["tunnel"], tunnel_);
    server_.Answer("wait", "no JSON");
    ASSERT_TRUE(RunUntilCount("keep_alive", 1));
    EXPECT_EQ(server_.Seen("keep_alive").back()["tunnel"], tunnel_);
}

TEST_F(WaitTest, SaysNothingOfATunnelThatIsNotOrdered) {
    Stand(kShortPlans);
    for (const auto& request : server_.Seen()) {
        EXPECT_FALSE(request.isMember("tunnel"));
    }
}

TEST_F(WaitTest, TellsAtOnceWhenTheTunnelChanges) {
    Stand(kLongPlans);
    tunnel_ = JsonOf(R"({"status":"CREATING","relay_ip":"198.51.100.7"})");
    session_->TellTunnel();
    ASSERT_TRUE(RunUntilCount("wait", 2));
    EXPECT_EQ(server_.Seen("wait").back()["tunnel"], tunnel_);
}

TEST_F(WaitTest, LeavesTheTunnelToTheNextWaitWhereNoneIsUnderWay) {
    session_.reset();
    Begin(kLongPlans);
    session_->TellTunnel();
    ASSERT_TRUE(RunUntilCount("wait", 1));
    EXPECT_EQ(server_.Count("wait"), 1U);
}

TEST_F(WaitTest, AsksForNoTunnelOverPlainHttp) {
    EXPECT_NO_FATAL_FAILURE(Stand(kLongPlans));
    EXPECT_FALSE(session_->AskForTunnel([](const Answer&) { FAIL(); }));
    RunUntil([] { return true; });
    EXPECT_EQ(server_.Count("get_tunnel"), 0U);
}

}  // namespace

TEST_F(WaitTest, CarriesCommandsOutAndTellsWhatBecameOfThem) {
    Stand(kLongPlans);
    onCommand_ = [](const ServerCommand& c) { return c.id == "b" ? RELAYD_RET_ERR_NOT_SUPPORT : RELAYD_RET_SUCCESS; };
    Bring({"a", "b"});
    EXPECT_THAT(carriedOut_, ElementsAre("a", "b"));
    EXPECT_EQ(LastResults(), JsonOf(R"([{"id":"a","result":0},{"id":"b","result":9}])"));
    Bring({});
    EXPECT_FALSE(server_.Seen("wait").back().isMember("results")) << "told once";
}

TEST_F(WaitTest, CarriesACommandOutOnce) {
    Stand(kLongPlans);
    int results = 0;
    onCommand_ = [&](const ServerCommand&) { return ++results == 1 ? RELAYD_RET_ERR_VIOLATION : RELAYD_RET_SUCCESS; };
    Bring({"a"});
    Bring({"a"});
    EXPECT_THAT(carriedOut_, ElementsAre("a"));
    EXPECT_EQ(LastResults(), JsonOf(R"([{"id":"a","result":30}])")) << "its first result";
}

TEST_F(WaitTest, CarriesACommandOutAgainInAnotherSession) {
    Stand(kLongPlans);
    Bring({"a"});
    session_->RegisterNow();
    ASSERT_TRUE(RunUntilCount("wait", 3));
    Bring({"a"});
    EXPECT_THAT(carriedOut_, ElementsAre("a", "a"));
}

TEST_F(WaitTest, CarriesOutSixteenCommandsOfAnAnswer) {
    Stand(kLongPlans);
    auto ids = Ids(1, 17);
    Bring(ids);
    ids.pop_back();
    EXPECT_EQ(carriedOut_, ids);
    EXPECT_THAT(LastResults(), SizeIs(16));
}

TEST_F(WaitTest, RemembersTheLast256Commands) {
    Stand(kLongPlans);
    for (int batch = 0; batch < 16; ++batch) {
        Bring(Ids(16 * batch, 16));
    }
    ASSERT_THAT(carriedOut_, SizeIs(256));
    Bring({"0"});
    EXPECT_THAT(carriedOut_, SizeIs(256));
    Bring({"new"});
    Bring({"1"});
    EXPECT_THAT(carriedOut_, SizeIs(257));
    Bring({"0"});
    EXPECT_THAT(carriedOut_, SizeIs(258)) << "the oldest made room";
    EXPECT_EQ(session_->Describe()["commands"].asUInt(), 256U);
}

TEST_F(WaitTest, TellsALateResultAtOnce) {
    Stand(kLongPlans);
    onCommand_ = [](const auto&) { return std::nullopt; };
    Bring({"a"});
    EXPECT_TRUE(LastResults().isNull());
    Bring({"a"});
    EXPECT_THAT(carriedOut_, ElementsAre("a")) << "it is under way";
    EXPECT_TRUE(LastResults().isNull());
    const auto waits = server_.Count("wait");
    session_->Finish("a", RELAYD_RET_ERR_SERVER_BUSY);
    ASSERT_TRUE(RunUntilCount("wait", waits + 1));
    EXPECT_EQ(LastResults(), JsonOf(R"([{"id":"a","result":10}])"));
    EXPECT_THAT(engine_.Transfers(), SizeIs(1)) << "in place of the wait before";
    session_->Finish("a", RELAYD_RET_SUCCESS);
    Bring({});
    EXPECT_TRUE(LastResults().isNull()) << "a second result is none";
}

TEST_F(WaitTest, TellsAResultThatIsThereWhileTheCommandIsCarriedOut) {
    Stand(kLongPlans);
    onCommand_ = [this](const ServerCommand& c) {
        session_->Finish(c.id, RELAYD_RET_ERR_CONFIG);
        return std::nullopt;
    };
    Bring({"a"});
    EXPECT_EQ(LastResults(), JsonOf(R"([{"id":"a","result":3}])"));
}

TEST_F(WaitTest, TellsNoResultOfASessionThatIsOver) {
    Stand(kLongPlans);
    onCommand_ = [](const auto&) { return std::nullopt; };
    Bring({"a"});
    session_->RegisterNow();
    ASSERT_TRUE(RunUntilCount("wait", 3));
    session_->Finish("a", RELAYD_RET_SUCCESS);
    Bring({});
    EXPECT_TRUE(LastResults().isNull());
}

TEST_F(WaitTest, TellsAnotherSessionNothingOfTheCommandsBefore) {
    Stand(kLongPlans);
    Bring({"a"});
    ASSERT_EQ(LastResults(), JsonOf(R"([{"id":"a","result":0}])"));
    session_->RegisterNow();
    ASSERT_TRUE(RunUntilCount("wait", 3));
    EXPECT_TRUE(LastResults().isNull());
}

TEST_F(WaitTest, SurvivesACommandThatEndsTheSession) {
    Stand(kLongPlans);
    onCommand_ = [this](const ServerCommand&) {
        session_->RegisterNow();
        return RELAYD_RET_SUCCESS;
    };
    server_.Answer("wait", R"({"errno":0,"commands":[{"id":"a","command":"x"},{"id":"b","command":"x"}]})");
    ASSERT_TRUE(RunUntilCount("wait", 2));
    EXPECT_THAT(carriedOut_, ElementsAre("a")) << "the other belongs to a session that is over";
    EXPECT_EQ(server_.Seen("wait").back()["channel"], "c2");
    EXPECT_TRUE(LastResults().isNull());
}

TEST_F(WaitTest, TellsAResultAgainThatMayNotHaveArrived) {
    Stand(kShortPlans);
    Bring({"a"});
    server_.Answer("wait", "busy", 503);
    ASSERT_TRUE(RunUntilCount("wait", 3));
    EXPECT_EQ(LastResults(), JsonOf(R"([{"id":"a","result":0}])"));
    Bring({});
    EXPECT_TRUE(LastResults().isNull());
}

TEST_F(WaitTest, AsksTheControlServerWhereAWaitIsNotAnswered) {
    Stand(kLongPlans);
    server_.Answer("wait", "busy", 503);
    ASSERT_TRUE(RunUntilCount("keep_alive", 1));
    ASSERT_TRUE(RunUntil([&] { return UntilNext() > 50s; }));
    EXPECT_EQ(session_->State(), RELAYD_STATE_LOGIN) << "the control server knows the session";
    EXPECT_EQ(session_->Error(), RELAYD_RET_ERR_SERVER_BUSY);
    ASSERT_TRUE(UntilWait());
    EXPECT_LE(*UntilWait(), 50s);
    EXPECT_GT(*UntilWait(), 5s);
    session_->TryNow();
    ASSERT_TRUE(RunUntilCount("wait", 2));
    EXPECT_EQ(session_->Error(), RELAYD_RET_ERR_SERVER_BUSY) << "until the wait has held for a while";
    LetPass(100s);
    ASSERT_TRUE(RunUntil([&] { return session_->Error() == RELAYD_RET_SUCCESS; }));
}

TEST_F(WaitTest, IsInDoubtWhereNeitherServerAnswers) {
    Stand(kLongPlans);
    server_.Answer("keep_alive", "busy", 503);
    server_.Answer("wait", "garbage");
    ASSERT_TRUE(RunUntilFailures(2));
    EXPECT_EQ(session_->State(), RELAYD_STATE_STARTING);
    EXPECT_FALSE(UntilWait()) << "the sign of life comes first";
}

TEST_F(WaitTest, EndsTheSessionWhereTheServerKnowsItNoMore) {
    Stand(kLongPlans);
    server_.Answer("wait", R"({"errno":6})");
    ASSERT_TRUE(RunUntilCount("wait", 2));
    EXPECT_EQ(server_.Count("register"), 2U);
    EXPECT_EQ(server_.Count("keep_alive"), 0U);
    EXPECT_EQ(server_.Seen("wait").back()["channel"], "c2");
}

TEST_F(WaitTest, LeavesItToTheControlServerWhetherTheDeviceIsRefused) {
    for (const int number : {2, 10, 15, 30}) {
        Stand(kLongPlans);
        const auto registrations = server_.Count("register");
        const auto waits = server_.Count("wait");
        server_.Answer("wait", R"({"errno":)" + std::to_string(number) + "}");
        ASSERT_TRUE(RunUntilCount("wait", waits + 1)) << number;
        EXPECT_EQ(server_.Count("register"), registrations + 1) << number;
        EXPECT_EQ(session_->State(), RELAYD_STATE_LOGIN) << number;
        session_.reset();
    }
}

TEST_F(WaitTest, LeavesItToTheControlServerWhereTheDeviceMoves) {
    Stand(kLongPlans);
    server_.Answer("wait", R"({"errno":13,"control_host":"evil.zz"})");
    ASSERT_TRUE(RunUntilCount("wait", 2));
    EXPECT_EQ(server_.Count("register"), 2U) << "at the server that it knows";
    EXPECT_EQ(Stored()["server_control"]["host"], "127.0.0.1");
}

TEST_F(WaitTest, ReadsTheNetworkAnewWhereTheAddressHasChanged) {
    Stand(kLongPlans);
    WriteText(kDeviceSettings, "timezone=\"Amsterdam\"\nexternal_host_ip=\"two.zz\"\n");
    server_.Answer("wait", R"({"errno":14})");
    ASSERT_TRUE(RunUntilCount("wait", 2));
    EXPECT_EQ(server_.Seen("register")[1]["network"]["fqdn"], "two.zz");
}

TEST_F(WaitTest, TakesNoNoticeOfASignOfLifeOfASessionThatIsOver) {
    Stand(kLongPlans);
    server_.Answer("wait", R"({"errno":6})");
    ASSERT_TRUE(RunUntilCount("wait", 2)) << "soon the first time";
    LookForControlServerAt(silent_.Port());
    server_.Answer("wait", "busy", 503);
    ASSERT_TRUE(RunUntil([&] { return UntilWait() && !engine_.Transfers().empty(); }));
    EXPECT_EQ(engine_.Transfers()[0].purpose, "keep alive");
    session_->TryNow();
    ASSERT_TRUE(RunUntilCount("wait", 3));
    server_.Answer("wait", R"({"errno":6})");
    ASSERT_TRUE(RunUntil([&] { return UntilNext().has_value(); }));
    EXPECT_THAT(engine_.Transfers(), IsEmpty());
    EXPECT_EQ(session_->State(), RELAYD_STATE_STARTING);
}

TEST_F(WaitTest, CountsItsFailuresUntilOneHasLasted) {
    Stand(kShortPlans);
    const auto failOnce = [this] {
        const auto waits = server_.Count("wait");
        server_.Answer("wait", R"({"errno":1})");
        EXPECT_TRUE(RunUntilCount("wait", waits + 1));
        EXPECT_TRUE(RunUntil([&] { return session_->Error() == RELAYD_RET_SUCCESS; }));
        return session_->Describe()["wait_failures"].asUInt();
    };
    EXPECT_EQ(failOnce(), 1U);
    EXPECT_EQ(failOnce(), 2U) << "a wait that holds for a moment is not yet a success";
    LetPass(61s);
    EXPECT_EQ(failOnce(), 1U);
}

TEST_F(WaitTest, AsksAgainLaterWhereTheWaitAloneIsRefused) {
    Stand(kLongPlans);
    server_.Answer("wait", R"({"errno":11})");
    ASSERT_TRUE(RunUntil([&] { return UntilWait().has_value(); }));
    EXPECT_GT(*UntilWait(), 11min);
    EXPECT_EQ(session_->State(), RELAYD_STATE_LOGIN);
    EXPECT_EQ(session_->Error(), RELAYD_RET_ERR_SERVER_LIMIT);
    EXPECT_TRUE(engine_.Transfers().empty()) << "a server has answered: no sign of life is needed";
    EXPECT_EQ(server_.Count("register"), 1U);
}

TEST_F(WaitTest, IsNotHurriedByAServerThatHasNothingToSay) {
    server_.AlwaysAnswer("wait", R"({"errno":0,"commands":[]})");
    Begin(kLongPlans);
    ASSERT_TRUE(RunUntil([&] { return UntilWait().has_value(); }));
    EXPECT_EQ(server_.Count("wait"), 4U);
    EXPECT_GT(*UntilWait(), 5s);
    EXPECT_EQ(session_->State(), RELAYD_STATE_LOGIN);
    EXPECT_EQ(session_->Error(), RELAYD_RET_SUCCESS);
    std::string why;
    EXPECT_TRUE(session_->IsHealthy(why)) << why;
}

TEST_F(WaitTest, WaitsAsLongAsItTakes) {
    Stand(kLongPlans);
    LetPass(3500s);  // a request of another kind has 60 s
    EXPECT_FALSE(RunUntil([&, looks = 0]() mutable { return ++looks == 50 || !errors_.Describe().empty(); }) &&
                 !errors_.Describe().empty());
    EXPECT_EQ(server_.Count("wait"), 1U);
    std::string why;
    EXPECT_TRUE(engine_.IsHealthy(why)) << why;
}

TEST_F(WaitTest, TakesAnotherConnectionWhereItsOwnMayBeDead) {
    Begin(kLongPlans);
    session_->WaitAnew();
    EXPECT_THAT(engine_.Transfers(), IsEmpty()) << "there is no session yet";
    ASSERT_TRUE(RunUntilCount("wait", 1));
    session_->WaitAnew();
    ASSERT_TRUE(RunUntilCount("wait", 2));
    EXPECT_THAT(engine_.Transfers(), SizeIs(1));
    EXPECT_EQ(server_.Count("register"), 1U);
}

TEST_F(WaitTest, ProbesTheConnectionMeanwhile) {
    Stand(kLongPlans);
    EXPECT_EQ(TimerOfConnection(), 2);
}
