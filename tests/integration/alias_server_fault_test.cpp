// SPDX-License-Identifier: Apache-2.0
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <future>
#include <string>
#include <vector>

#include "integration/alias_server_fixture.h"

namespace ardv::test {
namespace {

class AliasServerFault : public AliasServerFixture {};

TEST_F(AliasServerFault, FailsWithAnyStatusOnDemand) {
    for (const int status : {204, 299, 404, 500, 503, 505, 999}) {
        server.SetFault("{\"kind\":\"status\",\"status\":" + std::to_string(status) + "}");
        httplib::Client client(server.HttpUrl());
        const auto answer = client.Post(kUpdate, Device("S1", "home"));
        ASSERT_TRUE(answer) << status;
        EXPECT_EQ(answer->status, status);
    }
    server.SetFault("{\"kind\":\"status\",\"status\":503,\"body\":\"later\"}");
    EXPECT_EQ(PostText("a=b"), "503 later");
    EXPECT_TRUE(server.Registry()["devices"].empty());
}

TEST_F(AliasServerFault, FailsAsOftenAsToldAndThenRecovers) {
    server.SetFault(R"({"kind":"status","status":500,"count":2})");
    EXPECT_EQ(PostText("a=b"), "500 ");
    EXPECT_EQ(PostText("a=b"), "500 ");
    EXPECT_EQ(PostText("a=b"), "200 badparam:action");
    server.SetFault(R"({"kind":"status","status":500,"count":0})");
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(PostText("a=b"), "500 ");
    }
    server.ClearFault();
    EXPECT_EQ(PostText("a=b"), "200 badparam:action");
}

TEST_F(AliasServerFault, AnswersLateWhenToldToBeSlow) {
    server.SetFault(R"({"kind":"slow","delay_ms":300})");
    const auto begin = Clock::now();
    EXPECT_EQ(Post("map_alias", Device("S1", "home")), "good");
    EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(300));
}

TEST_F(AliasServerFault, StaysSilentUntilTheClientGivesUp) {
    server.SetFault(R"({"kind":"silent"})");
    httplib::Client client(server.HttpUrl());
    client.set_read_timeout(std::chrono::milliseconds(200));
    EXPECT_FALSE(client.Post(kUpdate, Device("S1", "home")));
    EXPECT_EQ(Post("map_alias", Device("S1", "home")), "good");
    EXPECT_TRUE(WaitFor([&] { return server.Log().find("reply=fault:silent") != std::string::npos; }));
}

TEST_F(AliasServerFault, ServesTheTestInterfaceUnderManySilentConnections) {
    server.SetFault(R"({"kind":"silent","count":0})");
    std::vector<std::future<std::string>> clients;
    for (int i = 0; i < 100; ++i) {
        clients.push_back(std::async(std::launch::async, [this] { return PostText("a=b"); }));
    }
    EXPECT_TRUE(WaitFor([&] { return server.Requests().size() == 100; }));
    server.ClearFault();
    for (auto& client : clients) {
        EXPECT_NE(client.get().substr(0, 3), "200");
    }
    EXPECT_EQ(PostText("a=b"), "200 badparam:action");
}

TEST_F(AliasServerFault, EndsQuicklyWhileConnectionsAreHeld) {
    server.SetFault(R"({"kind":"silent"})");
    auto silent = std::async(std::launch::async, [this] { return PostText("a=b"); });
    EXPECT_TRUE(WaitFor([&] { return server.Requests().size() == 1; }));
    server.SetFault(R"({"kind":"slow","delay_ms":60000})");
    auto slow = std::async(std::launch::async, [this] { return PostText("a=b"); });
    EXPECT_TRUE(WaitFor([&] { return server.Requests().size() == 2; }));
    const int idle = ConnectTo(server.HttpPort());
    EXPECT_EQ(server.Stop(), 0) << "by itself within 10 seconds, not after the minute that it was told to take";
    EXPECT_NE(silent.get().substr(0, 3), "200");
    EXPECT_NE(slow.get().substr(0, 3), "200");
    ::close(idle);
}

TEST_F(AliasServerFault, CutsItsAnswerInTheMiddle) {
    server.SetFault(R"({"kind":"cut","bytes":100})");
    const std::string answer = Raw("POST /alias_update.php HTTP/1.1\r\nHost: a\r\nContent-Length: 3\r\n\r\na=b");
    EXPECT_NE(answer.find("Content-Length: 100\r\n"), std::string::npos);
    EXPECT_EQ(answer.substr(answer.find("\r\n\r\n") + 4), std::string(50, 'x'));
    server.SetFault(R"({"kind":"cut"})");
    httplib::Client client(server.HttpUrl());
    EXPECT_EQ(client.Post(kUpdate, Device("S1", "home")).error(), httplib::Error::Read);
}

