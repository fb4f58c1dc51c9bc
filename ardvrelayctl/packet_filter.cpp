// SPDX-License-Identifier: Apache-2.0
#include "packet_filter.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <optional>

#include <relay/tunnel/tunnel_names.h>

#include "table.h"

namespace ardv::ctl {

namespace {

using Rule = PacketFilter::Rule;
using Rules = std::vector<Rule>;

constexpr std::size_t kMaxFaults = 20;

constexpr const char kInput[] = "INPUT";
constexpr const char kForward[] = "FORWARD";
constexpr const char kDrop[] = "-i tun1000 -j DROP";
constexpr const char kJump[] = "-i tun1000 -j TETHRA_RELAY";
constexpr std::string_view kPortRule[] = {"-i tun1000 -p tcp -m tcp --dport ", " -j ACCEPT"};
constexpr const char* kIcmpRules[] = {"-i tun1000 -p icmp -j ACCEPT", "-i tun1000 -p ipv6-icmp -j ACCEPT"};

constexpr std::string_view kBaseChains[] = {"INPUT", "FORWARD", "OUTPUT"};
// Behind them a packet is refused or goes on to the next rule.
constexpr std::string_view kHarmlessTargets[] = {"",     "DROP",     "REJECT",  "LOG", "NFLOG", "ULOG",
                                                 "MARK", "CONNMARK", "SECMARK", "SET", "AUDIT", "TRACE"};

template <std::size_t kCount>
bool IsOneOf(const std::string_view (&names)[kCount], std::string_view name) {
    return FindRow(names, [name](std::string_view each) { return each == name; }) != nullptr;
}

void SkipBlanks(std::string_view& line) {
    line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
}

/** The next word of a line, as it is written: in quotes it is text of somebody's, and no option. */
std::string TakeWord(std::string_view& line) {
    SkipBlanks(line);
    bool isQuoted = false;
    std::size_t size = 0;
    for (; size < line.size() && (isQuoted || line[size] != ' '); ++size) {
        isQuoted = isQuoted != (line[size] == '"');
        size += line[size] == '\\' && size + 1 < line.size() ? 1U : 0U;
    }
    std::string word(line.substr(0, size));
    line.remove_prefix(size);
    return word;
}

// A comment is not always in quotes.
std::vector<std::string> WordsOf(std::string_view line) {
    std::vector<std::string> words;
    while (!line.empty()) {
        auto word = TakeWord(line);
        const bool isText = !words.empty() && words.back() == "--comment";
        words.push_back(isText ? "\"\"" : std::move(word));
    }
    return words;
}

std::string_view TakeLine(std::string_view& text) {
    const auto line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    return line;
}

/** The word behind an option; empty where there is none. */
std::string ValueOf(const Rule& rule, std::string_view option) {
    const auto found = std::find(rule.words.begin(), rule.words.end(), option);
    return found == rule.words.end() || found + 1 == rule.words.end() ? "" : *(found + 1);
}

/** Whether its condition on the interface keeps the tunnel's out. */
bool IsForOthers(const Rule& rule) {
    const auto found = std::find(rule.words.begin(), rule.words.end(), "-i");
    if (found == rule.words.end() || found + 1 == rule.words.end()) {
        return false;
    }
    const std::string& name = *(found + 1);
    const bool isWild = name.ends_with('+');
    const bool isMeant =
        isWild ? std::string_view(ARDV::Relay::TunnelNames::kInterface).starts_with(name.substr(0, name.size() - 1))
               : name == ARDV::Relay::TunnelNames::kInterface;
    const bool isNegated = found != rule.words.begin() && *(found - 1) == "!";
    return isMeant == isNegated;
}

std::optional<int> PortOf(const Rule& rule) {
    std::string_view text = rule.text;
    if (!text.starts_with(kPortRule[0]) || !text.ends_with(kPortRule[1])) {
        return std::nullopt;
    }
    text.remove_prefix(kPortRule[0].size());
    text.remove_suffix(std::min(kPortRule[1].size(), text.size()));
    int port = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), port);
    const bool isPort = result.ec == std::errc() && result.ptr == text.data() + text.size() && port > 0;
    return isPort ? std::optional(port) : std::nullopt;
}

std::size_t Find(const Rules& rules, std::string_view text) {
    const auto found = std::find_if(rules.begin(), rules.end(), [text](const Rule& r) { return r.text == text; });
    return static_cast<std::size_t>(found - rules.begin());
}

bool HasDropAt(const Rules& rules, std::size_t at) {
    return at < rules.size() && rules[at].text == kDrop;
}

/** Looks at one family's filter, and notes what is wrong. */
class Examination {
public:
    Examination(const PacketFilter& filter, const ExpectedGuard& expected, bool isIpv6)
        : filter_(filter), expected_(expected), icmpRule_(kIcmpRules[isIpv6 ? 1 : 0]) {}

