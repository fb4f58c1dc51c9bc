// SPDX-License-Identifier: Apache-2.0
// Which candidates a tunnel is tried with.
#include <string>
#include <vector>

#include "support/child_faults.h"
#include "support/random_json.h"
#include "tunnel_fixture.h"

namespace ARDV::Relay {

namespace {

using namespace ardv::test;
using testing::ElementsAre;
using testing::IsEmpty;

class TunnelCandidates : public TunnelTest {
protected:
    /** Creates with a list that has nothing of use. What it says of the first. */
    std::string WhySkipped(const Json::Value& candidate, bool allowUdp = true, bool allowIpv6 = true) {
        Json::Value list(Json::arrayValue);
        list.append(candidate);
        tunnel.ResetTunnelData();
        programs.Forget();
        const CapturedLog log;
        EXPECT_FALSE(tunnel.Create(list, allowUdp, allowIpv6));
        EXPECT_EQ(tunnel.GetStatus(), TUNNEL_STATUS_FAILED);
        EXPECT_EQ(tunnel.GetCandidateIndex(), 1);
        EXPECT_THAT(programs.Calls(), ElementsAre(kModuleLoad, kModuleUnload));
        const auto messages = log.Messages();
        return messages.size() == 3 ? messages[1] : testing::PrintToString(messages);
    }
};

constexpr const char* kLacking = "tunnel.cpp skip candidate 0: it lacks protocol, port or mtu";
constexpr const char* kNoType = "tunnel.cpp skip candidate 0: it is not for OpenVPN";
constexpr const char* kNoPort = "tunnel.cpp skip candidate 0: its port is none";
constexpr const char* kNoMtu = "tunnel.cpp skip candidate 0: its mtu is no number";
constexpr const char* kNoProtocol = "tunnel.cpp skip candidate 0: its protocol is unknown";
constexpr const char* kNoIpv6 = "tunnel.cpp skip candidate 0: the relay server has no IPv6 address";

Json::Value With(const char* key, const Json::Value& value) {
    Json::Value candidate = Candidate("udp");
    candidate[key] = value;
    return candidate;
}

}  // namespace

TEST_F(TunnelCandidates, LoadsTheModuleAndStartsTheFirst) {
    EXPECT_TRUE(tunnel.Create(Candidates({"tcp", "udp"}), true, true));
    EXPECT_EQ(tunnel.GetStatus(), TUNNEL_STATUS_CREATING);
    EXPECT_EQ(tunnel.GetCandidateIndex(), 1);
    EXPECT_EQ(LastTried(), "198.51.100.7|--port|1194");
    EXPECT_EQ(programs.Calls().size(), 2U);
    EXPECT_EQ(programs.Calls().front(), kModuleLoad);
}

TEST_F(TunnelCandidates, EmptyListFailsAndUnloadsTheModule) {
    EXPECT_FALSE(tunnel.Create(Json::Value(Json::arrayValue), true, true));
    EXPECT_EQ(tunnel.GetStatus(), TUNNEL_STATUS_FAILED);
    EXPECT_EQ(tunnel.GetPid(), -1);
    EXPECT_THAT(programs.Calls(), ElementsAre(kModuleLoad, kModuleUnload));
}

TEST_F(TunnelCandidates, WhatIsNoArrayIsAnEmptyList) {
    for (const char* json : {"null", "{}", R"({"0":{"type":"openvpn","protocol":"udp","port":"1","mtu":"1400"}})", "7",
                             R"("openvpn")", "true"}) {
        EXPECT_FALSE(tunnel.Create(JsonOf(json), true, true)) << json;
        EXPECT_EQ(tunnel.GetStatus(), TUNNEL_STATUS_FAILED);
        EXPECT_EQ(tunnel.GetCandidateIndex(), 0);
    }
    EXPECT_THAT(programs.CallsOf("openvpn"), IsEmpty());
}

TEST_F(TunnelCandidates, Udp6AloneWithoutIpv6IsNoTunnel) {
    EXPECT_FALSE(tunnel.Create(Candidates({"udp6", "udp6"}), true, false));
    EXPECT_EQ(tunnel.GetStatus(), TUNNEL_STATUS_FAILED);
    EXPECT_EQ(tunnel.GetPid(), -1);
    EXPECT_EQ(tunnel.GetCandidateIndex(), 2);
    EXPECT_THAT(programs.Calls(), ElementsAre(kModuleLoad, kModuleUnload));
}

TEST_F(TunnelCandidates, SecondCallGoesOnBehindTheOneThatFailed) {
    Json::Value list = Candidates({"udp", "tcp"});
    list[1]["port"] = "443";
    ASSERT_TRUE(tunnel.Create(list, true, true));
    EXPECT_EQ(LastTried(), "198.51.100.7|--port|1194");
    EndOpenVpn();
    EXPECT_TRUE(tunnel.UpdateTunnelStatus());
    EXPECT_EQ(tunnel.GetStatus(), TUNNEL_STATUS_FAILED);
    programs.Forget();
    ASSERT_TRUE(tunnel.Create(list, true, true));
    EXPECT_EQ(LastTried(), "198.51.100.7|--port|443");
    EXPECT_EQ(programs.CallsOf("openvpn").size(), 1U);
    EndOpenVpn();
    EXPECT_FALSE(tunnel.Create(list, true, true)) << "the list is at its end";
    EXPECT_EQ(tunnel.GetStatus(), TUNNEL_STATUS_FAILED);
    EXPECT_EQ(tunnel.GetPid(), -1);
}

TEST_F(TunnelCandidates, ResetBeginsTheListAnew) {
    ASSERT_FALSE(tunnel.Create(Candidates({"udp6"}), true, false));
    tunnel.ResetTunnelData();
    EXPECT_EQ(tunnel.GetCandidateIndex(), 0);
    EXPECT_TRUE(tunnel.Create(Candidates({"udp6"}), true, true));
}

TEST_F(TunnelCandidates, ResetChangesNothingElse) {
    BringUp();
    const int pid = tunnel.GetPid();
    tunnel.ResetTunnelData();
    EXPECT_EQ(tunnel.GetPid(), pid);
    EXPECT_EQ(tunnel.GetStatus(), TUNNEL_STATUS_READY);
}

TEST_F(TunnelCandidates, ShorterListThanTheIndexIsAtItsEnd) {
    ASSERT_FALSE(tunnel.Create(Candidates({"udp6", "udp6", "udp6"}), true, false));
    EXPECT_FALSE(tunnel.Create(Candidates({"udp"}), true, true));
    EXPECT_EQ(tunnel.GetCandidateIndex(), 3);
}

TEST_F(TunnelCandidates, UnspecifiedIpv6AddressIsSkippedForIpv4) {
    tunnel.Overwrite(JsonOf(R"({"relay_ipv6":"::"})"));
    EXPECT_TRUE(tunnel.Create(Candidates({"tcp6", "tcp"}), true, true));
    EXPECT_EQ(tunnel.GetCandidateIndex(), 2);
    EXPECT_EQ(LastTried(), "198.51.100.7|--port|1194");
}

TEST_F(TunnelCandidates, ReadyTunnelStaysAsItIs) {
    BringUp();
    const int pid = tunnel.GetPid();
    EXPECT_FALSE(tunnel.Create(Candidates({"udp", "tcp"}), true, true));
    EXPECT_EQ(tunnel.GetStatus(), TUNNEL_STATUS_READY);
    EXPECT_EQ(tunnel.GetPid(), pid);
    EXPECT_EQ(tunnel.GetCandidateIndex(), 2) << "the candidate was looked at";
    EXPECT_THAT(programs.Calls(), ElementsAre(kModuleLoad));
    EXPECT_EQ(alarm(0), 0U);
    EXPECT_THAT(PassFiles(), IsEmpty());
}

TEST_F(TunnelCandidates, SkipsWhatIsNotForOpenVpn) {
    EXPECT_EQ(WhySkipped(JsonOf(R"({"protocol":"udp","port":"1194","mtu":"1400"})")), kNoType);
    EXPECT_EQ(WhySkipped(With("type", "OpenVPN")), kNoType);
    EXPECT_EQ(WhySkipped(With("type", "openvpn2")), kNoType);
    EXPECT_EQ(WhySkipped(With("type", "")), kNoType);
    EXPECT_EQ(WhySkipped(With("type", 1)), kNoType);
    EXPECT_EQ(WhySkipped(With("type", JsonOf(R"(["openvpn"])"))), kNoType);
    EXPECT_EQ(WhySkipped(With("type", Json::Value())), kNoType);
}

TEST_F(TunnelCandidates, SkipsWhatLacksAMember) {
    for (const char* member : {"protocol", "port", "mtu"}) {
        Json::Value candidate = Candidate("udp");
        candidate.removeMember(member);
        EXPECT_EQ(WhySkipped(candidate), kLacking) << member;
        EXPECT_EQ(WhySkipped(With(member, JsonOf(R"(["udp"])"))), kLacking) << member;
        EXPECT_EQ(WhySkipped(With(member, JsonOf(R"({"a":1})"))), kLacking) << member;
    }
}

TEST_F(TunnelCandidates, SkipsWhatIsNoObject) {
    for (const char* json : {"null", "7", "-1.5", "true", R"("openvpn")", R"(["openvpn","udp","1194","1400"])", "[]"}) {
        EXPECT_EQ(WhySkipped(JsonOf(json)), kNoType) << json;
    }
}

TEST_F(TunnelCandidates, SkipsAnUnknownProtocol) {
    for (const char* protocol : {"", "UDP", "tcp-client", "udp4", "--daemon", "udp "}) {
        EXPECT_EQ(WhySkipped(Candidate(protocol)), kNoProtocol) << protocol;
    }
    EXPECT_EQ(WhySkipped(With("protocol", Json::Value(std::string("udp\0", 4)))), kNoProtocol);
    EXPECT_EQ(WhySkipped(With("protocol", 17)), kNoProtocol);
    EXPECT_EQ(WhySkipped(With("protocol", Json::Value())), kNoProtocol);
}

TEST_F(TunnelCandidates, SkipsWhatIsNoPort) {
    for (const char* port : {"", "0", "65536", "70000", "-1", "+1", " 1", "1 ", "1194x", "http", "--up", "0x50",
                             "99999999999999999999", "1.0", "1\n"}) {
        EXPECT_EQ(WhySkipped(With("port", port)), kNoPort) << port;
    }
    EXPECT_EQ(WhySkipped(With("port", Json::Value(std::string("1194\0x", 6)))), kNoPort);
    EXPECT_EQ(WhySkipped(With("port", 0)), kNoPort);
    EXPECT_EQ(WhySkipped(With("port", 65536)), kNoPort);
    EXPECT_EQ(WhySkipped(With("port", -1)), kNoPort);
    EXPECT_EQ(WhySkipped(With("port", 1194.5)), kNoPort);
    EXPECT_EQ(WhySkipped(With("port", true)), kNoPort);
    EXPECT_EQ(WhySkipped(With("port", Json::Value())), kNoPort);
}

TEST_F(TunnelCandidates, SkipsWhatIsNoMtu) {
    for (const char* mtu : {"", "--up", "-1", "1500x", " 1500", "1500 ", "4294967296", "1e3", "0x5dc"}) {
        EXPECT_EQ(WhySkipped(With("mtu", mtu)), kNoMtu) << mtu;
    }
    EXPECT_EQ(WhySkipped(With("mtu", Json::Value(std::string("1500\0", 5)))), kNoMtu);
    EXPECT_EQ(WhySkipped(With("mtu", Json::Value())), kNoMtu);
}

TEST_F(TunnelCandidates, SkipsWhatIsNotAllowed) {
    const std::string udp = "tunnel.cpp skip candidate 0: UDP is not allowed";
    const std::string ipv6 = "tunnel.cpp skip candidate 0: IPv6 is not allowed";
    EXPECT_EQ(WhySkipped(Candidate("udp"), false, true), udp);
    EXPECT_EQ(WhySkipped(Candidate("udp6"), false, true), udp);
    EXPECT_EQ(WhySkipped(Candidate("udp6"), true, false), ipv6);
    EXPECT_EQ(WhySkipped(Candidate("tcp6"), true, false), ipv6);
    EXPECT_EQ(WhySkipped(Candidate("udp"), false, false), udp);
}

TEST_F(TunnelCandidates, SkipsIpv6WithoutAnAddress) {
    for (const char* address : {"::", ""}) {
        tunnel.Overwrite(JsonOf(R"({"relay_ipv6":")" + std::string(address) + "\"}"));
        EXPECT_EQ(WhySkipped(Candidate("udp6")), kNoIpv6);
        EXPECT_EQ(WhySkipped(Candidate("tcp6")), kNoIpv6);
    }
}