TEST_F(AliasServerFault, AnswersGarbage) {
    server.SetFault(R"({"kind":"garbage"})");
    const std::string body = PostText("a=b");
    EXPECT_EQ(body.substr(0, 4), "200 ");
    EXPECT_EQ(body.size(), 4U + 512U);
    EXPECT_TRUE(std::any_of(body.begin(), body.end(), [](char c) { return static_cast<unsigned char>(c) >= 0x80; }));
    server.SetFault(R"({"kind":"garbage","variant":"protocol"})");
    const std::string answer = Raw("POST /alias_update.php HTTP/1.1\r\nHost: a\r\nContent-Length: 3\r\n\r\na=b");
    EXPECT_EQ(answer.size(), 512U);
    EXPECT_EQ(answer.find("HTTP"), std::string::npos);
}

TEST_F(AliasServerFault, SendsAHugeBodyAsAStream) {
    server.SetFault(R"({"kind":"huge"})");
    httplib::Client client(server.HttpUrl());
    size_t total = 0;
    httplib::Request request;
    request.method = "POST";
    request.path = kUpdate;
    request.content_receiver = [&](const char*, size_t size, uint64_t, uint64_t) {
        total += size;
        return true;
    };
    ASSERT_TRUE(client.send(request));
    EXPECT_EQ(total, 100'000'000U);
    std::ifstream file("/proc/" + std::to_string(server.Pid()) + "/status");
    std::string line;
    while (std::getline(file, line) && line.rfind("VmHWM:", 0) != 0) {
    }
    EXPECT_LT(std::atol(line.c_str() + 6), 80'000) << line;
}

TEST_F(AliasServerFault, SetsCookiesWithItsAnswer) {
    server.SetFault(R"({"kind":"cookies","cookies":["session=1; Path=/","other=2"]})");
    httplib::Client client(server.HttpUrl());
    Fields fields = Device("S1", "home");
    fields.emplace("action", "map_alias");
    const auto answer = client.Post(kUpdate, fields);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->body, "good");
    ASSERT_EQ(answer->get_header_value_count("Set-Cookie"), 2U);
    EXPECT_EQ(answer->get_header_value("Set-Cookie", 0), "session=1; Path=/");
    EXPECT_EQ(answer->get_header_value("Set-Cookie", 1), "other=2");
}

TEST_F(AliasServerFault, RepliesWhatItIsTold) {
    server.SetFault(R"({"kind":"reply","body":" good\r\n"})");
    EXPECT_EQ(PostText("a=b"), "200  good\r\n");
    server.SetFault(R"({"kind":"maintenance"})");
    EXPECT_EQ(Post("map_alias", Device("S1", "home")), "911");
    EXPECT_TRUE(server.Registry()["devices"].empty());
}

TEST_F(AliasServerFault, RefusesOrdersForFaultsThatAreNone) {
    const std::string deep(100'000, '[');
    for (const std::string& order :
         {std::string(), std::string("{"), std::string("[]"), std::string("{}"), deep,
          std::string(R"({"kind":"nope"})"), std::string(R"({"kind":7})"), std::string(R"({"kind":"status"})"),
          std::string(R"({"kind":"status","status":99})"), std::string(R"({"kind":"status","status":1000})"),
          std::string(R"({"kind":"status","status":"500"})"), std::string(R"({"kind":"slow","delay_ms":-1})"),
          std::string(R"({"kind":"silent","count":1.5})"), std::string(R"({"kind":"silent","bytes":1})"),
          std::string(R"({"kind":"garbage","variant":"other"})"), std::string(R"({"kind":"cookies","cookies":[]})"),
          std::string(R"({"kind":"cookies","cookies":["a=1\r\nX: y"]})"), std::string(R"({"kind":"reply"})"),
          std::string(R"({"kind":"huge","bytes":0})")}) {
        const auto answer = Admin("POST", "/sandbox/fault", order);
        ASSERT_TRUE(answer) << order.substr(0, 60);
        EXPECT_EQ(answer->status, 400) << order.substr(0, 60);
        Json::Value json;
        EXPECT_TRUE(Json::Reader().parse(answer->body, json)) << answer->body;
        EXPECT_FALSE(json["error"].asString().empty());
    }
    EXPECT_EQ(PostText("a=b"), "200 badparam:action");
}

}  // namespace
}  // namespace ardv::test
