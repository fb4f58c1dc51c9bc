// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "integration/control_server_fixture.h"
#include "support/control_schema.h"
#include "support/daemon_process.h"

namespace ardv::test {
namespace {

namespace fs = std::filesystem;

constexpr const char* kMessages[] = {"register-request", "register-answer", "keep-alive-request", "keep-alive-answer",
                                     "wait-request",     "wait-answer",     "get-tunnel-request", "get-tunnel-answer"};

constexpr const char* kOrder = R"({"relay":{"relay_ip":"198.51.100.7","relay_ipv6":"2001:db8:7::7"},
    "candidates":[{"type":"openvpn","protocol":"udp","port":"1194","mtu":"1400","mtu-disc":true}],
    "forward":[{"public":45000,"device":5000}]})";

/** The files of docs/control-protocol that show this message: MESSAGE.json and MESSAGE-SOMETHING.json. */
std::vector<std::string> ExamplesOf(const std::string& message) {
    std::vector<std::string> files;
    for (const auto& entry : fs::directory_iterator(ARDV_SCHEMA_FOLDER)) {
        const std::string name = entry.path().filename();
        if (name.starts_with(message) && name.ends_with(".json") && !name.ends_with(".schema.json")) {
            files.push_back(entry.path());
        }
    }
    return files;
}

std::string CheckValue(const std::string& message, const Json::Value& value) {
    return CheckMessages(message, {value.toStyledString()});
}

class ControlSchema : public ControlServerFixture {};

TEST_F(ControlSchema, FitsEveryExample) {
    for (const std::string message : kMessages) {
        const auto files = ExamplesOf(message);
        EXPECT_FALSE(files.empty()) << message;
        EXPECT_EQ(CheckMessageFiles(message, files), "") << message;
    }
}

TEST_F(ControlSchema, HasASchemaForEachExample) {
    for (const auto& entry : fs::directory_iterator(ARDV_SCHEMA_FOLDER)) {
        const std::string name = entry.path().filename();
        const auto isOf = [&](const std::string& message) { return name.starts_with(message); };
        EXPECT_TRUE(std::any_of(std::begin(kMessages), std::end(kMessages), isOf) || name == "scenario.json") << name;
    }
}

TEST_F(ControlSchema, FitsWhatTheServerSays) {
    server.SetAnswers(R"({"keep_alive":60,"control_host":"other.zz","smartdns":{"enabled":true},"reachable":true})");
    EXPECT_EQ(CheckValue("register-answer", Register()), "");
    EXPECT_EQ(CheckValue("register-answer", Post(Registration("AV220-000001", "guess"))), "");
    EXPECT_EQ(CheckValue("register-answer", Post(Json::Value(Json::objectValue))), "");
    EXPECT_EQ(CheckValue("keep-alive-answer", Post(KeepAliveRequest())), "");
    for (const char* command : {R"({"command":"update_alias"})", R"({"command":"close_tunnel"})"}) {
        server.Command(id, command);
    }
    EXPECT_EQ(CheckValue("wait-answer", Post(WaitRequest())), "");
    EXPECT_EQ(CheckValue("get-tunnel-answer", Post(GetTunnelRequest())), "");
    server.OpenTunnel(id, kOrder);
    EXPECT_EQ(CheckValue("get-tunnel-answer", Post(GetTunnelRequest())), "");
    EXPECT_EQ(CheckValue("wait-answer", Post(WaitRequest())), "") << "an order that is to be asked for";
    Json::Value order = ParseText(kOrder);
    order["inline"] = true;
    server.OpenTunnel(id, order.toStyledString());
    EXPECT_EQ(CheckValue("wait-answer", Post(WaitRequest())), "") << "an order in the command";
    server.EndSessions();
    EXPECT_EQ(CheckValue("get-tunnel-answer", Post(GetTunnelRequest())), "");
    EXPECT_EQ(CheckValue("wait-answer", Post(WaitRequest())), "");
    EXPECT_EQ(CheckValue("keep-alive-answer", Post(KeepAliveRequest())), "");
}

TEST_F(ControlSchema, TakesTheExamplesAsRequests) {
    for (const auto& file : ExamplesOf("register-request")) {
        Register(ParseText(ReadText(file)));
    }
    for (const std::string message : {"keep-alive-request", "wait-request", "get-tunnel-request"}) {
        for (const auto& file : ExamplesOf(message)) {
            Json::Value request = ParseText(ReadText(file));
            EXPECT_EQ(Post(request)["errno"], 6) << file << ": as it should be but for its session";
        }
    }
}