TEST_F(TunnelCandidates, SkipsAnAddressThatWouldBeAnOption) {
    const std::string option = "tunnel.cpp skip candidate 0: the relay server's address looks like an option";
    tunnel.Overwrite(JsonOf(R"({"relay_ip":"--float"})"));
    EXPECT_EQ(WhySkipped(Candidate("udp")), option);
    EXPECT_EQ(WhySkipped(Candidate("tcp")), option);
    tunnel.Overwrite(JsonOf(R"({"relay_ip":"a.zz","relay_ipv6":"-"})"));
    EXPECT_EQ(WhySkipped(Candidate("tcp6")), option);
}

TEST_F(TunnelCandidates, SaysAtTheLevelOfDebuggingWhyOneIsSkipped) {
    ExpectMessage(7, "tunnel.cpp [iptablestool] insert kernel module", [this] { tunnel.InsertKernelModule(); });
    EXPECT_THAT(MessagesAt(6, [this] { tunnel.Create(Candidates({"no such"}), true, true); }), IsEmpty());
}

TEST_F(TunnelCandidates, EachIsStartedWhereItIsAllowed) {
    struct Case {
        const char* protocol;
        bool allowUdp;
        bool allowIpv6;
    };
    for (const Case& one :
         {Case{"udp", true, false}, Case{"tcp", false, false}, Case{"udp6", true, true}, Case{"tcp6", false, true}}) {
        tunnel.ResetTunnelData();
        EXPECT_TRUE(tunnel.Create(Candidates({one.protocol}), one.allowUdp, one.allowIpv6)) << one.protocol;
        EndOpenVpn();
    }
}

