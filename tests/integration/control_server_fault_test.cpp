// SPDX-License-Identifier: Apache-2.0
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "integration/control_server_fixture.h"
#include "support/handle.h"

namespace ardv::test {
namespace {

class ControlServerFault : public ControlServerFixture {};

TEST_F(ControlServerFault, MeetsOneCommandAsOftenAsTold) {
    Register();
    server.SetFault(R"({"kind":"status","status":503,"command":"keep_alive","count":2})");
    EXPECT_EQ(Post(Registration())["errno"], 0);
    Register();
    EXPECT_EQ(PostText(KeepAliveRequest().toStyledString()), "503 ");
    EXPECT_EQ(PostText(KeepAliveRequest().toStyledString()), "503 ");
    EXPECT_EQ(Post(KeepAliveRequest())["errno"], 0);
}

TEST_F(ControlServerFault, KeepsOneFaultForEachCommandAndOneForAny) {
    Register();
    server.SetFault(R"({"kind":"errno","value":11,"command":"register"})");
    server.SetFault(R"({"kind":"errno","value":12,"command":"wait"})");
    server.SetFault(R"({"kind":"errno","value":13})");
    EXPECT_EQ(Post(WaitRequest())["errno"], 12);
    EXPECT_EQ(Post(Registration())["errno"], 11);
    EXPECT_EQ(Post(KeepAliveRequest())["errno"], 13);
    EXPECT_EQ(Post(KeepAliveRequest())["errno"], 0);
    server.SetFault(R"({"kind":"errno","value":14,"count":0})");
    EXPECT_EQ(PostText("no JSON"), R"(200 {"errno":14})");
    server.ClearFault();
    EXPECT_EQ(Post(KeepAliveRequest())["errno"], 0);
}

TEST_F(ControlServerFault, SendsAnyErrorNumberOfAnyType) {
    for (const std::string value :
         {"5", "-1", "2147483648", "\"5\"", "5.0", "null", "true", "[]", "[5]", R"({"a":1})"}) {
        server.SetFault(R"({"kind":"errno","value":)" + value + "}");
        EXPECT_EQ(PostText("{}"), R"(200 {"errno":)" + value + "}");
    }
    server.SetFault(R"({"kind":"errno","value":13,"members":{"control_host":"other.zz"}})");
    EXPECT_EQ(PostText("{}"), R"(200 {"control_host":"other.zz","errno":13})");
    server.SetFault(R"({"kind":"reply","body":"[]"})");
    EXPECT_EQ(PostText("{}"), "200 []");
    server.SetFault(R"({"kind":"deep","depth":3})");
    EXPECT_EQ(PostText("{}"), R"(200 {"errno":[[[]]]})");
    server.SetFault(R"({"kind":"deep"})");
    EXPECT_EQ(PostText("{}").size(), 4U + 10U + 200'000U);
    EXPECT_TRUE(server.Devices().empty());
}

TEST_F(ControlServerFault, ChangesTheOrdinaryAnswer) {
    server.SetFault(R"({"kind":"answer","members":{"keep_alive":"soon","extra":[1]},"without":["session"]})");
    const Json::Value answer = Post(Registration());
    EXPECT_EQ(answer["errno"], 0);
    EXPECT_EQ(answer["keep_alive"], "soon");
    EXPECT_EQ(answer["extra"][0], 1);
    EXPECT_FALSE(answer.isMember("session"));
    EXPECT_TRUE(answer.isMember("channel"));
    EXPECT_EQ(server.Sessions().size(), 1U) << "the device is registered all the same";
    server.SetFault(R"({"kind":"cookies","cookies":["a=1"]})");
    httplib::Client client(server.HttpUrl());
    const auto dressed = client.Post(kPage, Registration().toStyledString(), "application/json");
    ASSERT_TRUE(dressed);
    EXPECT_EQ(dressed->get_header_value("Set-Cookie"), "a=1");
}

TEST_F(ControlServerFault, ResetsTheConnection) {
    server.SetFault(R"({"kind":"reset"})");
    const Handle socket(ConnectTo(server.HttpPort()));
    const std::string bytes = "POST /Serv.php HTTP/1.1\r\nHost: a\r\nContent-Length: 2\r\n\r\n{}";
    ::send(socket.Number(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    char block[16];
    EXPECT_EQ(::recv(socket.Number(), block, sizeof block, 0), -1);
    EXPECT_EQ(errno, ECONNRESET);
    EXPECT_TRUE(server.WaitFor([&] { return server.Log().find("reply=fault:reset") != std::string::npos; }));
}

TEST_F(ControlServerFault, BreaksAnExchangeInEveryOtherWay) {
    server.SetFault(R"({"kind":"cut","bytes":100})");
    EXPECT_EQ(PostText("{}").substr(0, 1), "(");
    server.SetFault(R"({"kind":"garbage"})");
    EXPECT_EQ(PostText("{}").size(), 4U + 512U);
    server.SetFault(R"({"kind":"garbage","variant":"protocol"})");
    EXPECT_EQ(PostText("{}").substr(0, 1), "(");
    server.SetFault(R"({"kind":"huge","bytes":3000000})");
    EXPECT_EQ(PostText("{}").size(), 4U + 3'000'000U);
    server.SetFault(R"({"kind":"slow","delay_ms":200})");
    const auto begin = Clock::now();
    EXPECT_EQ(PostText("{}").substr(0, 3), "200");
    EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(200));
}

TEST_F(ControlServerFault, StaysSilentUntilItIsCleared) {
    Register();
    server.SetFault(R"({"kind":"silent","command":"wait"})");
    auto wait = std::async(std::launch::async, [this] { return Post(WaitRequest()); });
    EXPECT_TRUE(server.WaitFor([&] { return server.Requests().size() == 2; }));
    EXPECT_EQ(server.Sessions()[id]["waits"], 0) << "the wait never reached the service";
    server.ClearFault();
    EXPECT_TRUE(wait.get().isNull());
}

TEST_F(ControlServerFault, FreesAWaitThatWasToldToBeSilent) {
    Register();
    auto wait = HeldWait();
    EXPECT_EQ(server.BreakWaits(R"({"kind":"silent"})"), 1);
    EXPECT_EQ(wait.wait_for(std::chrono::milliseconds(200)), std::future_status::timeout);
    EXPECT_TRUE(server.WaitFor([&] {
        server.ClearFault();
        return wait.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
    }));
    EXPECT_TRUE(wait.get().isNull());
}

TEST_F(ControlServerFault, RefusesOrdersForFaultsThatAreNone) {
    for (const char* order :
         {R"({"kind":"maintenance"})", R"({"kind":"errno","command":"unregister"})", R"({"kind":"errno","command":5})",
          R"({"kind":"errno","members":[]})", R"({"kind":"deep","depth":0})", R"({"kind":"deep","depth":10000001})",
          R"({"kind":"answer","members":5})", R"({"kind":"answer","without":"errno"})",
          R"({"kind":"answer","without":[1]})", R"({"kind":"reset","bytes":1})"}) {
        const auto answer = Admin("POST", "/sandbox/fault", order);
        ASSERT_TRUE(answer);
        EXPECT_EQ(answer->status, 400) << order;
    }
    for (const char* order : {R"({"kind":"none"})", R"({"kind":"reset","count":2})", "[]", ""}) {
        EXPECT_EQ(Admin("POST", "/sandbox/waits", order)->status, 400) << order;
    }
    EXPECT_EQ(PostText("{}"), R"(200 {"errno":9,"member":"version"})");
}

}  // namespace
}  // namespace ardv::test
