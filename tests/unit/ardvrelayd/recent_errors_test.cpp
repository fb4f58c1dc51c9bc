// SPDX-License-Identifier: Apache-2.0
#include "recent_errors.h"

#include <string>

#include <gtest/gtest.h>

using ardv::daemon::RecentErrors;

TEST(RecentErrors, IsAnEmptyListAtFirst) {
    const auto list = RecentErrors().Describe();
    EXPECT_TRUE(list.isArray());
    EXPECT_TRUE(list.empty());
}

TEST(RecentErrors, TellsWhatFailedHowAndWhen) {
    RecentErrors errors;
    const auto before = std::time(nullptr);
    errors.Add("register", "err_network");
    const auto list = errors.Describe();
    ASSERT_EQ(list.size(), 1U);
    EXPECT_EQ(list[0]["what"], "register");
    EXPECT_EQ(list[0]["result"], "err_network");
    EXPECT_EQ(list[0]["times"].asUInt(), 1U);
    EXPECT_GE(list[0]["time"].asInt64(), before);
    EXPECT_LE(list[0]["time"].asInt64(), std::time(nullptr));
}

TEST(RecentErrors, CountsRepetitionsOfTheLast) {
    RecentErrors errors;
    for (int i = 0; i < 3; ++i) {
        errors.Add("wait", "err_network");
    }
    errors.Add("wait", "err_resolv");
    errors.Add("keep alive", "err_resolv");
    errors.Add("wait", "err_network");
    const auto list = errors.Describe();
    ASSERT_EQ(list.size(), 4U);
    EXPECT_EQ(list[0]["times"].asUInt(), 3U);
    EXPECT_EQ(list[1]["times"].asUInt(), 1U);
    EXPECT_EQ(list[2]["times"].asUInt(), 1U) << "the same result of something else";
    EXPECT_EQ(list[3]["times"].asUInt(), 1U) << "the same as an older one";
}

TEST(RecentErrors, KeepsTheNewestSixteen) {
    RecentErrors errors;
    for (int i = 0; i < 40; ++i) {
        errors.Add("attempt " + std::to_string(i), "err_network");
    }
    const auto list = errors.Describe();
    ASSERT_EQ(list.size(), 16U);
    EXPECT_EQ(list[0]["what"], "attempt 24");
    EXPECT_EQ(list[15]["what"], "attempt 39");
}
