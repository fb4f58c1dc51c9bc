// SPDX-License-Identifier: Apache-2.0
#include "tunnel_order.h"

#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/device_test.h"

using namespace ardv::test;
using namespace ardv::daemon;

namespace {

constexpr const char kOrder[] =
    R"({"relay":{"relay_ip":"198.51.100.7","relay_ipv6":"2001:db8:7::1","relay_user":"box-1","relay_pass":"a b/\"c"},
        "candidates":[{"type":"openvpn","protocol":"udp","port":"1194","mtu":"1500"},7]})";

/** The order with a member of its relay replaced; null takes it away. */
std::optional<TunnelOrder> With(const char* key, const Json::Value& value) {
    auto members = JsonOf(kOrder);
    members["relay"][key] = value;
    if (value.isNull()) {
        members["relay"].removeMember(key);
    }
    return ReadTunnelOrder(members);
}

TEST(TunnelOrderText, IsTakenAsItStands) {
    const auto order = ReadTunnelOrder(JsonOf(kOrder));
    ASSERT_TRUE(order);
    EXPECT_EQ(order->relay, JsonOf(kOrder)["relay"]);
    EXPECT_EQ(order->candidates, JsonOf(kOrder)["candidates"]);
}

TEST(TunnelOrderText, NeedsRelayAndCandidates) {
    for (const char* text : {"{}", "[]", "7", R"({"relay":{}})", R"({"candidates":[]})",
                             R"({"relay":[],"candidates":[]})", R"({"relay":{},"candidates":{}})"}) {
        EXPECT_FALSE(ReadTunnelOrder(JsonOf(text))) << text;
    }
}

TEST(TunnelOrderText, MayLackMembersOfTheRelay) {
    for (const char* key : {"relay_ip", "relay_ipv6", "relay_user", "relay_pass"}) {
        for (const Json::Value& value : {Json::Value(), Json::Value(7), Json::Value("")}) {
            const auto order = With(key, value);
            ASSERT_TRUE(order) << key;
            EXPECT_EQ(order->relay[key], "") << key;
        }
    }
}

struct BadMember {
    const char* name;
    const char* key;
    std::string value;
};

class BadTunnelOrder : public testing::TestWithParam<BadMember> {};

TEST_P(BadTunnelOrder, IsRefused) {
    EXPECT_FALSE(With(GetParam().key, GetParam().value));
}

INSTANTIATE_TEST_SUITE_P(
    Members, BadTunnelOrder,
    testing::Values(
        BadMember{"OptionAsHost", "relay_ip", "--float"}, BadMember{"HostWithPort", "relay_ip", "192.0.2.1 1194"},
        BadMember{"LongHost", "relay_ip", std::string(254, 'a')}, BadMember{"LineBreakInHost", "relay_ip", "a\nb"},
        BadMember{"NulInHost", "relay_ip", std::string("a\0b", 3)},
        BadMember{"NameAsIPv6", "relay_ipv6", "relay.example"}, BadMember{"IPv4AsIPv6", "relay_ipv6", "192.0.2.1"},
        BadMember{"OptionAsIPv6", "relay_ipv6", "--up"}, BadMember{"NulInIPv6", "relay_ipv6", std::string("::1\0x", 5)},
        BadMember{"SlashInUser", "relay_user", "a/b"}, BadMember{"BlankInUser", "relay_user", "a b"},
        BadMember{"LineBreakInUser", "relay_user", "a\nb"}, BadMember{"LongUser", "relay_user", std::string(65, 'u')},
        BadMember{"LineBreakInPassword", "relay_pass", "a\nb"},
        BadMember{"LongPassword", "relay_pass", std::string(501, 'p')}),
    [](const auto& row) { return row.param.name; });

TEST(TunnelOrderText, TakesTheLongestUserAndPassword) {
    EXPECT_TRUE(With("relay_user", std::string(64, 'u')));
    EXPECT_TRUE(With("relay_pass", std::string(500, 'p')));
}

TEST(TunnelOrderText, PassesOverCandidatesBeyondTheSixteenth) {
    auto members = JsonOf(kOrder);
    members["candidates"] = Json::arrayValue;
    for (int i = 0; i < 20; ++i) {
        members["candidates"].append(i);
    }
    const auto order = ReadTunnelOrder(members);
    ASSERT_TRUE(order);
    ASSERT_EQ(order->candidates.size(), 16U);
    EXPECT_EQ(order->candidates[15], 15);
}

}  // namespace
