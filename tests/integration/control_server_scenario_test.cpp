// SPDX-License-Identifier: Apache-2.0
#include <string>

#include "integration/control_server_fixture.h"

namespace ardv::test {
namespace {

class ControlServerScenario : public ControlServerFixture {};

constexpr const char* kSteps = R"([
    {"when": {"command": "register", "times": 2}, "answer": {"kind": "errno", "value": 11}},
    {"when": {"command": "register"}, "answer": {"kind": "answer", "members": {"keep_alive": 60}}},
    {"when": {"command": "wait", "after": 1}, "push": {"id": "pushed", "command": "update_alias"}},
    {"when": {"command": "keep_alive"}},
    {"when": {}, "answer": {"kind": "status", "status": 503}}
])";

TEST_F(ControlServerScenario, PlaysItsStepsInOrder) {
    server.SetScenario(kSteps);
    EXPECT_EQ(Post(Registration())["errno"], 11);
    EXPECT_EQ(Post(Registration())["errno"], 11);
    EXPECT_EQ(Register()["keep_alive"], 60);
    EXPECT_EQ(Register()["keep_alive"], 3600) << "the step in turn is about waits";
    auto first = HeldWait();
    EXPECT_EQ(server.BreakWaits(R"({"kind":"answer"})"), 1);
    EXPECT_TRUE(first.get()["commands"].empty());
    const Json::Value pushed = Post(WaitRequest())["commands"];
    ASSERT_EQ(pushed.size(), 1U);
    EXPECT_EQ(pushed[0]["id"], "pushed");
    EXPECT_EQ(server.Ask("GET", "/sandbox/scenario")["step"], 3);
    EXPECT_EQ(Post(KeepAliveRequest())["errno"], 0) << "a step without an act waits for its request";
    EXPECT_EQ(PostText("no JSON"), "503 ");
    EXPECT_EQ(Post(KeepAliveRequest())["errno"], 0);
    const Json::Value progress = server.Ask("GET", "/sandbox/scenario");
    EXPECT_EQ(progress["step"], 5);
    EXPECT_EQ(progress["steps"], 5);
}

TEST_F(ControlServerScenario, GivesWayToFaultsThatAreOrdered) {
    server.SetScenario(R"([{"when":{"command":"register"},"answer":{"kind":"errno","value":11}}])");
    server.SetFault(R"({"kind":"errno","value":30})");
    EXPECT_EQ(Post(Registration())["errno"], 30);
    EXPECT_EQ(Post(Registration())["errno"], 11);
    EXPECT_EQ(Post(Registration())["errno"], 0);
}

TEST_F(ControlServerScenario, BeginsAnewWhenItIsSet) {
    const char* steps = R"([{"when":{},"answer":{"kind":"errno","value":11}}])";
    server.SetScenario(steps);
    EXPECT_EQ(Post(Registration())["errno"], 11);
    server.SetScenario(steps);
    EXPECT_EQ(Post(Registration())["errno"], 11);
    server.SetScenario("[]");
    EXPECT_EQ(Post(Registration())["errno"], 0);
}

TEST_F(ControlServerScenario, IsReadFromAFile) {
    const std::string file = folder.Path() + "/scenario.json";
    WriteText(file, kSteps);
    const ControlServerProcess other(ControlServerSettings{{folder.Path() + "/other"}, {"--scenario", file}});
    EXPECT_EQ(other.Ask("GET", "/sandbox/scenario")["steps"], 5);
    WriteText(file, R"([{"when":{"command":"unregister"}}])");
    EXPECT_THROW((ControlServerProcess(ControlServerSettings{{folder.Path() + "/third"}, {"--scenario", file}})),
                 std::runtime_error);
    EXPECT_THROW(
        ControlServerProcess(ControlServerSettings{{folder.Path() + "/third"}, {"--scenario", file + ".none"}}),
        std::runtime_error);
    const std::string log = ReadText(folder.Path() + "/third/log");
    EXPECT_NE(log.find("step 0: when.command is not known"), std::string::npos) << log;
    EXPECT_NE(log.find("there is no scenario"), std::string::npos) << log;
}

TEST_F(ControlServerScenario, RefusesStepsThatAreNone) {
    server.SetScenario(R"([{"when":{},"answer":{"kind":"errno","value":11}}])");
    for (const char* steps :
         {"{}", "[1]", "[{}]", R"([{"when":5}])", R"([{"when":{"times":0}}])", R"([{"when":{"after":-1}}])",
          R"([{"when":{"then":1}}])", R"([{"when":{},"answer":{"kind":"none"}}])", R"([{"when":{},"answer":5}])",
          R"([{"when":{},"push":"update_alias"}])", R"([{"when":{},"other":1}])", R"([{"when":{"command":5}}])",
          R"([{"when":{},"answer":{"kind":"errno","value":1,"command":"wait"}}])",
          R"([{"when":{},"answer":{"kind":"errno","value":1,"count":2}}])"}) {
        const auto answer = Admin("PUT", "/sandbox/scenario", steps);
        ASSERT_TRUE(answer);
        EXPECT_EQ(answer->status, 400) << steps;
    }
    EXPECT_EQ(Post(Registration())["errno"], 11) << "the scenario before stays";
}

}  // namespace
}  // namespace ardv::test
