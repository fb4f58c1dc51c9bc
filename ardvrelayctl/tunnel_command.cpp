// SPDX-License-Identifier: Apache-2.0
#include "tunnel_command.h"

#include <algorithm>
#include <iostream>

#include <CLI/CLI.hpp>

#include "output.h"
#include "table.h"
#include "text.h"
#include "tunnel_report.h"
#include "tunnel_rules.h"

namespace ardv::ctl {

namespace {

constexpr const char kNotOrdered[] = "the service has not asked for a tunnel";

/** Why nothing can be said of the tunnel: the daemon's fault, or there is none. */
std::optional<DaemonFault> TunnelFault(const StatusSnapshot& snapshot) {
    if (auto fault = FaultOf(snapshot)) {
        return fault;
    }
    if (!snapshot.isTunnelOrdered) {
        return DaemonFault{kNotOrdered, kExitNothing};
    }
    if (!snapshot.tunnel) {
        return DaemonFault{"what the daemon's status file says of the tunnel cannot be used", kExitBadStatus};
    }
    return std::nullopt;
}

Json::Value BeginReport(const StatusSnapshot& snapshot) {
    Json::Value report(Json::objectValue);
    report["running"] = snapshot.IsRunning();
    report["ordered"] = snapshot.isTunnelOrdered;
    if (snapshot.tunnel) {
        report["tunnel"] = TunnelAsJson(*snapshot.tunnel);
        report["meaning"] = MeaningOfTunnel(snapshot.tunnel->status);
    }
    return report;
}

ExitCode Finish(const Session& session, Json::Value report, const std::optional<DaemonFault>& fault) {
    if (session.json) {
        if (fault) {
            AddFailure(report, fault->text, fault->exitCode);
        }
        PrintJson(report);
    }
    if (fault) {
        Complain(fault->text);
    }
    return fault ? fault->exitCode : kExitSuccess;
}

ExitCode ShowStatus(const Session& session) {
    CheckNamedFile(session);
    const auto snapshot = ReadSnapshot(session);
    if (!session.json && snapshot.tunnel) {
        PrintTunnel(*snapshot.tunnel);
    }
    return Finish(session, BeginReport(snapshot), TunnelFault(snapshot));
}

struct KindWord {
    ServiceRule::Kind kind;
    const char* word;
};

constexpr KindWord kKindWords[] = {{ServiceRule::Kind::kOpen, "open"},
                                   {ServiceRule::Kind::kClosed, "closed"},
                                   {ServiceRule::Kind::kDiffers, "differs"}};

const char* WordFor(ServiceRule::Kind kind) {
    return FindRow(kKindWords, [kind](const KindWord& row) { return row.kind == kind; })->word;
}

/** What is found of a filter that has no fault. */
std::string WordsFor(const FilterReport& filter, bool isGuardNeeded) {
    if (!filter.unchecked.empty()) {
        return "not checked: " + filter.unchecked;
    }
    if (isGuardNeeded) {
        return "the guard stands, and opens what the daemon says and nothing else";
    }
    return filter.findings.isThere ? "the guard stands though there is no tunnel, and opens nothing"
                                   : "there is no guard, and no tunnel that needs one";
}

void PrintFilter(const FilterReport& filter, bool isGuardNeeded) {
    for (const auto& fault : filter.findings.faults) {
        std::cout << filter.family << ": " << Excerpt(fault) << '\n';
    }
    if (filter.findings.faults.empty()) {
        std::cout << filter.family << ": " << WordsFor(filter, isGuardNeeded) << '\n';
    }
}

void PrintRules(const TunnelRules& rules) {
    std::vector<std::vector<std::string>> table = {{"ID", "PORT", "RULE", "WHY"}};
    for (const auto& rule : rules.services) {
        const auto port = rule.port < 0 ? "-" : std::to_string(rule.port);
        table.push_back({rule.id, port, WordFor(rule.kind), rule.reason});
    }
    if (rules.services.empty()) {
        std::cout << "no service is listed\n";
    } else {
        PrintTable(table);
    }
    for (const auto& filter : rules.filters) {
        PrintFilter(filter, rules.isGuardNeeded);
    }
}

Json::Value AsJson(const ServiceRule& rule) {
    Json::Value row(Json::objectValue);
    row["id"] = rule.id;
    if (rule.port >= 0) {
        row["port"] = rule.port;
    }
    row["rule"] = WordFor(rule.kind);
    row["reason"] = rule.reason;
    return row;
}

Json::Value AsJson(const FilterReport& filter) {
    Json::Value row(Json::objectValue);
    row["family"] = filter.family;
    row["program"] = filter.program;
    row["checked"] = filter.unchecked.empty();
    if (!filter.unchecked.empty()) {
        row["reason"] = filter.unchecked;
        return row;
    }
    row["guard"] = filter.findings.isThere;
    row["faults"] = Json::Value(Json::arrayValue);
    for (const auto& fault : filter.findings.faults) {
        row["faults"].append(fault);
    }
    return row;
}

Json::Value AsJson(const TunnelRules& rules) {
    Json::Value report = BeginReport(rules.snapshot);
    report["services"] = Json::Value(Json::arrayValue);
    for (const auto& rule : rules.services) {
        report["services"].append(AsJson(rule));
    }
    report["filter"] = Json::Value(Json::arrayValue);
    for (const auto& filter : rules.filters) {
        report["filter"].append(AsJson(filter));
    }
    report["guard_needed"] = rules.isGuardNeeded;
    return report;
}

// A port that is open against the rules weighs more than a daemon that does not run.
std::optional<DaemonFault> FaultOf(const TunnelRules& rules) {
    if (rules.HasProblem()) {
        return DaemonFault{
            "what the tunnel lets through is not what it should be; 'ardvrelayctl reload' has the daemon make its "
            "rules anew",
            kExitProblem};
    }
    if (auto fault = TunnelFault(rules.snapshot)) {
        return fault;
    }
    const auto hasFailed = [](const FilterReport& filter) { return filter.hasFailed; };
    if (rules.isGuardNeeded && std::any_of(rules.filters.begin(), rules.filters.end(), hasFailed)) {
        return DaemonFault{"the packet filter could not be checked", kExitUnavailable};
    }
    return std::nullopt;
}

ExitCode ShowRules(const Session& session) {
    CheckNamedFile(session);
    const auto rules = ReadTunnelRules(session);
    if (!session.json) {
        PrintRules(rules);
    }
    return Finish(session, AsJson(rules), FaultOf(rules));
}

}  // namespace

void AddTunnelCommand(CLI::App& app, Session& session) {
    auto* tunnel = AddGroup(app, "tunnel", "Show the tunnel to the relay, and what it lets through");
    AddCommand(*tunnel, "status", "Show the tunnel's status, relay and addresses, and what is open", session)
        ->callback([&session] { session.exitCode = ShowStatus(session); });
    AddCommand(*tunnel, "rules", "Show which services are open in the tunnel, and check the packet filter", session)
        ->callback([&session] { session.exitCode = ShowRules(session); });
}

}  // namespace ardv::ctl