TEST_F(TunnelCandidates, NumbersCountForTheirTexts) {
    Json::Value candidate = With("port", 1);
    candidate["mtu"] = 4294967295U;
    Json::Value list(Json::arrayValue);
    list.append(candidate);
    ASSERT_TRUE(tunnel.Create(list, true, true));
    EXPECT_EQ(LastTried(), "198.51.100.7|--port|1");
    EXPECT_EQ(Between(programs.CallsOf("openvpn").back(), "|--tun-mtu|", "|--ping-exit|"), "4294967295");
}

TEST_F(TunnelCandidates, HighestPortIsAPort) {
    EXPECT_TRUE(tunnel.RunVPNTunnel(With("port", "65535")));
    EXPECT_EQ(LastTried(), "198.51.100.7|--port|65535");
}

TEST_F(TunnelCandidates, GoesOnWithTheNextWithoutAChild) {
    ChildFaults faults;
    faults.forkFails = true;
    EXPECT_FALSE(tunnel.Create(Candidates({"udp", "tcp"}), true, true));
    EXPECT_EQ(tunnel.GetStatus(), TUNNEL_STATUS_FAILED) << "the list was walked to its end";
    EXPECT_EQ(tunnel.GetCandidateIndex(), 2);
    EXPECT_EQ(tunnel.GetPid(), -1);
    EXPECT_THAT(programs.Calls(), ElementsAre(kModuleLoad, kModuleUnload));
    EXPECT_THAT(PassFiles(), IsEmpty());
}

