// SPDX-License-Identifier: Apache-2.0
#include <type_traits>

#include "tunnel_fixture.h"

namespace ARDV::Relay {

namespace {

using namespace ardv::test;

static_assert(std::is_base_of_v<Config, Tunnel>);
static_assert(!std::is_copy_constructible_v<Tunnel> && !std::is_copy_assignable_v<Tunnel>);

TEST(TunnelConf, StartsWithoutAChildAndWithoutSettings) {
    Tunnel tunnel;
    EXPECT_EQ(tunnel.GetPid(), -1);
    EXPECT_EQ(tunnel.GetStatus(), TUNNEL_STATUS_NONE);
    EXPECT_EQ(tunnel.GetHost(), "");
    EXPECT_EQ(tunnel.GetCandidateIndex(), 0);
    EXPECT_FALSE(tunnel.IsAlive());
    EXPECT_EQ(Written(tunnel, true), "{\"pid\":-1,\"relay_ip\":\"\",\"relay_user\":\"\",\"status\":\"NONE\"}\n");
}

TEST(TunnelConf, IsMadeFromAValue) {
    Tunnel tunnel(JsonOf(kRelayJson));
    EXPECT_EQ(tunnel.GetHost(), "198.51.100.7");
    EXPECT_TRUE(tunnel.IsValid());
    EXPECT_EQ(tunnel.GetPid(), -1);
    EXPECT_EQ(tunnel.GetStatus(), TUNNEL_STATUS_NONE);
}

TEST(TunnelConf, MergeChangesOnlyWhatIsNamed) {
    Tunnel tunnel(JsonOf(kRelayJson));
    EXPECT_TRUE(tunnel.Overwrite(JsonOf(R"({"relay_user":"u2","status":"READY","pid":1})")));
    EXPECT_EQ(Written(tunnel, true),
              "{\"pid\":-1,\"relay_ip\":\"198.51.100.7\",\"relay_user\":\"u2\",\"status\":\"NONE\"}\n");
    EXPECT_TRUE(tunnel.Overwrite(JsonOf(R"({"relay_ip":""})")));
    EXPECT_EQ(tunnel.GetHost(), "") << "an empty text is a text";
}

TEST(TunnelConf, WhatIsNoTextLeavesItsSetting) {
    Tunnel tunnel(JsonOf(kRelayJson));
    for (const char* json : {R"({"relay_ip":1,"relay_ipv6":null,"relay_user":["x"],"relay_pass":{}})", "[]", "null",
                             R"("relay_ip")", "7", R"([{"relay_ip":"192.0.2.1"}])"}) {
        EXPECT_TRUE(tunnel.Overwrite(JsonOf(json)));
        EXPECT_TRUE(tunnel.IsValid());
        EXPECT_EQ(Written(tunnel, true),
                  "{\"pid\":-1,\"relay_ip\":\"198.51.100.7\",\"relay_user\":\"u1\",\"status\":\"NONE\"}\n");
    }
}

TEST(TunnelConf, IsValidWithAddressAndCredentials) {
    const Tunnel whole(JsonOf(R"({"relay_ip":"a.zz","relay_user":"u","relay_pass":"p"})"));
    const CapturedLog log;
    EXPECT_TRUE(whole.IsValid()) << "an IPv6 address isn't needed";
    EXPECT_THAT(log.Messages(), testing::IsEmpty());
}

TEST(TunnelConf, IsNotValidWithoutOneOfThem) {
    for (const char* missing : {"relay_ip", "relay_user", "relay_pass"}) {
        Json::Value settings = JsonOf(kRelayJson);
        settings[missing] = "";
        const Tunnel tunnel(settings);
        EXPECT_FALSE(tunnel.IsValid()) << missing;
        ExpectMessage(7, "tunnel.cpp invalid tunnel server info", [&] { tunnel.IsValid(); });
    }
}

TEST(TunnelConf, WritesTheAddressAloneUnlessAllIsAskedFor) {
    EXPECT_EQ(Written(Tunnel(JsonOf(kRelayJson)), false), "{\"relay_ip\":\"198.51.100.7\"}\n");
}

TEST(TunnelConf, KeepsWhatElseIsInTheValue) {
    Json::Value value = JsonOf(R"({"relay_pass":"of somebody else","other":1})");
    EXPECT_TRUE(Tunnel(JsonOf(kRelayJson)).Write(value, false));
    EXPECT_EQ(value, JsonOf(R"({"relay_pass":"of somebody else","other":1,"relay_ip":"198.51.100.7"})"));
}

TEST(TunnelConf, MakesAnObjectOfWhatIsNone) {
    for (const char* json : {"null", "[1]", "7", R"("text")"}) {
        Json::Value value = JsonOf(json);
        EXPECT_TRUE(Tunnel(JsonOf(kRelayJson)).Write(value, false));
        EXPECT_EQ(value, JsonOf(R"({"relay_ip":"198.51.100.7"})")) << json;
    }
}

TEST(TunnelConf, NeverWritesPasswordAndIpv6Address) {
    const Tunnel tunnel(JsonOf(kRelayJson));
    for (const bool full : {false, true}) {
        const std::string text = Written(tunnel, full);
        EXPECT_THAT(text, testing::Not(testing::HasSubstr("secret 1")));
        EXPECT_THAT(text, testing::Not(testing::HasSubstr("2001:db8:7::7")));
    }
}

TEST(TunnelConf, HasATextForEachStatus) {
    EXPECT_EQ(Tunnel::GetStatusStr(TUNNEL_STATUS_NONE), "NONE");
    EXPECT_EQ(Tunnel::GetStatusStr(TUNNEL_STATUS_READY), "READY");
    EXPECT_EQ(Tunnel::GetStatusStr(TUNNEL_STATUS_CLOSE), "CLOSE");
    EXPECT_EQ(Tunnel::GetStatusStr(TUNNEL_STATUS_FAILED), "FAILED");
    EXPECT_EQ(Tunnel::GetStatusStr(TUNNEL_STATUS_INVALID_CONF), "INVALID_CONF");
    EXPECT_EQ(Tunnel::GetStatusStr(TUNNEL_STATUS_CREATING), "CREATING");
    EXPECT_EQ(Tunnel::GetStatusStr(static_cast<TUNNEL_STATUS>(6)), "(unknown)");
    EXPECT_EQ(Tunnel::GetStatusStr(static_cast<TUNNEL_STATUS>(-1)), "(unknown)");
}

TEST(TunnelConf, NumbersOfTheStatusesArePublished) {
    EXPECT_EQ(TUNNEL_STATUS_NONE, 0);
    EXPECT_EQ(TUNNEL_STATUS_READY, 1);
    EXPECT_EQ(TUNNEL_STATUS_CLOSE, 2);
    EXPECT_EQ(TUNNEL_STATUS_FAILED, 3);
    EXPECT_EQ(TUNNEL_STATUS_INVALID_CONF, 4);
    EXPECT_EQ(TUNNEL_STATUS_CREATING, 5);
}

TEST(TunnelConf, OwnerMarksSettingsThatAreNotValid) {
    Tunnel tunnel;
    tunnel.SetStatus(TUNNEL_STATUS_INVALID_CONF);
    EXPECT_EQ(tunnel.GetStatus(), TUNNEL_STATUS_INVALID_CONF);
    EXPECT_TRUE(tunnel.UpdateTunnelStatus());
    EXPECT_EQ(tunnel.GetStatus(), TUNNEL_STATUS_NONE);
}

}  // namespace

}  // namespace ARDV::Relay
