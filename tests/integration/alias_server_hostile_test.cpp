// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <future>
#include <string>
#include <vector>

#include "integration/alias_server_fixture.h"

namespace ardv::test {
namespace {

class AliasServerHostile : public AliasServerFixture {};

TEST_F(AliasServerHostile, ShowsTheRequestsItSaw) {
    httplib::Client client(server.HttpUrl());
    const httplib::Headers headers{{"Cookie", "session=1"}, {"User-Agent", "Tethra/7.0.0"}};
    client.Post("/alias_update.php?x=%31", headers, "action=map_alias&token=hush", "application/x-www-form-urlencoded");
    client.Get("/elsewhere");
    const Json::Value requests = server.Requests();
    ASSERT_EQ(requests.size(), 2U);
    EXPECT_EQ(requests[0]["method"], "POST");
    EXPECT_EQ(requests[0]["path"], kUpdate);
    EXPECT_EQ(requests[0]["query"], "x=%31");
    EXPECT_EQ(requests[0]["body"], "action=map_alias&token=hush");
    EXPECT_EQ(requests[0]["tls"], false);
    EXPECT_EQ(requests[0]["headers"]["Cookie"], "session=1");
    EXPECT_EQ(requests[0]["headers"]["User-Agent"], "Tethra/7.0.0");
    EXPECT_EQ(requests[0]["headers"]["Content-Type"], "application/x-www-form-urlencoded");
    EXPECT_EQ(requests[1]["path"], "/elsewhere");
    server.ClearRequests();
    EXPECT_TRUE(server.Requests().empty());
}

TEST_F(AliasServerHostile, KeepsTheLastThousandRequests) {
    for (int i = 0; i < 1005; ++i) {
        httplib::Client(server.HttpUrl()).Get("/" + std::to_string(i));
    }
    const Json::Value requests = server.Requests();
    ASSERT_EQ(requests.size(), 1000U);
    EXPECT_EQ(requests[0]["path"], "/5");
    EXPECT_EQ(requests[999]["path"], "/1004");
}

TEST_F(AliasServerHostile, KeepsSecretsOutOfItsLog) {
    Fields fields = Device("S1", "home");
    for (const char* name : {"token", "key", "kova_password", "auth_key"}) {
        fields = With(fields, name, std::string("hush-") + name);
    }
    EXPECT_EQ(Post("map_alias", fields), "good");
    EXPECT_TRUE(WaitFor([&] { return server.Log().find("action=map_alias") != std::string::npos; }));
    const std::string log = server.Log();
    EXPECT_NE(log.find("alias=home reply=good"), std::string::npos) << log;
    EXPECT_NE(log.find("&token=***"), std::string::npos) << log;
    EXPECT_EQ(log.find("hush"), std::string::npos) << log;
}

TEST_F(AliasServerHostile, WritesOneLineARequestWhateverIsInIt) {
    PostText("action=a%22b%5C&alias=%E2%82%AC x");
    PostText("alias=line%0Afeed");
    EXPECT_TRUE(WaitFor([&] { return server.Log().find("form=unreadable") != std::string::npos; }));
    const std::string log = server.Log();
    EXPECT_NE(log.find("action=a\\x22b\\x5C alias=\\xE2\\x82\\xAC\\x20x"), std::string::npos) << log;
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 3) << log;
}

TEST_F(AliasServerHostile, RefusesFormsThatAreNone) {
    for (const std::string& body :
         {std::string("alias"), std::string("=x"), std::string("a=%"), std::string("a=%4"), std::string("a=%zz"),
          std::string("a=%+1"), std::string("a=1&a=2"), std::string("a=1&"), std::string("&"), std::string("a=%00"),
          std::string("a=\0b", 4), std::string("a=\xFF\xFE"), std::string("a=%C0%80"), std::string("a=%ED%A0%80"),
          std::string("a=%F4%90%80%80"), std::string("a=%E2%82"), std::string("%0D=x")}) {
        EXPECT_EQ(PostText(body), "200 badparam:form") << body;
    }
    std::string many;
    for (int i = 0; i < 65; ++i) {
        many += (i ? "&f" : "f") + std::to_string(i) + "=x";
    }
    EXPECT_EQ(PostText(many), "200 badparam:form");
}

TEST_F(AliasServerHostile, ReadsOrdinaryFormEncoding) {
    EXPECT_EQ(PostText("action=map%5Falias&alias=home&serial=S+1&token=%C3%A9&id=1&key=&mac=&model=AV%2D220"),
              "200 good");
    EXPECT_EQ(server.Registry()["devices"]["S 1"]["token"].asString(), "\xC3\xA9");
}

TEST_F(AliasServerHostile, BoundsTheBody) {
    const std::string fits = "a=" + std::string(64 * 1024 - 2, 'x');
    EXPECT_EQ(PostText(fits), "200 badparam:action");
    EXPECT_EQ(PostText(fits + "x").substr(0, 3), "413");
    EXPECT_EQ(PostText(std::string(1 << 20, 'x')).substr(0, 3), "413");
    EXPECT_EQ(PostText("a=b"), "200 badparam:action");
}

TEST_F(AliasServerHostile, BoundsABodyInChunks) {
    std::string chunks;
    for (int i = 0; i < 20; ++i) {
        chunks += "1000\r\n" + std::string(0x1000, 'x') + "\r\n";
    }
    const std::string head = "POST /alias_update.php HTTP/1.1\r\nHost: a\r\nTransfer-Encoding: chunked\r\n\r\n";
    EXPECT_EQ(Raw(head + chunks + "0\r\n\r\n").substr(0, 12), "HTTP/1.1 413");
    EXPECT_NE(Raw(head + "3\r\na=b\r\n0\r\n\r\n").find("badparam:action"), std::string::npos);
}

TEST_F(AliasServerHostile, BoundsTheHead) {
    std::string few = "GET /elsewhere HTTP/1.1\r\n";
    for (int i = 0; i < 1'000; ++i) {
        few += "X-" + std::to_string(i) + ": y\r\n";
    }
    EXPECT_EQ(Raw(few + "\r\n").substr(0, 12), "HTTP/1.1 404");
    EXPECT_EQ(Raw(few + "X: " + std::string(8'000, 'y') + "\r\n\r\n").substr(0, 12), "HTTP/1.1 404");
    std::string many = few;
    for (int i = 0; i < 20; ++i) {
        many += "X: " + std::string(8'000, 'y') + "\r\n";
    }
    EXPECT_NE(Raw(many + "\r\n").substr(0, 12), "HTTP/1.1 404");
    EXPECT_EQ(PostText("a=b"), "200 badparam:action");
}

TEST_F(AliasServerHostile, SurvivesWhatIsNoHttp) {
    std::string everyByte;
    for (int i = 0; i < 256; ++i) {
        everyByte += static_cast<char>(i);
    }
    const std::string endless = "GET / HTTP/1.1\r\n" + std::string(300'000, 'h');
    std::string headers = "GET / HTTP/1.1\r\n";
    for (int i = 0; i < 20'000; ++i) {
        headers += "X-" + std::to_string(i) + ": y\r\n";
    }
    for (const std::string& bytes :
         {std::string(), std::string("\r\n\r\n"), everyByte, endless, headers + "\r\n",
          std::string("GET /") + std::string(100'000, '(') + " HTTP/1.1\r\n\r\n",
          std::string("GET /%00%ff%zz HTTP/1.1\r\nHost: a\r\n\r\n"),
          std::string("POST /alias_update.php HTTP/1.1\r\nContent-Length: -1\r\n\r\nx"),
          std::string("POST /alias_update.php HTTP/1.1\r\nContent-Length: 99\r\n\r\nshort"),
          std::string("POST /alias_update.php HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\n"),
          std::string("POST /alias_update.php HTTP/1.1\r\nContent-Encoding: gzip\r\nContent-Length: 3\r\n\r\nabc")}) {
        Raw(bytes);
        EXPECT_EQ(PostText("a=b"), "200 badparam:action") << bytes.substr(0, 60);
    }
    EXPECT_EQ(PostText("--b\r\n", "multipart/form-data; boundary=b").substr(0, 3), "415");
    EXPECT_EQ(server.Stop(), 0);
}

TEST_F(AliasServerHostile, ServesManyClientsAtOnce) {
    std::vector<std::future<std::string>> clients;
    for (int i = 0; i < 40; ++i) {
        const std::string name = std::to_string(i);
        clients.push_back(
            std::async(std::launch::async, [this, name] { return Post("map_alias", Device("S" + name, "a" + name)); }));
    }
    for (auto& client : clients) {
        EXPECT_EQ(client.get(), "good");
    }
    EXPECT_EQ(server.Registry()["aliases"].size(), 40U);
    EXPECT_EQ(server.Registry()["devices"].size(), 40U);
}

}  // namespace
}  // namespace ardv::test
