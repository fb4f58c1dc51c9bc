// SPDX-License-Identifier: Apache-2.0
#include "control_messages.h"

#include <algorithm>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/device_test.h"
#include "support/http_server.h"

using namespace ardv::test;
using namespace ardv::daemon;
using namespace ARDV::Relay;
using namespace std::chrono_literals;
using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

namespace {

/** What the daemon makes of a server's answer. */
Answer AnswerTo(int status, const std::string& body) {
    HttpServer server;
    server.On("/", status, body);
    Request request(server.Url().c_str(), "{}", true);
    const CapturedLog quiet(0);
    request.Send();
    return ReadAnswer(request);
}

Json::Value RegistrationWith(const std::string& members) {
    return JsonOf(R"({"errno":0,"serverID":"box-1","session":"s1","channel":"c1")" + members + "}");
}

std::vector<std::string> IdsOf(const std::vector<ServerCommand>& commands) {
    std::vector<std::string> ids;
    std::transform(commands.begin(), commands.end(), std::back_inserter(ids), [](const auto& c) { return c.id; });
    return ids;
}

class RegisterMessageTest : public DeviceTest {
protected:
    static RelaydConf Load(const std::string& text) {
        WriteText(kConfigFile, text);
        return RelaydConf(kConfigFile);
    }
};

}  // namespace

TEST(ControlAnswer, IsWhatTheServerSays) {
    const auto answer = AnswerTo(200, R"({"errno":0,"keep_alive":70})");
    EXPECT_EQ(answer.result, RELAYD_RET_SUCCESS);
    EXPECT_EQ(answer.serverError, RELAYSERVER_ERR_SUCCESS);
    EXPECT_EQ(answer.body["keep_alive"], 70);
}

TEST(ControlAnswer, HasTheServersErrorNumber) {
    const auto answer = AnswerTo(200, R"({"errno":6})");
    EXPECT_EQ(answer.result, RELAYD_RET_ERR_AUTH);
    EXPECT_EQ(answer.serverError, RELAYSERVER_ERR_SESSION_TIMEOUT);
}

TEST(ControlAnswer, CountsAMissingErrorNumberOrOneOfAnotherTypeAsUnknown) {
    for (const char* body : {"{}", R"({"errno":"0"})", R"({"errno":null})", R"({"errno":[0]})", R"({"errno":0.5})",
                             R"({"errno":true})", R"({"errno":99999999999})", R"({"Errno":0})"}) {
        const auto answer = AnswerTo(200, body);
        EXPECT_EQ(answer.result, RELAYD_RET_ERR_UNKNOWN) << body;
        EXPECT_EQ(answer.serverError, RELAYSERVER_ERR_UNKNOWN) << body;
    }
}

TEST(ControlAnswer, IsNoneWithoutAJsonObject) {
    const std::vector<std::string> bodies = {"",
                                             "null",
                                             "0",
                                             "\"errno\"",
                                             "[]",
                                             R"([{"errno":0}])",
                                             "{\"errno\":0",
                                             "ok",
                                             std::string(5000, '['),
                                             std::string(5000, '{')};
    for (const auto& body : bodies) {
        const auto answer = AnswerTo(200, body);
        EXPECT_EQ(answer.result, RELAYD_RET_ERR_UNKNOWN) << body.substr(0, 20);
        EXPECT_FALSE(answer.serverError) << body.substr(0, 20);
        EXPECT_TRUE(answer.body.isNull()) << body.substr(0, 20);
    }
}

TEST(ControlAnswer, IsNoneForValuesWithinEachOtherTooDeeply) {
    const std::string deep = R"({"errno":0,"x":)" + std::string(2000, '[') + std::string(2000, ']') + "}";
    const auto answer = AnswerTo(200, deep);
    EXPECT_EQ(answer.result, RELAYD_RET_ERR_UNKNOWN);
    EXPECT_FALSE(answer.serverError);
}

TEST(ControlAnswer, TakesOneMebibyteAndNoMore) {
    const std::string head = R"({"errno":0,"x":")";
    const auto bodyOf = [&](std::size_t size) { return head + std::string(size - head.size() - 2, 'x') + "\"}"; };
    EXPECT_EQ(AnswerTo(200, bodyOf(1048576)).result, RELAYD_RET_SUCCESS);
    const auto tooLarge = AnswerTo(200, bodyOf(1048577));
    EXPECT_EQ(tooLarge.result, RELAYD_RET_ERR_UNKNOWN);
    EXPECT_FALSE(tooLarge.serverError);
}

