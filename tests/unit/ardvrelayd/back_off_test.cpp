// SPDX-License-Identifier: Apache-2.0
#include "back_off.h"

#include <algorithm>
#include <array>

#include <gtest/gtest.h>

#include "options.h"

using namespace ardv::daemon;
using namespace std::chrono_literals;
using std::chrono::milliseconds;

namespace {

constexpr int kDraws = 400;

/** The shortest and the longest of many times before the n-th attempt. */
struct Range {
    milliseconds shortest = milliseconds::max();
    milliseconds longest = milliseconds::min();
};

Range TimesBefore(int attempt, const BackOffPlan& plan) {
    Range range;
    for (int draw = 0; draw < kDraws; ++draw) {
        BackOff backOff;
        milliseconds time{};
        for (int i = 0; i < attempt; ++i) {
            time = backOff.Next(plan);
        }
        range = {std::min(range.shortest, time), std::max(range.longest, time)};
    }
    return range;
}

}  // namespace

TEST(BackOff, DoublesTheLongestTimeFromAttemptToAttempt) {
    const BackOffPlan plan = {1s, 1h};
    for (int attempt = 1; attempt <= 8; ++attempt) {
        const auto limit = 1s * (1 << (attempt - 1));
        const auto [shortest, longest] = TimesBefore(attempt, plan);
        EXPECT_LE(longest, limit) << "attempt " << attempt;
        EXPECT_GT(longest, limit * 9 / 10) << "attempt " << attempt << ": jitter reaches the top";
    }
}

TEST(BackOff, SpreadsTheTimesEvenly) {
    const BackOffPlan plan = {8s, 8s};
    std::array<int, 8> counts = {};
    for (int draw = 0; draw < 4000; ++draw) {
        const auto time = BackOff().Next(plan);
        ++counts.at(static_cast<std::size_t>(std::min<milliseconds::rep>(time / 1s, 7)));
    }
    EXPECT_EQ(counts[0], 0) << "below the floor of 1.6 s";
    for (std::size_t i = 2; i < counts.size(); ++i) {
        EXPECT_NEAR(counts.at(i), 500, 150) << i << " s";
    }
    EXPECT_GT(counts[1], 500) << "what falls below the floor is raised to it";
}

TEST(BackOff, NeverWaitsLessThanAFifthOfTheBase) {
    const auto [shortest, longest] = TimesBefore(1, {10s, 10s});
    EXPECT_EQ(shortest, 2s);
    EXPECT_EQ(TimesBefore(12, {10s, 10s}).shortest, 2s);
}

TEST(BackOff, NeverWaitsLongerThanTheCap) {
    const auto [shortest, longest] = TimesBefore(40, {1s, 60s});
    EXPECT_LE(longest, 60s);
    EXPECT_GT(longest, 54s);
}

TEST(BackOff, KeepsWithinTheCapHoweverOftenItFails) {
    BackOff backOff;
    const BackOffPlan plan = {24h, 24h * 365};
    for (int i = 0; i < 100; ++i) {
        const auto time = backOff.Next(plan);
        EXPECT_GE(time, plan.base / 5) << i;
        EXPECT_LE(time, plan.cap) << i;
    }
    EXPECT_EQ(backOff.Failures(), 100U);
}

TEST(BackOff, GoesAtOnceOnlyTheFirstTimeInARow) {
    BackOff backOff;
    EXPECT_TRUE(backOff.MayGoAtOnce());
    EXPECT_FALSE(backOff.MayGoAtOnce());
    backOff.Next({1s, 1s});
    EXPECT_FALSE(backOff.MayGoAtOnce());
    backOff.Reset();
    EXPECT_TRUE(backOff.MayGoAtOnce());
}

TEST(BackOff, BeginsANewRow) {
    BackOff backOff;
    for (int i = 0; i < 10; ++i) {
        backOff.Next({1s, 1h});
    }
    backOff.Reset();
    EXPECT_EQ(backOff.Failures(), 0U);
    EXPECT_LE(backOff.Next({1s, 1h}), 1s);
}

TEST(BackOff, HasTheFiguresOfTheProtocol) {
    const RetryPlans plans;
    EXPECT_EQ(plans.usual.base, 5s);
    EXPECT_EQ(plans.usual.cap, 15min);
    EXPECT_EQ(plans.slow.base, 5min);
    EXPECT_EQ(plans.slow.cap, 6h);
}

TEST(RandomTime, LiesBetweenZeroAndItsLimitAndReachesBoth) {
    auto shortest = milliseconds::max();
    auto longest = milliseconds::min();
    for (int draw = 0; draw < 500; ++draw) {
        const auto time = RandomTime(3ms);
        shortest = std::min(shortest, time);
        longest = std::max(longest, time);
    }
    EXPECT_EQ(shortest, 0ms);
    EXPECT_EQ(longest, 3ms);
}

TEST(RandomTime, IsZeroWithoutALimit) {
    EXPECT_EQ(RandomTime(0ms), 0ms);
    EXPECT_EQ(RandomTime(-5s), 0ms);
}
