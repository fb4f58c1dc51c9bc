// SPDX-License-Identifier: Apache-2.0
#include <filesystem>
#include <string>
#include <vector>

#include "integration/control_server_fixture.h"
#include "support/control_schema.h"

namespace ardv::test {
namespace {

namespace fs = std::filesystem;

constexpr const char* kMessages[] = {"register-request",  "register-answer", "keep-alive-request",
                                     "keep-alive-answer", "wait-request",    "wait-answer"};

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
    server.EndSessions();
    EXPECT_EQ(CheckValue("wait-answer", Post(WaitRequest())), "");
    EXPECT_EQ(CheckValue("keep-alive-answer", Post(KeepAliveRequest())), "");
}

TEST_F(ControlSchema, TakesTheExamplesAsRequests) {
    for (const auto& file : ExamplesOf("register-request")) {
        Register(ParseText(ReadText(file)));
    }
    for (const std::string message : {"keep-alive-request", "wait-request"}) {
        for (const auto& file : ExamplesOf(message)) {
            Json::Value request = ParseText(ReadText(file));
            EXPECT_EQ(Post(request)["errno"], 6) << file << ": as it should be but for its session";
        }
    }
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
    {"SeventeenCommands", "wait-answer", R"({"errno":0,"commands":[1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17]})"},
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
