// SPDX-License-Identifier: Apache-2.0
#include "control_session.h"

#include "session_fixture.h"

using namespace ardv::test;
using namespace ardv::daemon;
using namespace ARDV::Relay;
using namespace std::chrono_literals;

namespace {

/** A device that was assigned another control server than the global one. */
class GlobalServerTest : public SessionTest {
protected:
    GlobalServerTest() {
        WriteHosts("127.0.0.1", {"global.box.zz", "eu1.box.zz"});
        auto configuration = Stored();
        configuration["server_global"] = global_.Server();
        configuration["server_global"]["host"] = "global.box.zz";
        WriteText(kConfigFile, JsonText::Styled(configuration));
    }

    ControlScript global_;
};

}  // namespace

TEST_F(GlobalServerTest, IsAskedOnceTheControlServerHasFailedThreeTimes) {
    server_.AlwaysAnswer("register", "busy", 503);
    server_.Answer("keep_alive", "not the right one", 404);
    Begin(kShortPlans);
    ASSERT_TRUE(RunUntilCount("wait", 1));
    EXPECT_EQ(server_.Count("register"), 3U);
    EXPECT_EQ(global_.Count("register"), 1U);
    EXPECT_EQ(session_->State(), RELAYD_STATE_LOGIN);
    EXPECT_EQ(Stored()["server_control"]["host"], "127.0.0.1") << "it named no other one";
    LetPass(3600s);
    ASSERT_TRUE(RunUntil([&] { return global_.Count("keep_alive") == 1 && engine_.Transfers().size() == 1; }));
    EXPECT_EQ(session_->State(), RELAYD_STATE_LOGIN);
    EXPECT_EQ(server_.Count("keep_alive"), 0U) << "the session is the global server's";
}

TEST_F(GlobalServerTest, MayNameAnotherControlServer) {
    server_.AlwaysAnswer("register", "busy", 503);
    global_.Answer("register", R"({"errno":13,"control_host":"eu1.box.zz"})");
    Begin(kShortPlans);
    ASSERT_TRUE(RunUntil([&] { return Stored()["server_control"]["host"] == "eu1.box.zz"; }));
    server_.AlwaysAnswer("register", "");
    ASSERT_TRUE(RunUntilCount("wait", 1));
    EXPECT_EQ(session_->State(), RELAYD_STATE_LOGIN);
}

TEST_F(GlobalServerTest, IsAskedEverySecondTimeAndItsOwnFailureIsNotWhatTheUserHasToKnow) {
    server_.AlwaysAnswer("register", "busy", 503);
    global_.AlwaysAnswer("register", "no", 404);
    Begin(kShortPlans);
    ASSERT_TRUE(RunUntilFailures(8));
    EXPECT_GE(server_.Count("register"), 5U);
    EXPECT_GE(global_.Count("register"), 3U);
    EXPECT_EQ(session_->Error(), RELAYD_RET_ERR_SERVER_BUSY);
}

TEST_F(GlobalServerTest, IsToldOfWhereItsOwnSessionFails) {
    server_.AlwaysAnswer("register", "busy", 503);
    Begin(kShortPlans);
    ASSERT_TRUE(RunUntilCount("wait", 1));
    global_.AlwaysAnswer("keep_alive", "no", 404);
    LetPass(3600s);
    ASSERT_TRUE(RunUntil([&] { return session_->State() == RELAYD_STATE_STARTING; }));
    EXPECT_EQ(session_->Error(), RELAYD_RET_ERR_NETWORK);
}

TEST_F(GlobalServerTest, IsHeardWhereItRefusesTheDevice) {
    server_.AlwaysAnswer("register", "busy", 503);
    global_.Answer("register", ErrnoText(30));
    Begin(kShortPlans);
    ASSERT_TRUE(RunUntil([&] { return session_->State() == RELAYD_STATE_NONE; }));
    EXPECT_EQ(session_->Error(), RELAYD_RET_ERR_VIOLATION);
}
