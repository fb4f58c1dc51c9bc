// SPDX-License-Identifier: Apache-2.0
#include <relay/utils/host_name.h>

#include <string>
#include <utility>

#include <relay/utils/utils.h>

#include "support/device_test.h"

namespace ARDV::Relay::Utils {

namespace {

using namespace ardv::test;
using testing::ElementsAre;

class TopDomainOf : public testing::TestWithParam<std::pair<std::string, std::string>> {};

TEST_P(TopDomainOf, IsTheLabelAfterTheServicesOwn) {
    const auto& [host, label] = GetParam();
    const CapturedLog log;
    EXPECT_EQ(GetTethraHostTopDomain(host), label);
    EXPECT_EQ(log.Text(), "");
}

INSTANTIATE_TEST_SUITE_P(Hosts, TopDomainOf,
                         testing::Values(std::pair("box1.tethra.zz", "zz"), std::pair("a.b.tethra.zz", "zz"),
                                         std::pair("x.tethra.one.tethra.two", "two"), std::pair("-.tethra.Z9", "Z9"),
                                         std::pair("..tethra.zz", "zz"), std::pair("tethra.tethra.zz", "zz"),
                                         std::pair(std::string(1024 - 10, 'a') + ".tethra.zz", "zz")),
                         [](const auto& host) { return "Host" + std::to_string(host.index); });

class NoTopDomainOf : public testing::TestWithParam<std::string> {};

TEST_P(NoTopDomainOf, IsGivenButAMessageOfLevelThree) {
    const CapturedLog log(3);
    EXPECT_EQ(GetTethraHostTopDomain(GetParam()), "");
    const std::string shown = GetParam().substr(0, GetParam().find('\0'));
    EXPECT_THAT(log.Text(),
                testing::EndsWith(" utils.cpp:194 check host: Failed to parse global domain: " + shown + "\n"));
    const CapturedLog quiet(2);
    EXPECT_EQ(GetTethraHostTopDomain(GetParam()), "");
    EXPECT_EQ(quiet.Text(), "");
}

INSTANTIATE_TEST_SUITE_P(Hosts, NoTopDomainOf,
                         testing::Values("", "tethra.zz", ".tethra.zz", "x.tethra.zz.yy", "x.TETHRA.zz", "x.tethra.z-z",
                                         "x.tethra.", "x.tethra", "x.tethra.zz.", "xtethra.zz", "x.xtethra.zz",
                                         "x.other.zz", "x\n.tethra.zz", "x.tethra.zz\n", "%s%n.tethra.-",
                                         std::string("x.tethra.z\0z", 12), std::string("x.tethra.zz\0", 12),
                                         std::string(1024 - 9, 'a') + ".tethra.zz", std::string(30'000, 'a')),
                         [](const auto& host) { return "Host" + std::to_string(host.index); });

TEST(HostName, IsMatchedAsAWhole) {
    const std::string host = "ab";
    std::smatch match;
    EXPECT_TRUE(MatchHostName(host, "a(.)", match));
    EXPECT_EQ(match.str(1), "b");
    EXPECT_FALSE(MatchHostName(host, "a", match));
    EXPECT_FALSE(MatchHostName(host, "A(.)", match));
}

TEST(HostName, MatchesNothingBeyondItsBound) {
    std::smatch match;
    const std::string longest(kMaxHostNameBytes, 'a');
    const std::string tooLong = longest + "a";
    EXPECT_TRUE(MatchHostName(longest, "a+", match));
    EXPECT_FALSE(MatchHostName(tooLong, "a+", match));
}

}  // namespace

}  // namespace ARDV::Relay::Utils
