// SPDX-License-Identifier: Apache-2.0
// What the daemon makes of a control server that fails, while it has no session and while it has one.
#include "integration/daemon_fixture.h"

namespace ardv::test {
namespace {

/** How a server answers, and what becomes of the daemon. */
struct Outage {
    const char* name;
    const char* fault;   ///< without "count" and "command"
    const char* status;  ///< while it lasts
};

std::string Order(const char* fault, const std::string& command) {
    auto order = JsonFrom(fault);
    order["count"] = 0;
    order["command"] = command;
    return Json::FastWriter().write(order);
}

bool IsRefusal(const std::string& status) {
    return status.rfind("error ", 0) == 0;
}

class RegistrationOutage : public DaemonTest, public testing::WithParamInterface<Outage> {};

const Outage kRegistrationOutages[] = {
    {"Reset", R"({"kind":"reset"})", "starting err_network"},
    {"Cut", R"({"kind":"cut"})", "starting err_network"},
    {"Http500", R"({"kind":"status","status":500})", "starting err_server_busy"},
    {"Http503WithABody", R"({"kind":"status","status":503,"body":"{\"errno\":0}"})", "starting err_server_busy"},
    {"Http404", R"({"kind":"status","status":404})", "starting err_network"},
    {"Http302", R"({"kind":"status","status":302})", "starting err_unknown"},
    {"Http204", R"({"kind":"status","status":204})", "starting err_unknown"},
    {"GarbageBody", R"({"kind":"garbage"})", "starting err_unknown"},
    {"GarbageProtocol", R"({"kind":"garbage","variant":"protocol"})", "starting err_unknown"},
    {"EmptyBody", R"({"kind":"reply","body":""})", "starting err_unknown"},
    {"Array", R"({"kind":"reply","body":"[{\"errno\":0}]"})", "starting err_unknown"},
    {"Scalar", R"({"kind":"reply","body":"0"})", "starting err_unknown"},
    {"Null", R"({"kind":"reply","body":"null"})", "starting err_unknown"},
    {"CutJson", R"({"kind":"reply","body":"{\"errno\":0,\"session\":\"half"})", "starting err_unknown"},
    {"DeepNesting", R"({"kind":"deep"})", "starting err_unknown"},
    {"HugeBody", R"({"kind":"huge","bytes":20000000})", "starting err_unknown"},
    {"LargeBody", R"({"kind":"huge","bytes":2000000})", "starting err_unknown"},
    {"ErrnoAsText", R"({"kind":"errno","value":"0"})", "starting err_unknown"},
    {"ErrnoAsReal", R"({"kind":"errno","value":0.0})", "starting err_unknown"},
    {"ErrnoBeyondTheType", R"({"kind":"errno","value":4294967296})", "starting err_unknown"},
    {"ErrnoAsArray", R"({"kind":"errno","value":[0]})", "starting err_unknown"},
    {"ErrnoIsMissing", R"({"kind":"answer","without":["errno"]})", "starting err_unknown"},
    {"ServerIdIsMissing", R"({"kind":"answer","without":["serverID"]})", "starting err_unknown"},
    {"SessionIsMissing", R"({"kind":"answer","without":["session"]})", "starting err_unknown"},
    {"ChannelIsMissing", R"({"kind":"answer","without":["channel"]})", "starting err_unknown"},
    {"ServerIdIsAPath", R"({"kind":"answer","members":{"serverID":"../../etc/passwd"}})", "starting err_unknown"},
    {"ServerIdIsNumber", R"({"kind":"answer","members":{"serverID":7}})", "starting err_unknown"},
    {"SessionHasALineFeed", R"({"kind":"answer","members":{"session":"a\nb"}})", "starting err_unknown"},
    {"Errno1", R"({"kind":"errno","value":1})", "starting err_unknown"},
    {"Errno2", R"({"kind":"errno","value":2})", "error err_auth"},
    {"Errno3", R"({"kind":"errno","value":3})", "starting err_not_support"},
    {"Errno4", R"({"kind":"errno","value":4})", "starting err_not_support"},
    {"Errno5", R"({"kind":"errno","value":5})", "starting err_not_support"},
    {"Errno6", R"({"kind":"errno","value":6})", "starting err_auth"},
    {"Errno7", R"({"kind":"errno","value":7})", "starting err_unknown"},
    {"Errno8", R"({"kind":"errno","value":8})", "starting err_unknown"},
    {"Errno9", R"({"kind":"errno","value":9})", "starting err_not_support"},
    {"Errno10", R"({"kind":"errno","value":10})", "error err_auth"},
    {"Errno11", R"({"kind":"errno","value":11})", "starting err_server_limit"},
    {"Errno12", R"({"kind":"errno","value":12})", "starting err_not_support"},
    {"Errno13WithoutAHost", R"({"kind":"errno","value":13})", "starting err_server_changed"},
    {"Errno13WithABadHost", R"({"kind":"errno","value":13,"members":{"control_host":"a b/../@evil.zz:1"}})",
     "starting err_server_changed"},
    {"Errno14", R"({"kind":"errno","value":14})", "starting err_server_ip_changed"},
    {"Errno15", R"({"kind":"errno","value":15})", "error err_api_key_expired"},
    {"Errno16", R"({"kind":"errno","value":16})", "starting err_not_support"},
    {"Errno29", R"({"kind":"errno","value":29})", "starting err_not_support"},
    {"Errno30", R"({"kind":"errno","value":30})", "error err_violation"},
    {"ErrnoBelowZero", R"({"kind":"errno","value":-1})", "starting err_not_support"},
};

INSTANTIATE_TEST_SUITE_P(Of, RegistrationOutage, testing::ValuesIn(kRegistrationOutages), ParamName<Outage>);

TEST_P(RegistrationOutage, IsToldAndOutlived) {
    control.SetFault(Order(GetParam().fault, "register"));
    Start({"--retry-base", "0.005", "--retry-cap", "0.05"});
    const std::string status = GetParam().status;
    ASSERT_EQ(AwaitStatus(status), status) << daemon->Log();
    if (IsRefusal(status)) {
        const auto before = Count("register");
        EXPECT_TRUE(Holds([&] { return Count("register") == before; }, std::chrono::milliseconds(200)));
    } else {
        EXPECT_TRUE(Await([&] { return Count("register") >= 2; })) << "is not tried again";
    }
    control.ClearFault();
    if (IsRefusal(status)) {
        EXPECT_TRUE(daemon->Reload());
    }
    EXPECT_EQ(AwaitStatus(kLoggedIn), kLoggedIn) << daemon->Log();
    EXPECT_TRUE(AwaitWait());
    ExpectOrderlyEnd();
}

}  // namespace
}  // namespace ardv::test