std::string Configuration(int port) {
    const std::string server = R"({"protocol":"http","host":"127.0.0.1","port":)" + std::to_string(port) + "}";
    return R"({"tethra":{"enabled":true},"server_global":)" + server + R"(,"server_control":)" + server +
           R"(,"server_waitcmd":)" + server + R"(,"server_alias":{"alias":"attic","url":"http://127.0.0.1:1"}})";
}

/** The bodies of the requests of one command. */
std::vector<std::string> BodiesOf(const std::string& command, const Json::Value& requests) {
    std::vector<std::string> bodies;
    for (const Json::Value& request : requests) {
        const std::string body = request["body"].asString();
        if (ParseText(body)["command"] == command) {
            bodies.push_back(body);
        }
    }
    return bodies;
}

/** The commands that have results. One may have several: what a wait tells is told again if that isn't answered. */
std::set<std::string> NamesOf(const Json::Value& results) {
    std::set<std::string> names;
    for (const Json::Value& result : results) {
        names.insert(result["id"].asString());
    }
    return names;
}

TEST_F(ControlSchema, FitsWhatTheDaemonSays) {
    MakeDevice();
    WriteText("/usr/ardv/etc/ardvrelayd/ardvrelayd.conf", Configuration(server.HttpPort()));
    DaemonProcess daemon;
    ASSERT_TRUE(server.WaitFor([&] { return !server.Sessions().empty(); })) << daemon.Log();
    id = server.Sessions().getMemberNames().front();
    ASSERT_TRUE(server.AwaitWait(id)) << daemon.Log();
    for (const char* command : {"update_alias", "close_tunnel", "unheard_of"}) {
        server.Command(id, R"({"command":")" + std::string(command) + "\"}");
    }
    EXPECT_TRUE(server.WaitFor([&] { return NamesOf(server.Results()).size() == 3; })) << daemon.Log();
    ASSERT_TRUE(server.AwaitWait(id)) << daemon.Log();
    EXPECT_EQ(server.BreakWaits(R"({"kind":"reset"})"), 1);
    EXPECT_TRUE(server.WaitFor([&] { return !BodiesOf("keep_alive", server.Requests()).empty(); })) << daemon.Log();
    server.EndSessions();
    EXPECT_TRUE(server.WaitFor([&] { return BodiesOf("register", server.Requests()).size() == 2; })) << daemon.Log();
    EXPECT_EQ(daemon.Stop(), 0) << daemon.Log();
    const Json::Value requests = server.Requests();
    EXPECT_EQ(CheckMessages("register-request", BodiesOf("register", requests)), "");
    EXPECT_EQ(CheckMessages("keep-alive-request", BodiesOf("keep_alive", requests)), "");
    EXPECT_EQ(CheckMessages("wait-request", BodiesOf("wait", requests)), "");
}

std::string ConfigurationOverTls(int port) {
    Json::Value configuration = ParseText(Configuration(port));
    for (const char* name : {"server_global", "server_control", "server_waitcmd"}) {
        configuration[name]["protocol"] = "https";
        configuration[name]["host"] = "localhost";
    }
    return configuration.toStyledString();
}

TEST(ControlSchemaTunnel, FitsWhatTheDaemonSaysOfATunnel) {
    const ScratchFolder folder;
    const TestCertificates certificates(folder.Path() + "/certificates");
    const ControlServerProcess server(ControlServerSettings{
        {folder.Path() + "/server", certificates.Certificate("valid"), certificates.Key("valid")}});
    MakeDevice();
    WriteText("/etc/ssl/certs/ca-certificates.crt", ReadText(certificates.Authority()));
    WriteText("/usr/ardv/etc/ardvrelayd/ardvrelayd.conf", ConfigurationOverTls(server.HttpsPort()));
    DaemonProcess daemon;
    ASSERT_TRUE(server.WaitFor([&] { return !server.Sessions().empty(); })) << daemon.Log();
    const std::string id = server.Sessions().getMemberNames().front();
    // Nothing of it can be tried, so no OpenVPN is needed.
    server.OpenTunnel(id, R"({"relay":{"relay_ip":"198.51.100.7"},"candidates":[{"type":"other"}]})");
    EXPECT_TRUE(server.WaitFor([&] { return server.Tunnel(id)["status"] == "FAILED"; })) << daemon.Log();
    EXPECT_EQ(server.Tunnel(id)["relay_ip"], "198.51.100.7");
    EXPECT_EQ(server.BreakWaits(R"({"kind":"reset"})"), 1);
    EXPECT_TRUE(server.WaitFor([&] { return !BodiesOf("keep_alive", server.Requests()).empty(); })) << daemon.Log();
    server.EndSessions();
    EXPECT_TRUE(server.WaitFor([&] { return BodiesOf("register", server.Requests()).size() == 2; })) << daemon.Log();
    EXPECT_EQ(daemon.Stop(), 0) << daemon.Log();
    const Json::Value requests = server.Requests();
    const auto asked = BodiesOf("get_tunnel", requests);
    EXPECT_FALSE(asked.empty());
    EXPECT_EQ(CheckMessages("get-tunnel-request", asked), "");
    EXPECT_EQ(CheckMessages("register-request", BodiesOf("register", requests)), "");
    EXPECT_EQ(CheckMessages("keep-alive-request", BodiesOf("keep_alive", requests)), "");
    EXPECT_EQ(CheckMessages("wait-request", BodiesOf("wait", requests)), "");
}

