// SPDX-License-Identifier: Apache-2.0
#include <relay/tunnel/packet_filter.h>

#include <array>
#include <string>
#include <string_view>

#include <ardv/program.h>

#include <relay/daemon/log.h>
#include <relay/tunnel/tunnel_names.h>

RELAY_LOG_SOURCE("tunnel.cpp");

namespace ARDV::Relay::PacketFilter {

namespace {

constexpr const char kFamilysIcmp[] = "<icmp>";  // stands for the family's own protocol
constexpr const char kGivenPort[] = "<port>";

struct Family {
    const char* program;
    const char* icmp;
};

constexpr std::array<Family, 2> kFamilies = {{
    {"/sbin/iptables", "icmp"},
    {"/sbin/ip6tables", "ipv6-icmp"},
}};

/** The arguments of one command, null from their end on, and the message of its failure, which a given port completes. */
using Words = std::array<const char*, 10>;
struct Rule {
    Words words;
    const char* failure;
};

constexpr Rule kAcceptPort = {
    {"-I", TunnelNames::kChain, "-i", TunnelNames::kInterface, "-p", "tcp", "--dport", kGivenPort, "-j", "ACCEPT"},
    "Insert iptable rules failed, ACCEPT RULE FAILED, port: "};
constexpr Rule kDropAll = {{"-A", TunnelNames::kChain, "-i", TunnelNames::kInterface, "-j", "DROP"},
                           "Insert iptable rules failed, DROP RULE FAILED"};
constexpr Rule kAcceptIcmp = {
    {"-I", TunnelNames::kChain, "-i", TunnelNames::kInterface, "-p", kFamilysIcmp, "-j", "ACCEPT"},
    "Insert iptable rules failed, ACCEPT ICMP RULE FAILED"};
constexpr Rule kFlush = {{"-F", TunnelNames::kChain}, "Remove iptable rules failed"};

bool Run(const char* program, const Words& words) {
    return ALIBCExecl(program, ARDV_EXEC_HELPER, words[0], words[1], words[2], words[3], words[4], words[5], words[6],
                      words[7], words[8], words[9], nullptr) != -1;
}

void Apply(const Rule& rule, const std::string& port = {}) {
    for (const Family& family : kFamilies) {
        Words words = rule.words;
        for (const char*& word : words) {
            if (word == kFamilysIcmp) {
                word = family.icmp;
            } else if (word == kGivenPort) {
                word = port.c_str();
            }
        }
        if (!Run(family.program, words)) {
            RELAY_LOG(LOG_DEBUG, "%s%s", rule.failure, port.c_str());
        }
    }
}

}  // namespace

void AcceptPort(int port) {
    RELAY_LOG(LOG_DEBUG, "Insert iptable accept rule");
    Apply(kAcceptPort, std::to_string(port));
}

void InsertDefault() {
    RELAY_LOG(LOG_DEBUG, "Insert iptable default rule");
    Apply(kDropAll);
    Apply(kAcceptIcmp);
}

void Flush() {
    RELAY_LOG(LOG_DEBUG, "Remove iptable rules");
    Apply(kFlush);
}

}  // namespace ARDV::Relay::PacketFilter
