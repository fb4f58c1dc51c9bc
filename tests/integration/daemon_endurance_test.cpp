// SPDX-License-Identifier: Apache-2.0
// The daemon over a long time: what it is asked for often must cost nothing that stays.
#include "integration/daemon_fixture.h"

namespace ardv::test {
namespace {

using std::chrono::seconds;

#ifdef __SANITIZE_ADDRESS__
constexpr long kNoise = 1L << 20;  // KiB: a sanitizer keeps what was released, and tells of leaks in the end
#else
constexpr long kNoise = 256;  // KiB: of the allocator, whatever is done how often
#endif

class DaemonEndurance : public DaemonTest {
protected:
    // Level 7 would log thousands of lines.
    DaemonEndurance() {
        Edit([](Json::Value& c) { c["log_level"] = 3; });
    }

    /** Reloads the daemon until it has done so `count` times. */
    void ReloadUpTo(Json::UInt64 count) const {
        for (auto sent = DaemonReport()["reloads"].asUInt64(); sent < count; ++sent) {
            ASSERT_TRUE(daemon->SignalAndSee(SIGHUP));
        }
        EXPECT_TRUE(Await([&] { return DaemonReport()["reloads"].asUInt64() == count; }, seconds(60)));
    }

    void UpdateAlias(std::size_t count) const {
        for (std::size_t done = 0; done < count; ++done) {
            ASSERT_TRUE(daemon->SignalAndSee(SIGRTMIN + 1));
            ASSERT_TRUE(DaemonReport().isObject()) << "what comes behind this one is behind the update, too";
            ASSERT_TRUE(Await([] { return DaemonReport()["alias"]["mapped"].asBool(); }));
        }
    }

    void Settle() const {
        EXPECT_EQ(AwaitStatus(kLoggedIn), kLoggedIn);
        EXPECT_TRUE(AwaitWait());
        EXPECT_TRUE(Await([] { return DaemonReport()["transfers"].size() == 1; })) << "the wait alone";
    }
};

TEST_F(DaemonEndurance, GrowsNotByTenThousandReloads) {
    StartAndLogIn();
    ReloadUpTo(1000);
    Settle();
    const auto memory = daemon->Memory();
    const auto descriptors = daemon->Descriptors();
    ReloadUpTo(10000);
    Settle();
    EXPECT_LE(daemon->Memory(), memory + kNoise);
    EXPECT_EQ(daemon->Descriptors(), descriptors);
    EXPECT_EQ(Count("register"), 1U) << "nothing has changed";
    ExpectOrderlyEnd();
}

TEST_F(DaemonEndurance, GrowsNotByAThousandAliasUpdates) {
    StartAndLogIn();
    UpdateAlias(50);
    Settle();
    alias.ClearRequests();
    const auto memory = daemon->Memory();
    const auto descriptors = daemon->Descriptors();
    UpdateAlias(1000);
    Settle();
    EXPECT_EQ(alias.Requests().size(), 1000U);
    EXPECT_LE(daemon->Memory(), memory + kNoise);
    EXPECT_EQ(daemon->Descriptors(), descriptors);
    ExpectOrderlyEnd();
}

TEST_F(DaemonEndurance, GrowsNotByAThousandFailedTries) {
    control.SetFault(R"({"kind":"errno","value":1,"command":"register","count":0})");
    Start({"--retry-base", "0.001", "--retry-cap", "0.002"});
    EXPECT_TRUE(Await([&] { return control.Requests().size() >= 200; }));
    const auto memory = daemon->Memory();
    const auto descriptors = daemon->Descriptors();
    for (int i = 0; i < 5; ++i) {
        control.ClearRequests();
        EXPECT_TRUE(Await([&] { return control.Requests().size() >= 200; }));
    }
    EXPECT_LE(daemon->Memory(), memory + kNoise);
    EXPECT_LE(daemon->Descriptors(), descriptors + 1) << "an exchange more or less";
    control.ClearFault();
    Settle();
    ExpectOrderlyEnd();
}

TEST_F(DaemonEndurance, SleepsWhileThereIsNothingToDo) {
    StartAndLogIn();
    const auto wakeUps = [] { return DaemonReport()["wake_ups"].asUInt64(); };
    const auto slept = [&] {
        const auto before = wakeUps();
        EXPECT_TRUE(Holds([] { return DaemonStatus() == kLoggedIn; }, seconds(1)));
        return wakeUps() == before + 1;  // for the report
    };
    EXPECT_TRUE(Await(slept)) << "the time limits of what it did at first may wake it, but not each second";
}

}  // namespace
}  // namespace ardv::test
