// SPDX-License-Identifier: Apache-2.0
#include "clock_watch.h"

#include <fcntl.h>
#include <sys/timerfd.h>

#include <limits>
#include <memory>
#include <vector>

#include <gtest/gtest.h>

#include "support/file_text.h"
#include "support/scratch_folder.h"
#include "support/set_clock.h"
#include "unit/ardvrelayd/daemon_loop.h"

using namespace ardv::test;
using namespace ardv::daemon;
using namespace std::chrono_literals;

namespace {

class Clock : public testing::Test {
protected:
    /** What is told of what happens. */
    std::vector<ClockChange> Changes() {
        changes_.clear();
        RunFor(loop_, 30ms);
        return changes_;
    }

    static void ExpectAbout(std::chrono::milliseconds actual, std::chrono::milliseconds expected) {
        EXPECT_GE(actual, expected - 5ms);
        EXPECT_LE(actual, expected + 5ms);
    }

    EventLoop loop_;
    std::vector<ClockChange> changes_;
    std::unique_ptr<ClockWatch> watch_ =
        std::make_unique<ClockWatch>(loop_, [this](const ClockChange& change) { changes_.push_back(change); });
};

}  // namespace

TEST_F(Clock, ThatIsSetIsToldEachTime) {
    for (const auto jump : {std::chrono::milliseconds(1h), std::chrono::milliseconds(-26h), 1500ms}) {
        SetClockBy(jump);
        const auto changes = Changes();
        ASSERT_EQ(changes.size(), 1U);
        ExpectAbout(changes[0].jump, jump);
        ExpectAbout(changes[0].slept, 0ms);
    }
}

TEST_F(Clock, OfAMachineThatSleptTellsHowLong) {
    Suspend(8h);
    const auto changes = Changes();
    ASSERT_EQ(changes.size(), 1U);
    ExpectAbout(changes[0].slept, 8h);
    ExpectAbout(changes[0].jump, 0ms);
}

TEST_F(Clock, IsQuietOtherwise) {
    RunFor(loop_, 300ms);
    EXPECT_TRUE(changes_.empty());
    EXPECT_EQ(loop_.Turns(), 1U);
}

TEST_F(Clock, IsWatchedByATimerThatIsNeverDue) {
    const auto isArmed = [] {
        itimerspec left = {};
        EXPECT_EQ(timerfd_gettime(RealTimeTimer(), &left), 0);
        const auto info = ReadText("/proc/self/fdinfo/" + std::to_string(RealTimeTimer()));
        EXPECT_NE(info.find("settime flags: 03"), std::string::npos) << "absolute, cancelled when the clock is set\n"
                                                                     << info;
        constexpr time_t kCentury = 100L * 365 * 24 * 3600;
        return left.it_value.tv_sec > kCentury;
    };
    EXPECT_TRUE(isArmed());
    EXPECT_NE(fcntl(RealTimeTimer(), F_GETFD) & FD_CLOEXEC, 0);
    SetClockBy(1h);
    Changes();
    EXPECT_TRUE(isArmed()) << "again";
}

TEST_F(Clock, MayEndItsWatchWhenItIsSet) {
    watch_ = nullptr;
    const auto before = OpenDescriptors();
    int calls = 0;
    watch_ = std::make_unique<ClockWatch>(loop_, [&](const ClockChange&) {
        ++calls;
        watch_.reset();
    });
    SetClockBy(1h);
    RunFor(loop_, 30ms);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(loop_.Watches(), 0U);
    EXPECT_EQ(OpenDescriptors(), before);
}
