// SPDX-License-Identifier: Apache-2.0
#include <sys/socket.h>
#include <unistd.h>

#include <string>

#include "integration/control_server_fixture.h"

namespace ardv::test {
namespace {

class ControlServerWait : public ControlServerFixture {};

TEST_F(ControlServerWait, HoldsAWaitUntilThereIsACommand) {
    Register();
    auto wait = HeldWait();
    EXPECT_EQ(wait.wait_for(std::chrono::milliseconds(300)), std::future_status::timeout);
    const std::string command = server.Command(id, R"({"command":"update_alias"})");
    const Json::Value answer = wait.get();
    EXPECT_EQ(answer["errno"], 0);
    ASSERT_EQ(answer["commands"].size(), 1U);
    EXPECT_EQ(answer["commands"][0]["id"], command);
    EXPECT_EQ(answer["commands"][0]["command"], "update_alias");
    EXPECT_EQ(server.Sessions()[id]["waiting"], false);
    EXPECT_EQ(server.Sessions()[id]["waits"], 1);
}

TEST_F(ControlServerWait, AnswersAtOnceWhatIsQueued) {
    Register();
    for (int i = 0; i < 20; ++i) {
        server.Command(id, R"({"command":"close_tunnel","id":"c)" + std::to_string(i) + "\"}");
    }
    const Json::Value first = Post(WaitRequest())["commands"];
    ASSERT_EQ(first.size(), 16U);
    EXPECT_EQ(first[0]["id"], "c0");
    EXPECT_EQ(first[15]["id"], "c15");
    Json::Value results(Json::arrayValue);
    for (const Json::Value& command : first) {
        Json::Value result;
        result["id"] = command["id"];
        result["result"] = 0;
        results.append(result);
    }
    const Json::Value second = Post(WaitRequest(results.toStyledString()))["commands"];
    ASSERT_EQ(second.size(), 4U);
    EXPECT_EQ(second[0]["id"], "c16");
}

TEST_F(ControlServerWait, SendsACommandOnceWhileItIsCarriedOut) {
    Register();
    server.Command(id, R"({"id":"a","command":"update_alias"})");
    EXPECT_EQ(Post(WaitRequest())["commands"].size(), 1U);
    auto wait = HeldWait();
    EXPECT_EQ(server.Commands()[id][0]["deliveries"], 1);
    server.Command(id, R"({"id":"b","command":"close_tunnel"})");
    const Json::Value commands = wait.get()["commands"];
    ASSERT_EQ(commands.size(), 1U);
    EXPECT_EQ(commands[0]["id"], "b");
    auto last = HeldWait(R"([{"id":"b","result":255},{"id":"a","result":0},{"id":"stray","result":9}])");
    const Json::Value results = server.Results();
    ASSERT_EQ(results.size(), 3U);
    EXPECT_EQ(results[0]["id"], "b");
    EXPECT_EQ(results[0]["serverID"], id);
    EXPECT_EQ(results[0]["result"], 255);
    EXPECT_EQ(results[2]["id"], "stray");
    EXPECT_TRUE(server.Commands().empty());
    server.EndSessions();
    last.get();
}

TEST_F(ControlServerWait, KeepsCommandsForTheNextSession) {
    Register();
    server.Command(id, R"({"command":"update_alias"})");
    server.EndSessions();
    EXPECT_EQ(Post(WaitRequest())["errno"], 6);
    for (int i = 0; i < 2; ++i) {
        Register();
        EXPECT_EQ(Post(WaitRequest())["commands"].size(), 1U) << i;
    }
}

TEST_F(ControlServerWait, KnowsAWaitByItsChannelAlone) {
    Register();
    Json::Value request = WaitRequest(R"([{"id":"a","result":0}])");
    request["channel"] = session;
    EXPECT_EQ(Post(request)["errno"], 6);
    EXPECT_TRUE(server.Results().empty()) << "what a stranger says is no result";
}

TEST_F(ControlServerWait, EndsTheOlderSessionOfADeviceThatRegistersAnew) {
    Register();
    auto wait = HeldWait();
    const Json::Value older = KeepAliveRequest();
    Register();
    EXPECT_EQ(wait.get()["errno"], 6);
    EXPECT_EQ(Post(older)["errno"], 6);
    EXPECT_EQ(Post(KeepAliveRequest())["errno"], 0);
}

TEST_F(ControlServerWait, LetsTheOlderOfTwoWaitsGo) {
    Register();
    auto older = HeldWait();
    auto newer = std::async(std::launch::async, [this] { return Post(WaitRequest()); });
    const Json::Value answer = older.get();
    EXPECT_EQ(answer["errno"], 0);
    EXPECT_TRUE(answer["commands"].empty());
    EXPECT_TRUE(server.AwaitWait(id));
    server.Command(id, R"({"command":"update_alias"})");
    EXPECT_EQ(newer.get()["commands"].size(), 1U);
}

TEST_F(ControlServerWait, NoticesWhenADeviceLeaves) {
    Register();
    const std::string body = WaitRequest().toStyledString();
    const std::string bytes =
        "POST /Serv.php HTTP/1.1\r\nHost: a\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
    const int socket = ConnectTo(server.HttpPort());
    ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    EXPECT_TRUE(server.AwaitWait(id));
    ::close(socket);
    EXPECT_TRUE(server.WaitFor([&] { return !server.Sessions()[id]["waiting"].asBool(); }));
    EXPECT_TRUE(server.WaitFor([&] { return server.Log().find("reply=left") != std::string::npos; }));
    EXPECT_EQ(Post(KeepAliveRequest())["errno"], 0) << "the session stands";
}

TEST_F(ControlServerWait, EndsQuicklyWhileWaitsAreHeld) {
    std::vector<std::future<Json::Value>> waits;
    for (int i = 0; i < 50; ++i) {
        Register(Registration("AV220-" + std::to_string(i)));
        waits.push_back(HeldWait());
    }
    const auto begin = Clock::now();
    EXPECT_EQ(server.Stop(), 0);
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(5));
    for (auto& wait : waits) {
        EXPECT_TRUE(wait.get().isNull());
    }
}