    GuardFindings Run() {
        const auto& input = filter_.RulesOf(kInput);
        findings_.isThere = filter_.HasChain(ARDV::Relay::TunnelNames::kChain) || Find(input, kJump) < input.size() ||
                            Find(input, kDrop) < input.size();
        if (expected_.isNeeded) {
            CheckInput(input);
            CheckForward(filter_.RulesOf(kForward));
        }
        CheckChain(filter_.RulesOf(ARDV::Relay::TunnelNames::kChain));
        return std::move(findings_);
    }

private:
    void Note(const std::string& fault) {
        if (findings_.faults.size() < kMaxFaults) {
            findings_.faults.push_back(fault);
        }
    }

    void CheckInput(const Rules& input) {
        const auto jump = Find(input, kJump);
        const auto drop = Find(input, kDrop);
        if (expected_.isBegun && jump == input.size()) {
            Note("INPUT does not lead into TETHRA_RELAY: nothing that is permitted can be reached");
        }
        if (drop == input.size()) {
            Note("INPUT has no DROP for tun1000: what TETHRA_RELAY does not stop reaches the device");
        } else if (jump < input.size() && !HasDropAt(input, jump + 1)) {
            Note("INPUT has no DROP for tun1000 directly behind its jump to TETHRA_RELAY");
        }
        CheckAhead(kInput, input, std::min(jump, drop));
    }

    void CheckForward(const Rules& forward) {
        const auto drop = Find(forward, kDrop);
        if (drop == forward.size()) {
            Note("FORWARD has no DROP for tun1000: the relay may reach the device's network");
        }
        CheckAhead(kForward, forward, drop);
    }

    void CheckAhead(const std::string& chain, const Rules& rules, std::size_t end) {
        for (std::size_t i = 0; i < end; ++i) {
            if (filter_.MayAccept(chain, rules[i])) {
                Note("ahead of the guard a rule may let packets of tun1000 pass: " + chain + " " + rules[i].text);
            }
        }
    }

    // What stands behind the DROP is never reached.
    void CheckChain(const Rules& rules) {
        const auto end = Find(rules, kDrop);
        bool isIcmpOpen = false;
        std::set<int> open;
        for (std::size_t i = 0; i < end; ++i) {
            if (const auto port = PortOf(rules[i])) {
                open.insert(*port);
            } else if (rules[i].text == icmpRule_) {
                isIcmpOpen = true;
            } else if (filter_.MayAccept(ARDV::Relay::TunnelNames::kChain, rules[i])) {
                Note("a rule of TETHRA_RELAY that is not the daemon's may let packets pass: " + rules[i].text);
            }
        }
        ComparePorts(open);
        if (expected_.isUp && end == rules.size()) {
            Note("TETHRA_RELAY does not end in a DROP");
        }
        if (expected_.isUp && !isIcmpOpen) {
            Note("TETHRA_RELAY does not accept ICMP");
        }
    }

    void ComparePorts(const std::set<int>& open) {
        for (const int port : open) {
            if (!expected_.ports.contains(port)) {
                Note("port " + std::to_string(port) + " is open without a permitted service");
            }
        }
        for (const int port : expected_.ports) {
            if (!open.contains(port)) {
                Note("port " + std::to_string(port) + " is closed, though the daemon says that it is open");
            }
        }
    }

    const PacketFilter& filter_;
    const ExpectedGuard& expected_;
    std::string_view icmpRule_;
    GuardFindings findings_;
};

}  // namespace

PacketFilter::PacketFilter(std::string_view listing) {
    while (!listing.empty()) {
        auto line = TakeLine(listing);
        const auto kind = TakeWord(line);
        if (kind != "-A" && kind != "-N" && kind != "-P") {
            continue;
        }
        auto& rules = chains_[TakeWord(line)];
        if (kind == "-A") {
            SkipBlanks(line);
            rules.push_back({std::string(line), WordsOf(line)});
        }
    }
    for (std::size_t known = 1; known != accepting_.size();) {  // until no chain is found any more
        known = accepting_.size();
        FindAccepting();
    }
}

void PacketFilter::FindAccepting() {
    for (const auto& entry : chains_) {
        const auto mayAccept = [&](const Rule& rule) { return MayAccept(entry.first, rule); };
        if (std::any_of(entry.second.begin(), entry.second.end(), mayAccept)) {
            accepting_.insert(entry.first);
        }
    }
}

const Rules& PacketFilter::RulesOf(const std::string& chain) const {
    static const Rules kNone;
    const auto found = chains_.find(chain);
    return found == chains_.end() ? kNone : found->second;
}

// Out of a chain of the user's a packet returns to where it came from; out of one of the kernel's, or after a "goto", to the policy.
bool PacketFilter::MayAccept(const std::string& chain, const Rule& rule) const {
    const auto target = ValueOf(rule, "-j");
    if (IsForOthers(rule) || (IsOneOf(kHarmlessTargets, target) && ValueOf(rule, "-g").empty())) {
        return false;
    }
    if (target == "RETURN") {
        return IsOneOf(kBaseChains, chain);
    }
    return !HasChain(target) || accepting_.contains(target);
}

GuardFindings ExamineGuard(const PacketFilter& filter, const ExpectedGuard& expected, bool isIpv6) {
    return Examination(filter, expected, isIpv6).Run();
}

}  // namespace ardv::ctl
