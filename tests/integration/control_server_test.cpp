// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <filesystem>
#include <functional>
#include <string>

#include "integration/control_server_fixture.h"

namespace ardv::test {
namespace {

class ControlServer : public ControlServerFixture {};

TEST_F(ControlServer, NamesADeviceAndItsSession) {
    const Json::Value answer = Register();
    EXPECT_EQ(answer["keep_alive"], 3600);
    EXPECT_FALSE(id.empty());
    EXPECT_FALSE(session.empty());
    EXPECT_FALSE(channel.empty());
    EXPECT_NE(session, channel);
    EXPECT_FALSE(answer.isMember("control_host"));
    const Json::Value shown = server.Sessions()[id];
    EXPECT_EQ(shown["session"], session);
    EXPECT_EQ(shown["channel"], channel);
    EXPECT_EQ(shown["registration"]["alias"], "attic");
    EXPECT_EQ(shown["waiting"], false);
}

TEST_F(ControlServer, KnowsADeviceAgainByItsSerialAndToken) {
    Register();
    const std::string firstId = id;
    const std::string firstSession = session;
    Register();
    EXPECT_EQ(id, firstId);
    EXPECT_NE(session, firstSession);
    EXPECT_EQ(Post(Registration("AV220-000001", "guess"))["errno"], 2);
    EXPECT_EQ(Post(KeepAliveRequest())["errno"], 0) << "a stranger's attempt must not end the session";
    Register(Registration("AV220-000002"));
    EXPECT_NE(id, firstId);
}

TEST_F(ControlServer, TakesOverAnIdentifierThatNobodyElseHas) {
    Json::Value request = Registration();
    request["serverID"] = "box-1";
    EXPECT_EQ(Register(request)["serverID"], "box-1");
    Json::Value other = Registration("AV220-000002");
    other["serverID"] = "box-1";
    EXPECT_NE(Register(other)["serverID"], "box-1");
    request["serverID"] = "box-9";
    EXPECT_EQ(Register(request)["serverID"], "box-1") << "an identifier is for good";
}

TEST_F(ControlServer, KnowsItsDevicesButNoSessionAfterARestart) {
    Register();
    const std::string firstId = id;
    server.Kill();
    server.Start();
    EXPECT_EQ(server.Devices()["AV220-000001"]["serverID"], firstId);
    EXPECT_EQ(Post(KeepAliveRequest())["errno"], 6);
    EXPECT_EQ(Post(Registration("AV220-000001", "guess"))["errno"], 2);
    Register();
    EXPECT_EQ(id, firstId);
    EXPECT_EQ(ModeOf(server.StateFile()), 0600U);
}

TEST_F(ControlServer, LeavesADamagedStateAsItIs) {
    server.Stop();
    for (const std::string text :
         {"{", "[]", "{}", R"({"devices":{"S":{"token":"t"}}})", R"({"devices":{"S":{"token":"t","serverID":"a b"}}})",
          R"({"devices":{"S":{"token":"t","serverID":"a"},"T":{"token":"t","serverID":"a"}}})"}) {
        WriteText(server.StateFile(), text);
        EXPECT_THROW(server.Start(), std::runtime_error) << text;
        EXPECT_EQ(ReadText(server.StateFile()), text);
    }
    EXPECT_NE(server.Log().find("is damaged and was left as it is"), std::string::npos);
}

TEST_F(ControlServer, FailsWhatItCannotKeep) {
    // Nothing can be renamed over a folder that isn't empty.
    std::filesystem::remove(server.StateFile());
    std::filesystem::create_directories(server.StateFile() + "/x");
    EXPECT_EQ(Post(Registration())["errno"], 1);
    EXPECT_TRUE(server.Devices().empty());
    std::filesystem::remove_all(server.StateFile());
    Register();
}

TEST_F(ControlServer, KeepsASessionAliveByItsNameAlone) {
    Register();
    const Json::Value answer = Post(KeepAliveRequest());
    EXPECT_EQ(answer["errno"], 0);
    EXPECT_EQ(answer["keep_alive"], 3600);
    EXPECT_EQ(server.Sessions()[id]["keep_alives"], 1);
    for (const char* name : {"session", "serverID"}) {
        Json::Value request = KeepAliveRequest();
        request[name] = name == std::string("session") ? channel : "box-9";
        EXPECT_EQ(Post(request)["errno"], 6) << name;
    }
    EXPECT_EQ(server.Sessions()[id]["keep_alives"], 1);
}

TEST_F(ControlServer, EndsSessionsWhenTold) {
    Register();
    server.EndSessions();
    EXPECT_TRUE(server.Sessions().empty());
    EXPECT_EQ(Post(KeepAliveRequest())["errno"], 6);
    EXPECT_EQ(Post(WaitRequest())["errno"], 6);
}

TEST_F(ControlServer, TellsDevicesWhatItIsToldToTell) {
    server.SetAnswers(R"({"keep_alive":60,"control_host":"other.zz","smartdns":{"enabled":true},"reachable":true})");
    const Json::Value answer = Register();
    EXPECT_EQ(answer["keep_alive"], 60);
    EXPECT_EQ(answer["control_host"], "other.zz");
    EXPECT_EQ(answer["smartdns"]["enabled"], true);
    EXPECT_EQ(answer["reachable"], true);
    const Json::Value kept = Post(KeepAliveRequest());
    EXPECT_EQ(kept["keep_alive"], 60);
    EXPECT_EQ(kept["reachable"], true);
    EXPECT_FALSE(kept.isMember("control_host"));
    server.SetAnswers("{}");
    const Json::Value plain = Register();
    EXPECT_EQ(plain["keep_alive"], 60);
    EXPECT_FALSE(plain.isMember("reachable"));
}

TEST_F(ControlServer, RefusesToTellWhatTheProtocolHasNot) {
    for (const char* members :
         {"[]", R"({"keep_alive":59})", R"({"keep_alive":86401})", R"({"keep_alive":"60"})", R"({"control_host":""})",
          R"({"control_host":"a/b"})", R"({"smartdns":true})", R"({"reachable":1})", R"({"errno":5})"}) {
        const auto answer = Admin("PUT", "/sandbox/answers", members);
        ASSERT_TRUE(answer);
        EXPECT_EQ(answer->status, 400) << members;
    }
    EXPECT_EQ(Register()["keep_alive"], 3600);
}

struct WrongMember {
    const char* name;
    void (*spoil)(Json::Value&);
};

class ControlServerRegistration : public ControlServerFixture, public testing::WithParamInterface<WrongMember> {};

constexpr WrongMember kWrongMembers[] = {
    {"NoIdentity", [](Json::Value& r) { r.removeMember("identity"); }},
    {"IdentityIsText", [](Json::Value& r) { r["identity"] = "me"; }},
    {"NoSerial", [](Json::Value& r) { r["identity"].removeMember("serial"); }},
    {"EmptySerial", [](Json::Value& r) { r["identity"]["serial"] = ""; }},
    {"LongSerial", [](Json::Value& r) { r["identity"]["serial"] = std::string(65, 'x'); }},
    {"ControlCharacterInSerial", [](Json::Value& r) { r["identity"]["serial"] = "a\nb"; }},
    {"NumberForToken", [](Json::Value& r) { r["identity"]["token"] = 1; }},
    {"EmptyToken", [](Json::Value& r) { r["identity"]["token"] = ""; }},
    {"NoKey", [](Json::Value& r) { r["identity"].removeMember("key"); }},
    {"BadMac", [](Json::Value& r) { r["identity"]["mac"] = "02-00-5e-10-00-01"; }},
    {"ShortMac", [](Json::Value& r) { r["identity"]["mac"] = "02:00"; }},
    {"BadServerId", [](Json::Value& r) { r["serverID"] = "a b"; }},
    {"EmptyServerId", [](Json::Value& r) { r["serverID"] = ""; }},
    {"LongServerId", [](Json::Value& r) { r["serverID"] = std::string(65, 'x'); }},
    {"BadAlias", [](Json::Value& r) { r["alias"] = "-attic"; }},
    {"NoServices", [](Json::Value& r) { r.removeMember("service"); }},
    {"ServiceIsText", [](Json::Value& r) { r["service"].append("ssh"); }},
    {"ServiceWithoutId", [](Json::Value& r) { r["service"][0].removeMember("id"); }},
    {"PortIsText", [](Json::Value& r) { r["service"][0]["port"] = "22"; }},
    {"PortTooLarge", [](Json::Value& r) { r["service"][0]["ext_port"] = 65536; }},
    {"PortIsReal", [](Json::Value& r) { r["service"][0]["port"] = 22.5; }},
    {"NoNetwork", [](Json::Value& r) { r.removeMember("network"); }},
    {"InterfacesAreAnObject", [](Json::Value& r) { r["network"]["interface"] = Json::objectValue; }},
    {"InterfaceWithoutMask", [](Json::Value& r) { r["network"]["interface"][0].removeMember("mask"); }},
    {"AddressIsText", [](Json::Value& r) { r["network"]["interface"][0]["ipv6"][0] = "fe80::1"; }},
    {"NoGateway", [](Json::Value& r) { r["network"].removeMember("gateway"); }},
    {"SmartDnsIsABoolean", [](Json::Value& r) { r["smartdns"] = true; }},
    {"SmartDnsIsANumber", [](Json::Value& r) { r["smartdns"]["enabled"] = 1; }},
    {"NoDaemon", [](Json::Value& r) { r.removeMember("daemon"); }},
    {"EmptyVersion", [](Json::Value& r) { r["daemon"]["version"] = ""; }},
    {"NoProtocolVersion", [](Json::Value& r) { r.removeMember("version"); }},
    {"ProtocolVersionIsText", [](Json::Value& r) { r["version"] = "1"; }},
    {"NoCommand", [](Json::Value& r) { r.removeMember("command"); }},
    {"CommandIsANumber", [](Json::Value& r) { r["command"] = 1; }},
};

TEST_P(ControlServerRegistration, RefusesAMemberThatIsNotAsItShouldBe) {
    Json::Value request = Registration();
    GetParam().spoil(request);
    EXPECT_EQ(Post(request)["errno"], 9);
    EXPECT_TRUE(server.Devices().empty());
}

INSTANTIATE_TEST_SUITE_P(All, ControlServerRegistration, testing::ValuesIn(kWrongMembers),
                         [](const auto& row) { return row.param.name; });

TEST_F(ControlServer, TakesARegistrationWithoutWhatIsOptional) {
    Json::Value request = Registration();
    request.removeMember("alias");
    request["service"] = Json::arrayValue;
    request["network"]["interface"] = Json::arrayValue;
    for (const char* name : {"mac", "key", "model", "timezone"}) {
        request["identity"][name] = "";
    }
    request["later"] = "members that are not known are passed over";
    Register(request);
}

TEST_F(ControlServer, TellsOtherVersionsCommandsAndTextsApart) {
    Json::Value request = Registration();
    request["version"] = 2;
    EXPECT_EQ(Post(request)["errno"], 5);
    request["version"] = 0;
    EXPECT_EQ(Post(request)["errno"], 5);
    request["version"] = 1;
    request["command"] = "unregister";
    EXPECT_EQ(Post(request)["errno"], 3);
    for (const std::string& body : {std::string(), std::string("{"), std::string("[]"), std::string("null"),
                                    std::string("{} x"), std::string(100'000, '['), std::string("\xFF\xFE")}) {
        EXPECT_EQ(PostText(body).substr(0, 13), "200 {\"errno\":") << body.substr(0, 60);
        EXPECT_EQ(ParseText(PostText(body).substr(4))["errno"], 9) << body.substr(0, 60);
    }
}

TEST_F(ControlServer, WantsSessionsAndChannelsThatAreNames) {
    Register();
    Json::Value request = KeepAliveRequest();
    request["session"] = 5;
    EXPECT_EQ(Post(request)["errno"], 9);
    request.removeMember("session");
    EXPECT_EQ(Post(request)["errno"], 9);
    for (const char* results :
         {"{}", "[1]", R"([{"id":"a"}])", R"([{"id":"a","result":"0"}])", R"([{"id":"a b","result":0}])"}) {
        EXPECT_EQ(Post(WaitRequest(results))["errno"], 9) << results;
    }
    EXPECT_TRUE(server.Results().empty());
}

TEST_F(ControlServer, ServesPostToItsPageAlone) {
    httplib::Client client(server.HttpUrl());
    EXPECT_EQ(client.Get(kPage)->status, 405);
    EXPECT_EQ(client.Post("/elsewhere", "{}", "application/json")->status, 404);
    EXPECT_EQ(client.Post("/Servxphp", "{}", "application/json")->status, 404);
    EXPECT_EQ(PostText(std::string((1 << 20) + 1, ' ')).substr(0, 3), "413");
    EXPECT_EQ(PostText(std::string(1 << 20, ' ')).substr(0, 3), "200");
}

TEST_F(ControlServer, TakesTheFormTypeThatClientsSendWithoutBeingTold) {
    httplib::Client client(server.HttpUrl());
    const auto answer = client.Post(kPage, Registration().toStyledString(), "application/x-www-form-urlencoded");
    ASSERT_TRUE(answer);
    EXPECT_EQ(ParseText(answer->body)["errno"], 0);
}

TEST_F(ControlServer, ShowsRequestsWholeAndLogsThemWithoutSecrets) {
    Register();
    server.Command(id,
                   R"({"id":"open-1","command":"open_tunnel","relay":{"relay_user":"u","relay_pass":"hush-pass"}})");
    Post(KeepAliveRequest());
    Json::Value wait = WaitRequest();
    wait["relay"]["relay_pass"] = "hush-pass";
    Post(wait);
    PostText("hush-what-is-no-json");
    EXPECT_EQ(server.Requests().size(), 4U);
    EXPECT_EQ(ParseText(server.Requests()[0]["body"].asString())["identity"]["token"], "hush-token");
    EXPECT_TRUE(server.WaitFor([&] { return server.Log().find("body=unreadable") != std::string::npos; }));
    const std::string log = server.Log();
    EXPECT_EQ(log.find("hush-"), std::string::npos) << log;
    EXPECT_EQ(log.find(session), std::string::npos) << log;
    EXPECT_EQ(log.find(channel), std::string::npos) << log;
    EXPECT_NE(log.find("command=register device=AV220-000001 reply=errno:0"), std::string::npos) << log;
    EXPECT_NE(log.find("command=wait device=" + id + " reply=errno:0,commands:1"), std::string::npos) << log;
}

TEST_F(ControlServer, KeepsLogLinesWhole) {
    Json::Value request = Registration("line\x7F");
    request["daemon"]["version"] = "\xE2\x82\xAC\ninjected";
    Post(request);
    request["command"] = "a\nb";
    Post(request);
    EXPECT_TRUE(server.WaitFor([&] { return server.Log().find("command=a\\x0Ab") != std::string::npos; }));
    const std::string log = server.Log();
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 3) << log;
}

class ControlServerTls : public testing::Test {};

TEST_F(ControlServerTls, ServesTheSamePageOverTlsWithoutTheTestInterface) {
    const ScratchFolder folder;
    const TestCertificates certificates(folder.Path() + "/certificates");
    const ControlServerProcess server(ControlServerSettings{
        {folder.Path() + "/server", certificates.Certificate("valid"), certificates.Key("valid")}});
    httplib::SSLClient client("localhost", server.HttpsPort());
    client.set_ca_cert_path(certificates.Authority());
    client.enable_server_certificate_verification(true);
    const auto answer = client.Post(kPage, Registration().toStyledString(), "application/json");
    ASSERT_TRUE(answer);
    EXPECT_EQ(ParseText(answer->body)["errno"], 0);
    EXPECT_EQ(server.Requests()[0]["tls"], true);
    EXPECT_EQ(client.Get("/sandbox/sessions")->status, 404);
}

class ControlServerExpiry : public ControlServerFixture {
protected:
    ControlServerExpiry() : ControlServerFixture({"--expire", "1", "--keep-alive", "60"}) {}
};

TEST_F(ControlServerExpiry, EndsASessionWithoutASignOfLife) {
    EXPECT_EQ(Register()["keep_alive"], 60);
    auto wait = HeldWait();
    EXPECT_EQ(wait.wait_for(std::chrono::milliseconds(1500)), std::future_status::timeout) << "who waits is there";
    server.Command(id, R"({"command":"close_tunnel"})");
    EXPECT_EQ(wait.get()["commands"].size(), 1U);
    EXPECT_EQ(Post(KeepAliveRequest())["errno"], 0);
    EXPECT_TRUE(server.WaitFor([&] { return server.Sessions().empty(); }));
    EXPECT_EQ(Post(KeepAliveRequest())["errno"], 6);
}

}  // namespace
}  // namespace ardv::test
