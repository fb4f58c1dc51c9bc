// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace ardv::ctl {

/** One address family's table of filter rules, as iptables(8) prints it with "-S". */
class PacketFilter {
public:
    struct Rule {
        std::string text;  ///< behind the name of its chain
        std::vector<std::string> words;
    };

    /** Lines that are no rules and no policies are passed over. */
    explicit PacketFilter(std::string_view listing);

    bool HasChain(const std::string& chain) const { return chains_.contains(chain); }

    /** The rules of a chain in their order; none for a chain that isn't there. */
    const std::vector<Rule>& RulesOf(const std::string& chain) const;

    /**
     * Whether a rule of a chain may let a packet of the tunnel's interface pass. One that holds for another interface does not,
     * nor does one that drops, rejects or only notes a packet, nor one that leads into a chain of such rules. What isn't known may.
     */
    bool MayAccept(const std::string& chain, const Rule& rule) const;

private:
    void FindAccepting();

    std::map<std::string, std::vector<Rule>> chains_;
    std::set<std::string> accepting_;  ///< chains of which a rule may let such a packet pass
};

/** What the packet filter should be like. */
struct ExpectedGuard {
    bool isNeeded = false;  ///< the tunnel's interface is there, or may be at any moment: nothing else may get in
    bool isBegun = false;   ///< a tunnel is up or being set up: the chain is asked first
    bool isUp = false;      ///< the chain has its rules
    std::set<int> ports;    ///< that are open
};

/** What one family's filter is like. */
struct GuardFindings {
    bool isThere = false;  ///< something of the guard is
    std::vector<std::string> faults;
};

/** Compares a filter with what is expected of it. */
GuardFindings ExamineGuard(const PacketFilter& filter, const ExpectedGuard& expected, bool isIpv6);

}  // namespace ardv::ctl