TEST(ControlAnswer, IsAFailureOfTheServerForAnyOtherStatus) {
    const char* good = R"({"errno":0})";
    EXPECT_EQ(AnswerTo(404, good).result, RELAYD_RET_ERR_NETWORK);
    EXPECT_EQ(AnswerTo(503, good).result, RELAYD_RET_ERR_SERVER_BUSY);
    EXPECT_EQ(AnswerTo(204, "").result, RELAYD_RET_ERR_UNKNOWN);
    EXPECT_FALSE(AnswerTo(503, good).serverError);
}

TEST(ControlAnswer, IsAFailureOfTheNetworkWhereItDoesNotArriveWhole) {
    const RawServer server("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n{\"errno\":0}");
    Request request(server.Url().c_str(), "{}", true);
    const CapturedLog quiet(0);
    request.Send();
    const auto answer = ReadAnswer(request);
    EXPECT_EQ(answer.result, RELAYD_RET_ERR_NETWORK);
    EXPECT_FALSE(answer.serverError);
}

TEST_F(RegisterMessageTest, TellsWhoTheDeviceIsAndWhatItOffers) {
    const auto configuration = Load(R"({"serverID":"box-1","server_alias":{"alias":"attic"},
        "server_smartdns":{"enabled":true},"service":[{"id":"made-up","name":"Made up","port":5000,"ext_port":6000}]})");
    WriteText(kDeviceSettings, "timezone=\"Amsterdam\"\nexternal_host_ip=\"box.zz\"\n");
    const auto message = RegisterMessage(configuration, NetworkConf(true), AuthConf(true));
    EXPECT_EQ(message["version"], 1);
    EXPECT_EQ(message["command"], "register");
    EXPECT_EQ(message["identity"],
              JsonOf(R"({"serial":"AV0000000001","mac":"02:00:5e:10:00:01","model":"AV-220","timezone":"Amsterdam",
                  "token":"0123456789abcdef0123456789abcdef","key":"example-api-key"})"));
    EXPECT_EQ(message["serverID"], "box-1");
    EXPECT_EQ(message["alias"], "attic");
    EXPECT_EQ(message["service"], JsonOf(R"([{"id":"made-up","name":"Made up","port":5000,"ext_port":6000}])"));
    EXPECT_EQ(message["network"]["fqdn"], "box.zz");
    EXPECT_TRUE(message["network"]["interface"].isArray());
    EXPECT_EQ(message["smartdns"], JsonOf(R"({"enabled":true})"));
    EXPECT_TRUE(message["daemon"]["version"].isString());
}

TEST_F(RegisterMessageTest, LeavesOutWhatTheDeviceHasNot) {
    const auto message = RegisterMessage(Load("{}"), NetworkConf(true), AuthConf(true));
    EXPECT_FALSE(message.isMember("serverID"));
    EXPECT_FALSE(message.isMember("alias"));
    EXPECT_EQ(message["service"], Json::Value(Json::arrayValue));
    EXPECT_EQ(message["smartdns"], JsonOf(R"({"enabled":false})"));
}

TEST_F(RegisterMessageTest, HasNoOtherMembers) {
    const auto configuration = Load(R"({"serverID":"box-1","server_alias":{"alias":"attic"},
        "server_kova":{"account":"someone@box.zz"},"log_file":"/var/log/x","tethra":{"enabled":true}})");
    EXPECT_THAT(RegisterMessage(configuration, NetworkConf(true), AuthConf(true)).getMemberNames(),
                UnorderedElementsAre("version", "command", "identity", "serverID", "alias", "service", "network",
                                     "smartdns", "daemon"));
}

TEST_F(RegisterMessageTest, HasEmptyTextsWithoutAnIdentity) {
    const CapturedLog quiet(0);
    std::filesystem::remove(kIdentityFile);
    const auto identity = RegisterMessage(Load("{}"), NetworkConf(true), AuthConf(true))["identity"];
    for (const char* key : {"serial", "token", "key"}) {
        EXPECT_EQ(identity[key], "") << key;
    }
}

TEST(KeepAliveMessage, NamesTheSessionAndNotTheChannel) {
    EXPECT_EQ(KeepAliveMessage({"box-1", "s1", "c1"}),
              JsonOf(R"({"version":1,"command":"keep_alive","serverID":"box-1","session":"s1"})"));
}

TEST(TunnelMessage, NamesTheSession) {
    EXPECT_EQ(TunnelMessage({"box-1", "s1", "c1"}),
              JsonOf(R"({"version":1,"command":"get_tunnel","serverID":"box-1","session":"s1"})"));
}