TEST_F(TunnelCandidates, StartsTheNextIfTheChildFailsOnce) {
    ChildFaults faults;
    faults.chmodFails = true;
    faults.onChmod = [&faults, calls = 0](int) mutable { faults.chmodFails = ++calls < 2; };
    EXPECT_TRUE(tunnel.Create(Candidates({"udp", "tcp", "tcp6"}), true, true));
    EXPECT_EQ(tunnel.GetStatus(), TUNNEL_STATUS_CREATING);
    EXPECT_EQ(tunnel.GetCandidateIndex(), 2);
    EXPECT_EQ(LastTried(), "198.51.100.7|--port|1194");
}

TEST_F(TunnelCandidates, NothingThatAServerSaysIsTooMuch) {
    RandomJson random(1, {"type", "protocol", "port", "mtu", "mtu-disc", "relay_ip", "relay_user"});
    for (int round = 0; round < 200; ++round) {
        Json::Value list(Json::arrayValue);
        list.append(random.Value(3));
        list.append(random.Object(2));
        list[1]["type"] = "openvpn";
        tunnel.Overwrite(random.Object(2));
        tunnel.ResetTunnelData();
        EXPECT_NO_THROW(tunnel.Create(list, true, true));
        EXPECT_NO_THROW(tunnel.Create(list[0], true, true));
        EXPECT_NO_THROW(tunnel.RunVPNTunnel(random.Value(2)));
    }
    EXPECT_THAT(programs.CallsOf("openvpn"), IsEmpty());
}

}  // namespace ARDV::Relay