TEST_F(ControlServerWait, BreaksHeldWaitsAsTold) {
    Register();
    auto cut = HeldWait();
    EXPECT_EQ(server.BreakWaits(R"({"kind":"cut"})"), 1);
    EXPECT_TRUE(cut.get().isNull());
    auto refused = HeldWait();
    EXPECT_EQ(server.BreakWaits(R"({"kind":"errno","value":30})"), 1);
    EXPECT_EQ(refused.get()["errno"], 30);
    auto changed = HeldWait();
    EXPECT_EQ(server.BreakWaits(R"({"kind":"answer","members":{"commands":[{"command":"update_alias"}]}})"), 1);
    EXPECT_EQ(changed.get()["commands"].size(), 1U);
    EXPECT_EQ(server.BreakWaits(R"({"kind":"cut"})"), 0);
}

TEST_F(ControlServerWait, RefusesCommandsThatItCannotQueue) {
    Register();
    for (const std::string& order :
         {std::string("[]"), std::string("{}"), std::string(R"({"serverID":"box-9","command":{}})"),
          R"({"serverID":")" + id + R"(","command":"update_alias"})",
          R"({"serverID":")" + id + R"(","command":{"id":5}})",
          R"({"serverID":")" + id + R"(","command":{"id":"a b"}})"}) {
        const auto answer = Admin("POST", "/sandbox/command", order);
        ASSERT_TRUE(answer);
        EXPECT_EQ(answer->status, 400) << order;
    }
    EXPECT_TRUE(server.Commands().empty());
}

class ControlServerResend : public ControlServerFixture {
protected:
    ControlServerResend() : ControlServerFixture({"--resend", "1"}) {}
};

TEST_F(ControlServerResend, SendsACommandWithoutAResultThreeTimes) {
    Register();
    server.Command(id, R"({"id":"a","command":"update_alias"})");
    for (int i = 0; i < 3; ++i) {
        const auto begin = Clock::now();
        const Json::Value commands = Post(WaitRequest())["commands"];
        ASSERT_EQ(commands.size(), 1U);
        EXPECT_EQ(commands[0]["id"], "a");
        EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(i == 0 ? 0 : 900)) << i;
    }
    EXPECT_TRUE(server.Commands().empty());
}

TEST_F(ControlServerResend, SendsACommandWithAResultNoMore) {
    Register();
    server.Command(id, R"({"id":"a","command":"update_alias"})");
    EXPECT_EQ(Post(WaitRequest())["commands"].size(), 1U);
    auto wait = HeldWait(R"([{"id":"a","result":0}])");
    EXPECT_EQ(wait.wait_for(std::chrono::milliseconds(1500)), std::future_status::timeout);
    server.EndSessions();
    wait.get();
}

class ControlServerHold : public ControlServerFixture {
protected:
    ControlServerHold() : ControlServerFixture({"--hold", "1"}) {}
};

TEST_F(ControlServerHold, EndsAWaitInWhichNothingHappens) {
    Register();
    const auto begin = Clock::now();
    const Json::Value answer = Post(WaitRequest());
    EXPECT_GE(Clock::now() - begin, std::chrono::seconds(1));
    EXPECT_EQ(answer["errno"], 0);
    EXPECT_TRUE(answer["commands"].isArray());
    EXPECT_TRUE(answer["commands"].empty());
    EXPECT_EQ(server.Sessions()[id]["waiting"], false);
}

}  // namespace
}  // namespace ardv::test