TEST(MessageWithTunnel, HasItWhereThereIsOne) {
    const auto plain = KeepAliveMessage({"box-1", "s1", "c1"});
    EXPECT_EQ(WithTunnel(plain, Json::nullValue), plain);
    EXPECT_EQ(WithTunnel(plain, JsonOf(R"({"status":"READY"})"))["tunnel"], JsonOf(R"({"status":"READY"})"));
}

TEST(WaitMessage, NamesTheChannelAndNotTheSession) {
    EXPECT_EQ(WaitMessage({"box-1", "s1", "c1"}, {}),
              JsonOf(R"({"version":1,"command":"wait","serverID":"box-1","channel":"c1"})"));
}

TEST(WaitMessage, TellsTheOutcomesOfCommands) {
    const auto message = WaitMessage({"box-1", "s1", "c1"}, {{"7", RELAYD_RET_SUCCESS}, {"8", RELAYD_RET_ERR_AUTH}});
    EXPECT_EQ(message["results"], JsonOf(R"([{"id":"7","result":0},{"id":"8","result":8}])"));
}

TEST(Registration, HasTheCredentialsAndTheTerms) {
    const auto registration = ReadRegistration(
        RegistrationWith(R"(,"keep_alive":120,"smartdns":{"enabled":true},"reachable":true,"news":[1])"));
    ASSERT_TRUE(registration);
    EXPECT_EQ(registration->credentials.serverId, "box-1");
    EXPECT_EQ(registration->credentials.session, "s1");
    EXPECT_EQ(registration->credentials.channel, "c1");
    EXPECT_EQ(registration->terms.keepAlive, 120s);
    EXPECT_EQ(registration->terms.smartDns, true);
    EXPECT_EQ(registration->terms.reachable, true);
}

TEST(Registration, IsNoneWithoutOneOfItsRequiredMembers) {
    for (const char* key : {"serverID", "session", "channel"}) {
        auto answer = RegistrationWith("");
        answer.removeMember(key);
        EXPECT_FALSE(ReadRegistration(answer)) << key;
        for (const char* wrong : {"null", "1", "true", "[]", "{}", "[\"s1\"]", "\"\"", "\"a b\"", "\"a/b\"", "\"a\\n\"",
                                  "\"a\\u0000\"", "\"\\u00e9\"", "\"a\\\"\""}) {
            answer[key] = JsonOf(wrong);
            EXPECT_FALSE(ReadRegistration(answer)) << key << ": " << wrong;
        }
    }
}

TEST(Registration, TakesIdentifiersUpToTheirLengths) {
    const struct {
        const char* key;
        std::size_t longest;
    } limits[] = {{"serverID", 64}, {"session", 128}, {"channel", 128}};
    for (const auto& [key, longest] : limits) {
        auto answer = RegistrationWith("");
        answer[key] = std::string(longest, 'x');
        EXPECT_TRUE(ReadRegistration(answer)) << key;
        answer[key] = std::string(longest + 1, 'x');
        EXPECT_FALSE(ReadRegistration(answer)) << key;
    }
    auto answer = RegistrationWith("");
    answer["serverID"] = "AZaz09._-";
    EXPECT_TRUE(ReadRegistration(answer));
}

TEST(Terms, AreNoneWithoutTheirMembers) {
    const auto terms = ReadTerms(JsonOf("{}"));
    EXPECT_FALSE(terms.keepAlive);
    EXPECT_FALSE(terms.smartDns);
    EXPECT_FALSE(terms.reachable);
}

TEST(Terms, HoldTheKeepAliveIntervalWithinItsBounds) {
    const struct {
        const char* number;
        std::chrono::seconds expected;
    } rows[] = {{"60", 60s},
                {"86400", 24h},
                {"59", 60s},
                {"0", 60s},
                {"-5", 60s},
                {"86401", 24h},
                {"9223372036854775807", 24h},
                {"-9223372036854775808", 60s}};
    for (const auto& [number, expected] : rows) {
        EXPECT_EQ(ReadTerms(JsonOf(std::string(R"({"keep_alive":)") + number + "}")).keepAlive, expected) << number;
    }
}

