// SPDX-License-Identifier: Apache-2.0
#include <relay/config/server_conf.h>

#include <string>

#include "support/device_test.h"

namespace ARDV::Relay {

namespace {

using namespace ardv::test;

ServerConf Server(const char* json) {
    return ServerConf(JsonOf(json));
}

TEST(ServerConf, StartsWithItsDefaults) {
    EXPECT_EQ(Written(ServerConf(nullptr, nullptr), true),
              "{\"host\":\"\",\"ip\":\"\",\"page\":\"Serv.php\",\"port\":80,\"protocol\":\"http\"}\n");
}

TEST(ServerConf, TakesHostAndPageEachWhereGiven) {
    EXPECT_EQ(ServerConf("a.zz", nullptr).GetUrl(nullptr), "http://a.zz:80/Serv.php");
    EXPECT_EQ(ServerConf("a.zz", "page").GetUrl(nullptr), "http://a.zz:80/page");
    EXPECT_EQ(Written(ServerConf(nullptr, "page"), true),
              "{\"host\":\"\",\"ip\":\"\",\"page\":\"page\",\"port\":80,\"protocol\":\"http\"}\n");
    EXPECT_EQ(ServerConf("a.zz", "").GetUrl(nullptr), "http://a.zz:80/") << "an empty page is a page";
}

TEST(ServerConf, TakesAValueOverTheDefaults) {
    const auto server =
        Server(R"({"protocol":"https","host":"a.zz","ip":"10.0.0.1","port":443,"page":"x.php","other":1})");
    EXPECT_EQ(Written(server, true),
              "{\"host\":\"a.zz\",\"ip\":\"10.0.0.1\",\"page\":\"x.php\",\"port\":443,\"protocol\":\"https\"}\n");
    EXPECT_EQ(Written(Server("null"), true), Written(ServerConf(nullptr, nullptr), true));
}

TEST(ServerConf, MergeChangesOnlyWhatIsNamed) {
    auto server = Server(R"({"protocol":"https","host":"a.zz","ip":"10.0.0.1","port":443,"page":"x.php"})");
    EXPECT_TRUE(server.Overwrite(JsonOf(R"({"ip":"10.0.0.2"})")));
    EXPECT_EQ(Written(server, true),
              "{\"host\":\"a.zz\",\"ip\":\"10.0.0.2\",\"page\":\"x.php\",\"port\":443,\"protocol\":\"https\"}\n");
    EXPECT_TRUE(server.Overwrite(JsonOf(R"({"host":"","page":""})")));
    EXPECT_EQ(Written(server, true),
              "{\"host\":\"\",\"ip\":\"10.0.0.2\",\"page\":\"\",\"port\":443,\"protocol\":\"https\"}\n");
}

TEST(ServerConf, MembersOfAnotherTypeLeaveTheirSettings) {
    auto server = Server(R"({"host":"a.zz","port":8080})");
    const auto before = Written(server, true);
    EXPECT_TRUE(server.Overwrite(JsonOf(R"({"protocol":1,"host":null,"ip":["x"],"port":"443","page":{}})")));
    EXPECT_TRUE(server.Overwrite(JsonOf(R"({"protocol":true,"host":2.5,"ip":{},"port":443.5,"page":[]})")));
    EXPECT_TRUE(server.Overwrite(JsonOf(R"({"port":3000000000})")));
    EXPECT_EQ(Written(server, true), before);
    server.Overwrite(JsonOf(R"({"port":443.0})"));
    EXPECT_EQ(server.GetUrl(""), "http://a.zz:443/") << "a whole real number is an integer";
}

struct UrlCase {
    const char* name;
    const char* server;
    const char* url;  ///< empty: not valid
};

class ServerUrl : public testing::TestWithParam<UrlCase> {};

TEST_P(ServerUrl, IsThatOfAValidServerAndEmptyForAnother) {
    const auto server = Server(GetParam().server);
    const CapturedLog log;
    EXPECT_EQ(server.IsValid(), GetParam().url[0] != '\0');
    EXPECT_EQ(server.GetUrl(nullptr), GetParam().url);
    EXPECT_EQ(log.Text(), "");
}

INSTANTIATE_TEST_SUITE_P(
    Servers, ServerUrl,
    testing::Values(UrlCase{"Host", R"({"host":"a.zz"})", "http://a.zz:80/Serv.php"},
                    UrlCase{"HostBeforeAddress", R"({"host":"a.zz","ip":"10.0.0.1"})", "http://a.zz:80/Serv.php"},
                    UrlCase{"Address", R"({"ip":"10.0.0.1"})", "http://10.0.0.1:80/Serv.php"},
                    UrlCase{"Https", R"({"host":"a.zz","protocol":"https","port":443})", "https://a.zz:443/Serv.php"},
                    UrlCase{"PortZero", R"({"host":"a.zz","port":0})", "http://a.zz:0/Serv.php"},
                    UrlCase{"LargePort", R"({"host":"a.zz","port":2147483647})", "http://a.zz:2147483647/Serv.php"},
                    UrlCase{"Page", R"({"host":"a.zz","page":"x?y=1"})", "http://a.zz:80/x?y=1"},
                    UrlCase{"NoPage", R"({"host":"a.zz","page":""})", "http://a.zz:80/"},
                    UrlCase{"NegativePort", R"({"host":"a.zz","port":-1})", ""},
                    UrlCase{"NeitherHostNorAddress", "{}", ""},
                    UrlCase{"NoProtocol", R"({"host":"a.zz","protocol":""})", ""},
                    UrlCase{"Ftp", R"({"host":"a.zz","protocol":"ftp"})", ""},
                    UrlCase{"Capitals", R"({"host":"a.zz","protocol":"HTTP"})", ""},
                    UrlCase{"OneCapital", R"({"host":"a.zz","protocol":"Https"})", ""},
                    UrlCase{"LongerProtocol", R"({"host":"a.zz","protocol":"httpsx"})", ""}),
    [](const auto& server) { return server.param.name; });

TEST(ServerConf, UrlHasTheGivenPageAndNotTheServersOwn) {
    const auto server = Server(R"({"host":"a.zz"})");
    EXPECT_EQ(server.GetUrl("other.php"), "http://a.zz:80/other.php");
    EXPECT_EQ(server.GetUrl(""), "http://a.zz:80/");
    EXPECT_EQ(Server(R"({"host":"a.zz","port":-1})").GetUrl("other.php"), "");
}

TEST(ServerConf, SavedFormIsTheHostOrTheAddressWhereThereIsNone) {
    EXPECT_EQ(Written(Server(R"({"host":"a.zz","ip":"10.0.0.1","port":1})"), false), "{\"host\":\"a.zz\"}\n");
    EXPECT_EQ(Written(Server(R"({"ip":"10.0.0.1","port":1})"), false), "{\"host\":\"\",\"ip\":\"10.0.0.1\"}\n");
}

TEST(ServerConf, SavedFormKeepsWhatAPersonPutBesideTheHost) {
    auto value = JsonOf(R"({"host":"old.zz","ip":"10.9.9.9","port":8443,"note":"x"})");
    Server(R"({"host":"new.zz","ip":"10.0.0.1"})").Write(value, false);
    EXPECT_EQ(value, JsonOf(R"({"host":"new.zz","ip":"10.9.9.9","port":8443,"note":"x"})"));
}

TEST(ServerConf, IsTheSameServerWithTheSameHostPortAndProtocol) {
    const auto server = Server(R"({"host":"a.zz","ip":"10.0.0.1","page":"x"})");
    const auto isSame = [&server](const char* json) {
        const auto other = Server(json);
        EXPECT_NE(server == other, server != other);
        EXPECT_EQ(server == other, other == server);
        return server == other;
    };
    EXPECT_TRUE(isSame(R"({"host":"a.zz"})"));
    EXPECT_TRUE(isSame(R"({"host":"a.zz","ip":"10.0.0.2","page":"y"})"));
    EXPECT_FALSE(isSame(R"({"host":"b.zz","ip":"10.0.0.1","page":"x"})"));
    EXPECT_FALSE(isSame(R"({"host":"A.zz"})"));
    EXPECT_FALSE(isSame(R"({"host":"a.zz","port":81})"));
    EXPECT_FALSE(isSame(R"({"host":"a.zz","protocol":"https"})"));
    EXPECT_FALSE(isSame(R"({"host":"a.zz\u0000"})"));
}

TEST(ServerConf, SettersReplaceWithoutACheck) {
    ServerConf server(nullptr, nullptr);
    server.SetHost("a.zz");
    server.SetProtocol("ftp");
    server.SetPort(-3);
    EXPECT_FALSE(server.IsValid());
    EXPECT_EQ(server.GetHost(), "a.zz");
    EXPECT_EQ(Written(server, true),
              "{\"host\":\"a.zz\",\"ip\":\"\",\"page\":\"Serv.php\",\"port\":-3,\"protocol\":\"ftp\"}\n");
}

using ServerEnvironment = DeviceTest;

TEST_F(ServerEnvironment, RegionWithoutAFileIsTheFirstLabelWithoutItsLastCharacter) {
    const struct {
        const char* host;
        const char* region;
    } cases[] = {{"abc.example", "ab"}, {"a.example", ""}, {".x", ".x"},        {".", "."},
                 {"localhost", ""},     {"", ""},          {"eu12.a.b", "eu1"}, {"..x", "..x"}};
    const CapturedLog log;
    for (const auto& [host, region] : cases) {
        EXPECT_EQ(ServerConf(host, nullptr).GetRegion(), region) << host;
    }
    EXPECT_EQ(log.Text(), "");
}

TEST_F(ServerEnvironment, RegionOfTheFileCountsForEveryHost) {
    WriteText(kEnvironmentFile, R"({"relay_region":"eu"})");
    EXPECT_EQ(ServerConf("abc.example", nullptr).GetRegion(), "eu");
    EXPECT_EQ(ServerConf("localhost", nullptr).GetRegion(), "eu");
    EXPECT_EQ(ServerConf(nullptr, nullptr).GetRegion(), "eu");
    WriteText(kEnvironmentFile, R"({"relay_region":""})");
    EXPECT_EQ(ServerConf("abc.example", nullptr).GetRegion(), "") << "an empty text is a text";
}

TEST_F(ServerEnvironment, DomainIsThatOfTheFileAndHasNothingToDoWithTheServer) {
    EXPECT_EQ(ServerConf("abc.example", nullptr).GetDDNSDomain(), "");
    WriteText(kEnvironmentFile, R"({"ddns_domain":"direct.zz","relay_region":"eu"})");
    EXPECT_EQ(ServerConf("abc.example", nullptr).GetDDNSDomain(), "direct.zz");
    EXPECT_EQ(ServerConf(nullptr, nullptr).GetDDNSDomain(), "direct.zz");
}

TEST_F(ServerEnvironment, MembersOfAnotherTypeAndFilesOfAnotherShapeCountAsNothing) {
    for (const char* text :
         {R"({"relay_region":1,"ddns_domain":["x"]})", R"([{"relay_region":"eu"}])", "\"eu\"", "{}"}) {
        WriteText(kEnvironmentFile, text);
        EXPECT_EQ(ServerConf("abc.example", nullptr).GetRegion(), "ab") << text;
        EXPECT_EQ(ServerConf("abc.example", nullptr).GetDDNSDomain(), "") << text;
    }
}

TEST_F(ServerEnvironment, DamagedFileIsMovedAsideAndCountsAsNothing) {
    WriteText(kEnvironmentFile, "{\"relay_region\":\"eu\"");
    const CapturedLog log;
    EXPECT_EQ(ServerConf("abc.example", nullptr).GetRegion(), "ab");
    EXPECT_THAT(log.Messages(), testing::ElementsAre("config.cpp bad json format [/usr/ardv/etc/ardvrelayd/env.conf]"));
    EXPECT_FALSE(std::filesystem::exists(kEnvironmentFile));
    EXPECT_EQ(ReadText(std::string(kEnvironmentFile) + ".bad"), "{\"relay_region\":\"eu\"");
    EXPECT_EQ(ServerConf("abc.example", nullptr).GetDDNSDomain(), "");
}

}  // namespace

}  // namespace ARDV::Relay
