// SPDX-License-Identifier: Apache-2.0
// The daemon while its clock is set. Nobody may do that to the machine of a test: the daemon has a clock of its own.
#include <cstdlib>

#include "integration/daemon_fixture.h"

namespace ardv::test {
namespace {

using std::chrono::milliseconds;

class DaemonClock : public DaemonTest {
protected:
    DaemonClock() {
        setenv("ASAN_OPTIONS", "verify_asan_link_order=0", 1);  // where the daemon has a sanitizer
        setenv("LD_PRELOAD", ARDV_JUMPING_CLOCK, 1);
    }

    ~DaemonClock() override { unsetenv("LD_PRELOAD"); }

    void SetAhead() const { daemon->Signal(SIGRTMIN + 5); }
    void SetBack() const { daemon->Signal(SIGRTMIN + 6); }

    bool AwaitClockWasSet() const {
        return Await([this] { return daemon->Log().find("the clock was set") != std::string::npos; });
    }

    /** Whether the last request to the alias server asks for this. */
    bool AsksFor(const std::string& action) const {
        const auto requests = alias.Requests();
        return !requests.empty() &&
               requests[requests.size() - 1]["body"].asString().find("action=" + action) != std::string::npos;
    }
};

TEST_F(DaemonClock, IsAReasonToTryAgainAtOnce) {
    control.Stop();
    Start({"--retry-base", "60", "--retry-cap", "600"});
    EXPECT_EQ(AwaitStatus("starting err_network"), "starting err_network");
    control.Start();
    EXPECT_EQ(DaemonStatus(), "starting err_network");
    SetAhead();
    EXPECT_EQ(AwaitStatus(kLoggedIn), kLoggedIn);
    ExpectOrderlyEnd();
}

TEST_F(DaemonClock, IsNoReasonForANewSession) {
    StartAndLogIn();
    EXPECT_TRUE(AsksFor("map_alias"));
    SetAhead();
    EXPECT_TRUE(Await([&] { return AsksFor("keep_alive_alias"); })) << "it is due";
    EXPECT_TRUE(Holds([] { return DaemonStatus() == kLoggedIn; }, milliseconds(200)));
    EXPECT_EQ(Count("register"), 1U);
    EXPECT_EQ(Count("wait"), 1U);
    ExpectOrderlyEnd();
}

TEST_F(DaemonClock, MayBeSetBack) {
    StartAndLogIn();
    SetBack();
    EXPECT_TRUE(AwaitClockWasSet());
    EXPECT_TRUE(Holds([&] { return alias.Requests().size() == 1 && Count("register") == 1; }, milliseconds(200)));
    control.EndSessions();
    EXPECT_TRUE(Await([&] { return Count("register") == 2; }));
    EXPECT_EQ(AwaitStatus(kLoggedIn), kLoggedIn);
    ExpectOrderlyEnd();
}

TEST_F(DaemonClock, IsNoReasonToAskAgainAfterARefusal) {
    control.SetFault(R"({"kind":"errno","value":2,"count":0})");
    Start();
    EXPECT_EQ(AwaitStatus("error err_auth"), "error err_auth");
    SetAhead();
    EXPECT_TRUE(AwaitClockWasSet());
    EXPECT_TRUE(Holds([&] { return Count("register") == 1; }, milliseconds(200)));
}

}  // namespace
}  // namespace ardv::test