TEST(Terms, PassOverMembersOfAnotherType) {
    for (const char* wrong : {"null", "\"120\"", "true", "[120]", "{}", "120.5", "1e300"}) {
        EXPECT_FALSE(ReadTerms(JsonOf(std::string(R"({"keep_alive":)") + wrong + "}")).keepAlive) << wrong;
    }
    for (const char* wrong : {"null", "1", "\"true\"", "[]", "{}"}) {
        EXPECT_FALSE(ReadTerms(JsonOf(std::string(R"({"reachable":)") + wrong + "}")).reachable) << wrong;
        EXPECT_FALSE(ReadTerms(JsonOf(std::string(R"({"smartdns":{"enabled":)") + wrong + "}}")).smartDns) << wrong;
        EXPECT_FALSE(ReadTerms(JsonOf(std::string(R"({"smartdns":)") + wrong + "}")).smartDns) << wrong;
    }
    EXPECT_FALSE(ReadTerms(JsonOf(R"({"smartdns":true})")).smartDns);
}

TEST(ControlHost, IsTheNameOfAHost) {
    const auto longest = std::string(253, 'a');
    for (const std::string host : {"eu1.box.zz", "a", "192.0.2.1", "x-1.example", longest.c_str()}) {
        Json::Value answer;
        answer["control_host"] = host;
        EXPECT_EQ(ReadControlHost(answer), host);
    }
}

TEST(ControlHost, IsNoneForAnythingElse) {
    const std::vector<std::string> wrong = {"",
                                            "-a.zz",
                                            "a.zz-",
                                            ".a.zz",
                                            "a.zz.",
                                            "a..zz",
                                            "a b.zz",
                                            "a.zz/x",
                                            "a.zz:80",
                                            "me@a.zz",
                                            "a.zz?x",
                                            "a.zz#x",
                                            "http://a",
                                            "[::1]",
                                            "a_b.zz",
                                            "a.zz\n",
                                            "caf\xc3\xa9.zz",
                                            std::string("a\0b", 3),
                                            std::string(254, 'a')};
    for (const auto& host : wrong) {
        Json::Value answer;
        answer["control_host"] = host;
        EXPECT_FALSE(ReadControlHost(answer)) << host;
    }
    for (const char* value : {"null", "1", "[\"a.zz\"]", "{}"}) {
        EXPECT_FALSE(ReadControlHost(JsonOf(std::string(R"({"control_host":)") + value + "}"))) << value;
    }
    EXPECT_FALSE(ReadControlHost(JsonOf("{}")));
}

TEST(ServerCommands, AreReadInTheirOrder) {
    const auto commands = ReadCommands(
        JsonOf(R"({"commands":[{"id":"2","command":"open_tunnel","relay":{}},{"id":"1","command":"update_alias"}]})"));
    ASSERT_THAT(IdsOf(commands), ElementsAre("2", "1"));
    EXPECT_EQ(commands[0].name, "open_tunnel");
    EXPECT_EQ(commands[0].members["relay"], JsonOf("{}"));
}

TEST(ServerCommands, AreAtMostSixteen) {
    Json::Value answer;
    for (int i = 1; i <= 17; ++i) {
        answer["commands"].append(JsonOf(R"({"command":"update_alias"})"))["id"] = std::to_string(i);
    }
    const auto commands = ReadCommands(answer);
    ASSERT_THAT(commands, SizeIs(16));
    EXPECT_EQ(commands.back().id, "16");
}

TEST(ServerCommands, ArePassedOverWithoutAnIdentifier) {
    EXPECT_THAT(IdsOf(ReadCommands(JsonOf(R"({"commands":[{"command":"update_alias"},{"id":"","command":"x"},
                    {"id":7,"command":"x"},{"id":"a b"},{"id":[]},null,"x",7,[],[{"id":"9"}],{"id":"5"}]})"))),
                ElementsAre("5"));
    EXPECT_THAT(ReadCommands(JsonOf(R"({"commands":[{"id":")" + std::string(65, 'x') + R"("}]})")), IsEmpty());
}

TEST(ServerCommands, MayHaveAnyName) {
    const auto commands =
        ReadCommands(JsonOf(R"({"commands":[{"id":"1"},{"id":"2","command":7},{"id":"3","command":""}]})"));
    EXPECT_THAT(commands, SizeIs(3));
    EXPECT_THAT(commands, Each(Field(&ServerCommand::name, "")));
}

TEST(ServerCommands, AreNoneWithoutAList) {
    for (const char* answer :
         {"{}", R"({"commands":null})", R"({"commands":{"id":"1"}})", R"({"commands":"x"})", R"({"commands":[]})"}) {
        EXPECT_THAT(ReadCommands(JsonOf(answer)), IsEmpty()) << answer;
    }
}
