// SPDX-License-Identifier: Apache-2.0
// The rules that guard the tunnel's interface, and the script that readies the kernel for it.
#include <functional>
#include <string>
#include <vector>

#include "tunnel_fixture.h"

namespace ARDV::Relay {

namespace {

using namespace ardv::test;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

struct Operation {
    std::string name;
    std::function<void(Tunnel&)> act;
    std::string message;
    std::vector<std::string> calls;     ///< those of the programs, in their order
    std::vector<std::string> failures;  ///< what is said after each call if it fails
};

const char kDropFailure[] = "tunnel.cpp Insert iptable rules failed, DROP RULE FAILED";
const char kIcmpFailure[] = "tunnel.cpp Insert iptable rules failed, ACCEPT ICMP RULE FAILED";
const char kPortFailure[] = "tunnel.cpp Insert iptable rules failed, ACCEPT RULE FAILED, port: 5000";
const char kFlushFailure[] = "tunnel.cpp Remove iptable rules failed";

const std::vector<Operation> kOperations = {
    {"AcceptsAPort",
     [](Tunnel& tunnel) { tunnel.InsertIptableAcceptRule(5000); },
     "tunnel.cpp Insert iptable accept rule",
     {"/sbin/iptables|-I|TETHRA_RELAY|-i|tun1000|-p|tcp|--dport|5000|-j|ACCEPT",
      "/sbin/ip6tables|-I|TETHRA_RELAY|-i|tun1000|-p|tcp|--dport|5000|-j|ACCEPT"},
     {kPortFailure, kPortFailure}},
    {"DropsTheRestAndAcceptsIcmp",
     [](Tunnel& tunnel) { tunnel.InsertIptableDefaultRule(); },
     "tunnel.cpp Insert iptable default rule",
     {"/sbin/iptables|-A|TETHRA_RELAY|-i|tun1000|-j|DROP", "/sbin/ip6tables|-A|TETHRA_RELAY|-i|tun1000|-j|DROP",
      "/sbin/iptables|-I|TETHRA_RELAY|-i|tun1000|-p|icmp|-j|ACCEPT",
      "/sbin/ip6tables|-I|TETHRA_RELAY|-i|tun1000|-p|ipv6-icmp|-j|ACCEPT"},
     {kDropFailure, kDropFailure, kIcmpFailure, kIcmpFailure}},
    {"EmptiesTheChain",
     [](Tunnel& tunnel) { tunnel.RemoveIptableRules(); },
     "tunnel.cpp Remove iptable rules",
     {"/sbin/iptables|-F|TETHRA_RELAY", "/sbin/ip6tables|-F|TETHRA_RELAY"},
     {kFlushFailure, kFlushFailure}},
    {"LoadsTheModule",
     [](Tunnel& tunnel) { tunnel.InsertKernelModule(); },
     "tunnel.cpp [iptablestool] insert kernel module",
     {kModuleLoad},
     {"tunnel.cpp [iptablestool] insert the kernel module failed"}},
    {"UnloadsTheModule",
     [](Tunnel& tunnel) { tunnel.RemoveKernelModule(); },
     "tunnel.cpp [iptablestool] remove kernel module",
     {kModuleUnload},
     {"tunnel.cpp [iptablestool] remove the kernel module failed"}},
};

class TunnelFilter : public TunnelTest, public testing::WithParamInterface<Operation> {
protected:
    void Act() { GetParam().act(tunnel); }
};

INSTANTIATE_TEST_SUITE_P(, TunnelFilter, testing::ValuesIn(kOperations),
                         [](const auto& one) { return one.param.name; });

}  // namespace

TEST_P(TunnelFilter, CallsTheseProgramsInThisOrder) {
    Act();
    EXPECT_THAT(programs.Calls(), ElementsAreArray(GetParam().calls));
}

TEST_P(TunnelFilter, SaysSoAtTheLevelOfDebugging) {
    ExpectMessage(7, GetParam().message, [this] { Act(); });
}

TEST_P(TunnelFilter, GoesOnAfterEachFailure) {
    for (const char* program : {"iptables", "ip6tables", "ovpnc.sh"}) {
        programs.EndWith(program, 4);
    }
    std::vector<std::string> messages = {GetParam().message};
    messages.insert(messages.end(), GetParam().failures.begin(), GetParam().failures.end());
    EXPECT_THAT(MessagesAt(7, [this] { Act(); }), ElementsAreArray(messages));
    EXPECT_THAT(programs.Calls(), ElementsAreArray(GetParam().calls));
    EXPECT_THAT(MessagesAt(6, [this] { Act(); }), IsEmpty());
}

TEST_F(TunnelTest, SaysWhichOfTheFamiliesFailed) {
    programs.EndWith("ip6tables", 1);
    EXPECT_THAT(MessagesAt(7, [this] { tunnel.InsertIptableDefaultRule(); }),
                ElementsAre("tunnel.cpp Insert iptable default rule", kDropFailure, kIcmpFailure));
}

TEST_F(TunnelTest, MissingProgramIsAFailure) {
    std::filesystem::remove("/sbin/iptables");
    EXPECT_THAT(MessagesAt(7, [this] { tunnel.RemoveIptableRules(); }),
                ElementsAre("tunnel.cpp Remove iptable rules", kFlushFailure));
    EXPECT_THAT(programs.Calls(), ElementsAre("/sbin/ip6tables|-F|TETHRA_RELAY"));
}

TEST_F(TunnelTest, PortIsANumberInDecimal) {
    tunnel.InsertIptableAcceptRule(65535);
    tunnel.InsertIptableAcceptRule(1);
    EXPECT_THAT(programs.CallsOf("iptables"),
                ElementsAre(testing::HasSubstr("|--dport|65535|-j|"), testing::HasSubstr("|--dport|1|-j|")));
}

}  // namespace ARDV::Relay
