// SPDX-License-Identifier: Apache-2.0
#include "policy.h"

#include <map>
#include <set>

#include <gtest/gtest.h>

using namespace ARDV::Relay;
using namespace ardv::daemon;

namespace {

/** What is done about an error number of a control server. */
Action ActionForNumber(int number) {
    const auto error = static_cast<RELAYSERVER_ERR>(number);
    return ActionFor(error, RespErrMap(error));
}

}  // namespace

TEST(Policy, KnowsWhatToDoAboutEachErrorNumber) {
    const std::map<Action, std::set<int>> kRows = {
        {Action::kGoOn, {0}},
        {Action::kAgain, {6}},
        {Action::kMove, {13}},
        {Action::kAgainWithFreshNetwork, {14}},
        {Action::kWaitForUser, {2, 10, 15, 30}},
        {Action::kBackOffSlowly, {3, 4, 5, 9, 11, 12, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29}},
        {Action::kBackOff, {1, 7, 8}},
    };
    std::size_t count = 0;
    for (const auto& [action, numbers] : kRows) {
        for (const int number : numbers) {
            EXPECT_EQ(ActionForNumber(number), action) << "errno " << number;
        }
        count += numbers.size();
    }
    EXPECT_EQ(count, 31U) << "every number from 0 to 30";
}

TEST(Policy, TakesANumberWithoutMeaningForSomethingThatIsNotSupported) {
    for (const int number : {-1, 31, 255, 2147483647}) {
        EXPECT_EQ(ActionForNumber(number), Action::kBackOffSlowly) << "errno " << number;
    }
}

TEST(Policy, KnowsWhatToDoWhereNoServerAnswered) {
    EXPECT_EQ(ActionFor(RELAYD_RET_ERR_NETWORK), Action::kBackOff);
    EXPECT_EQ(ActionFor(RELAYD_RET_ERR_SERVER_BUSY), Action::kBackOff);
    EXPECT_EQ(ActionFor(RELAYD_RET_ERR_RESOLV), Action::kResolveAnew);
    EXPECT_EQ(ActionFor(RELAYD_RET_ERR_UNKNOWN), Action::kBackOff);
    EXPECT_EQ(ActionFor(static_cast<RELAYD_RET>(2)), Action::kBackOff) << "libcurl's other failures have no name";
}

TEST(Policy, DistinguishesASessionThatIsOverFromAnIdentityThatIsRefused) {
    ASSERT_EQ(RespErrMap(RELAYSERVER_ERR_SESSION_TIMEOUT), RespErrMap(RELAYSERVER_ERR_AUTH)) << "one result for both";
    EXPECT_NE(ActionForNumber(RELAYSERVER_ERR_SESSION_TIMEOUT), ActionForNumber(RELAYSERVER_ERR_AUTH));
}

TEST(Policy, FollowsTheRetryClassOfAnAliasOutcome) {
    const std::map<Action, std::set<ALIAS_RET>> kRows = {
        {Action::kGoOn, {ALIAS_RET_SUCCESS}},
        {Action::kAgain, {ALIAS_RET_NOT_FOUND}},
        {Action::kResolveAnew, {ALIAS_RET_DNS}},
        {Action::kWaitForUser,
         {ALIAS_RET_INUSED, ALIAS_RET_AUTH, ALIAS_RET_BAD_IP, ALIAS_RET_SELF_INUSED, ALIAS_RET_NOT_SET,
          ALIAS_RET_VIOLATION}},
        {Action::kBackOff,
         {ALIAS_RET_SYSTEM, ALIAS_RET_BAD_PARAM, ALIAS_RET_NETWORK, ALIAS_RET_911, ALIAS_RET_SERVER_BUSY,
          ALIAS_RET_API_KEY_EXPIRED, ALIAS_RET_UNKNOWN}},
    };
    std::size_t count = 0;
    for (const auto& [action, results] : kRows) {
        for (const auto result : results) {
            EXPECT_EQ(ActionFor(result), action) << "alias result " << result;
        }
        count += results.size();
    }
    EXPECT_EQ(count, 16U) << "every alias result";
    EXPECT_EQ(ActionFor(static_cast<ALIAS_RET>(77)), Action::kBackOff) << "one without a name";
}

TEST(Policy, TellsTheDaemonsResultForAnAliasOutcome) {
    const std::map<ALIAS_RET, RELAYD_RET> kMeanings = {
        {ALIAS_RET_SUCCESS, RELAYD_RET_SUCCESS},         {ALIAS_RET_NOT_FOUND, RELAYD_RET_ERR_UNKNOWN},
        {ALIAS_RET_INUSED, RELAYD_RET_ERR_AUTH},         {ALIAS_RET_SYSTEM, RELAYD_RET_ERR_SERVER_BUSY},
        {ALIAS_RET_BAD_PARAM, RELAYD_RET_ERR_UNKNOWN},   {ALIAS_RET_NETWORK, RELAYD_RET_ERR_NETWORK},
        {ALIAS_RET_DNS, RELAYD_RET_ERR_RESOLV},          {ALIAS_RET_AUTH, RELAYD_RET_ERR_AUTH},
        {ALIAS_RET_911, RELAYD_RET_ERR_SERVER_BUSY},     {ALIAS_RET_SERVER_BUSY, RELAYD_RET_ERR_SERVER_BUSY},
        {ALIAS_RET_BAD_IP, RELAYD_RET_ERR_UNKNOWN},      {ALIAS_RET_SELF_INUSED, RELAYD_RET_ERR_AUTH},
        {ALIAS_RET_NOT_SET, RELAYD_RET_ERR_CONFIG},      {ALIAS_RET_API_KEY_EXPIRED, RELAYD_RET_ERR_API_KEY_EXPIRED},
        {ALIAS_RET_VIOLATION, RELAYD_RET_ERR_VIOLATION}, {ALIAS_RET_UNKNOWN, RELAYD_RET_ERR_UNKNOWN},
    };
    for (const auto& [outcome, result] : kMeanings) {
        EXPECT_EQ(ResultOf(outcome), result) << "alias result " << outcome;
    }
}