TEST_F(ControlSchema, BoundsTheCommandsOfAnAnswer) {
    Json::Value answer = ParseText(R"({"errno":0,"commands":[]})");
    for (int i = 0; i < 16; ++i) {
        answer["commands"].append(ParseText(R"({"id":"a","command":"update_alias"})"));
    }
    EXPECT_EQ(CheckValue("wait-answer", answer), "");
    answer["commands"].append(answer["commands"][0]);
    EXPECT_NE(CheckValue("wait-answer", answer), "");
}

struct WrongMessage {
    const char* name;
    const char* message;
    const char* text;
};

class ControlSchemaRefusal : public ControlSchema, public testing::WithParamInterface<WrongMessage> {};

constexpr WrongMessage kWrong[] = {
    {"AnswerWithoutErrno", "wait-answer", R"({"commands":[]})"},
    {"ErrnoIsText", "keep-alive-answer", R"({"errno":"0"})"},
    {"SuccessWithoutSession", "register-answer", R"({"errno":0,"serverID":"a","channel":"c"})"},
    {"SessionWithABlank", "register-answer", R"({"errno":0,"serverID":"a","session":"a b","channel":"c"})"},
    {"KeepAliveTooShort", "keep-alive-answer", R"({"errno":0,"keep_alive":59})"},
    {"CommandWithoutId", "wait-answer", R"({"errno":0,"commands":[{"command":"update_alias"}]})"},
    {"OpenTunnelWithoutRelay", "wait-answer",
     R"({"errno":0,"commands":[{"id":"a","command":"open_tunnel","candidates":[]}]})"},
    {"OpenTunnelWithoutCandidates", "wait-answer",
     R"({"errno":0,"commands":[{"id":"a","command":"open_tunnel",)"
     R"("relay":{"relay_ip":"198.51.100.7","relay_user":"u","relay_pass":"p"}}]})"},
    {"NoOrderInAnAnswerOfSuccess", "get-tunnel-answer", R"({"errno":0})"},
    {"UserWithASlash", "get-tunnel-answer",
     R"({"errno":0,"relay":{"relay_ip":"198.51.100.7","relay_user":"a/b","relay_pass":"p"},"candidates":[]})"},
    {"TunnelInAnotherWord", "wait-request",
     R"({"version":1,"command":"wait","serverID":"a","channel":"b","tunnel":{"status":"UP","relay_ip":""}})"},
    {"TunnelWithoutRelay", "keep-alive-request",
     R"({"version":1,"command":"keep_alive","serverID":"a","session":"b","tunnel":{"status":"READY"}})"},
    {"NoSession", "get-tunnel-request", R"({"version":1,"command":"get_tunnel","serverID":"a"})"},
    {"OtherVersion", "keep-alive-request", R"({"version":2,"command":"keep_alive","serverID":"a","session":"b"})"},
    {"OtherCommand", "keep-alive-request", R"({"version":1,"command":"wait","serverID":"a","session":"b"})"},
    {"NoChannel", "wait-request", R"({"version":1,"command":"wait","serverID":"a"})"},
    {"ResultIsText", "wait-request",
     R"({"version":1,"command":"wait","serverID":"a","channel":"b","results":[{"id":"a","result":"0"}]})"},
    {"NoIdentity", "register-request",
     R"({"version":1,"command":"register","service":[],"network":{},)"
     R"("smartdns":{"enabled":false},"daemon":{"version":"7"}})"},
};

TEST_P(ControlSchemaRefusal, RefusesWhatTheProtocolHasNot) {
    EXPECT_NE(CheckValue(GetParam().message, ParseText(GetParam().text)), "");
}

INSTANTIATE_TEST_SUITE_P(All, ControlSchemaRefusal, testing::ValuesIn(kWrong),
                         [](const auto& row) { return row.param.name; });

}  // namespace
}  // namespace ardv::test
