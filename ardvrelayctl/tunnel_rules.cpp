// SPDX-License-Identifier: Apache-2.0
#include "tunnel_rules.h"

#include <net/if.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <optional>

#include <relay/tunnel/tunnel_names.h>

#include "configuration.h"
#include "program_output.h"
#include "service_state.h"
#include "status_watch.h"

namespace ardv::ctl {

namespace {

using namespace std::chrono_literals;
using ARDV::Relay::RelaydConf;

constexpr int kLooks = 3;
constexpr auto kBetweenLooks = 200ms;
constexpr const char kReload[] = "; 'ardvrelayctl reload' tells the daemon what holds now";

struct Family {
    const char* name;
    const char* program;
    bool isIpv6;
};

constexpr Family kFamilies[] = {{"IPv4", "/sbin/iptables", false}, {"IPv6", "/sbin/ip6tables", true}};

std::string WhyNothingIsOpen(const StatusSnapshot& snapshot) {
    if (!snapshot.IsRunning()) {
        return "the daemon does not run";
    }
    return snapshot.isTunnelOrdered ? "the tunnel is not up" : "the service has not asked for a tunnel";
}

/** The entry of the daemon's for a service, taken out of those that are left; no value if there is none. */
std::optional<OpenPort> Take(std::vector<OpenPort>& left, const std::string& id) {
    const auto found = std::find_if(left.begin(), left.end(), [&](const OpenPort& entry) { return entry.id == id; });
    if (found == left.end()) {
        return std::nullopt;
    }
    const OpenPort entry = *found;
    left.erase(found);
    return entry;
}

using Kind = ServiceRule::Kind;

ServiceRule RuleOfOpen(const OpenPort& open, int port, const Obstacle& obstacle) {
    const std::string at = "it is open at port " + std::to_string(open.port);
    if (obstacle) {
        return {open.id, open.port, Kind::kDiffers, at + ", and should not be: " + obstacle.reason + kReload};
    }
    if (open.port != port) {
        return {open.id, open.port, Kind::kDiffers, at + ", and should be at " + std::to_string(port) + kReload};
    }
    return {open.id, open.port, Kind::kOpen, ""};
}

ServiceRule RuleOf(const std::string& id, const std::optional<OpenPort>& open, const RelaydConf& conf,
                   const StatusSnapshot& snapshot) {
    const auto obstacle = ObstacleInTunnel(id, conf);
    const auto* service = conf.GetServiceById(id);
    const int port = service ? service->GetPort() : -1;
    if (open) {
        return RuleOfOpen(*open, port, obstacle);
    }
    if (obstacle) {
        return {id, port, Kind::kClosed, obstacle.reason};
    }
    const bool isUp = snapshot.tunnel && snapshot.tunnel->IsUp();
    return isUp ? ServiceRule{id, port, Kind::kDiffers, std::string("it is closed, and should be open") + kReload}
                : ServiceRule{id, port, Kind::kClosed, WhyNothingIsOpen(snapshot)};
}

std::vector<ServiceRule> RulesOf(const Session& session, const StatusSnapshot& snapshot) {
    const auto conf = LoadOrDefault(session.configFile, Services::kRead);
    auto left = snapshot.tunnel ? snapshot.tunnel->open : std::vector<OpenPort>();
    std::vector<ServiceRule> rules;
    for (const auto& id : ListedIds(ReadSettings(session.configFile))) {
        rules.push_back(RuleOf(id, Take(left, id), conf, snapshot));
    }
    for (const auto& open : left) {
        rules.push_back(RuleOfOpen(open, -1, {"list", "it is not in the list of services"}));
    }
    return rules;
}

ExpectedGuard GuardFor(const StatusSnapshot& snapshot) {
    ExpectedGuard guard;
    guard.isBegun = snapshot.tunnel && snapshot.tunnel->IsBegun();
    guard.isNeeded = guard.isBegun || if_nametoindex(ARDV::Relay::TunnelNames::kInterface) != 0;
    guard.isUp = snapshot.tunnel && snapshot.tunnel->IsUp();
    if (snapshot.tunnel) {
        for (const auto& open : snapshot.tunnel->open) {
            guard.ports.insert(open.port);
        }
    }
    return guard;
}

FilterReport ReadFilter(const Family& family, const ExpectedGuard& expected) {
    FilterReport report = {family.name, family.program, "", false, {}};
    if (geteuid() != 0) {
        report.unchecked = "needs root";
        return report;
    }
    const auto listing = OutputOf({family.program, "-w", "5", "-S"});
    if (!listing && family.isIpv6 && access("/proc/net/if_inet6", F_OK) != 0) {
        report.unchecked = "this machine has no IPv6";
        return report;
    }
    if (!listing) {
        report.hasFailed = true;
        report.unchecked = access(family.program, X_OK) == 0 ? std::string(family.program) + " does not list its rules"
                                                             : "there is no " + std::string(family.program);
        return report;
    }
    report.findings = ExamineGuard(PacketFilter(*listing), expected, family.isIpv6);
    return report;
}

TunnelRules Look(const Session& session) {
    TunnelRules rules;
    rules.snapshot = ReadSnapshot(session);
    rules.services = RulesOf(session, rules.snapshot);
    const auto guard = GuardFor(rules.snapshot);
    rules.isGuardNeeded = guard.isNeeded;
    for (const auto& family : kFamilies) {
        rules.filters.push_back(ReadFilter(family, guard));
    }
    return rules;
}

}  // namespace

bool TunnelRules::HasProblem() const {
    return std::any_of(services.begin(), services.end(),
                       [](const ServiceRule& rule) { return rule.kind == Kind::kDiffers; }) ||
           std::any_of(filters.begin(), filters.end(),
                       [](const FilterReport& filter) { return !filter.findings.faults.empty(); });
}

TunnelRules ReadTunnelRules(const Session& session) {
    StatusWatch watch({kDaemonStatusName});
    auto rules = Look(session);
    for (int looks = 1; looks < kLooks && rules.HasProblem(); ++looks) {
        watch.Sleep(-1, std::chrono::steady_clock::now() + kBetweenLooks);
        rules = Look(session);
    }
    return rules;
}

}  // namespace ardv::ctl
