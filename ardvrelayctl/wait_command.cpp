// SPDX-License-Identifier: Apache-2.0
#include "wait_command.h"

#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>

#include <relay/common/vocabulary.h>

#include "command_error.h"
#include "output.h"
#include "status_report.h"
#include "status_watch.h"
#include "status_words.h"
#include "table.h"

namespace ardv::ctl {

using namespace ARDV::Relay;

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kDefaultTimeout = 60;
constexpr int kMaxTimeout = 86'400;

struct WaitOptions {
    std::string goal;
    int timeout = kDefaultTimeout;
};

bool IsAliasMapped(const StatusSnapshot& snapshot) {
    if (snapshot.alias.empty()) {
        throw CommandError(snapshot.configFault.empty() ? kExitNothing : kExitConfig,
                           snapshot.configFault.empty()
                               ? "there is no alias to wait for: 'ardvrelayctl config set server_alias.alias NAME'"
                               : snapshot.configFault);
    }
    const auto* success = FindRow(gRetMapper, [](const AliasRetMap& r) { return r.ret == ALIAS_RET_SUCCESS; });
    // The outcome stays on record when the daemon is gone, and when it keeps no alias any more.
    const bool isKept = snapshot.IsRunning() && snapshot.state != RELAYD_STATE_LOGOUT;
    return isKept && success && snapshot.aliasStatus == success->status;
}

struct Goal {
    const char* name;
    bool (*isReached)(const StatusSnapshot&);
};

constexpr Goal kGoals[] = {
    {"login", [](const StatusSnapshot& s) { return s.IsRunning() && IsLoggedIn(s.state); }},
    {"alias", IsAliasMapped},
    {"tunnel", [](const StatusSnapshot& s) { return s.IsRunning() && s.state == RELAYD_STATE_CONNECTED_RELAY; }},
};

std::vector<std::string> GoalNames() {
    std::vector<std::string> names;
    for (const auto& goal : kGoals) {
        names.emplace_back(goal.name);
    }
    return names;
}

ExitCode Report(const Session& session, const Goal& goal, const StatusSnapshot& seen, bool isReached) {
    const std::string failure = std::string("gave up waiting for ") + goal.name + "; last seen: " + StatusInShort(seen);
    if (!session.json) {
        return isReached ? (std::cout << goal.name << ": " << StatusInShort(seen) << '\n', kExitSuccess)
                         : Fail(failure, kExitTimeout, false);
    }
    Json::Value report = StatusAsJson(seen);
    report.removeMember("error");  // that the daemon doesn't run is what was seen, and not what went wrong
    report.removeMember("exit_code");
    report["for"] = goal.name;
    report["reached"] = isReached;
    if (!isReached) {
        AddFailure(report, failure, kExitTimeout);
        Complain(failure);
    }
    PrintJson(report);
    return isReached ? kExitSuccess : kExitTimeout;
}

ExitCode Wait(const Session& session, const WaitOptions& options) {
    CheckNamedFile(session);
    const auto* goal = FindRow(kGoals, [&](const Goal& row) { return row.name == options.goal; });
    const auto deadline = Clock::now() + std::chrono::seconds(options.timeout);
    StatusWatch watch({kDaemonStatusName, kAliasStatusName});
    for (;;) {
        const auto seen = ReadSnapshot(session);
        const bool isReached = goal->isReached(seen);
        if (isReached || Clock::now() >= deadline) {
            return Report(session, *goal, seen, isReached);
        }
        watch.Sleep(seen.pid, deadline);
    }
}

}  // namespace

void AddWaitCommand(CLI::App& app, Session& session) {
    const auto options = std::make_shared<WaitOptions>();
    auto* command = AddCommand(app, "wait", "Wait until the daemon has come so far", session);
    command
        ->add_option("--for", options->goal,
                     "What to wait for: a session with the service, the configured alias mapped, or a relay tunnel")
        ->required()
        ->check(CLI::IsMember(GoalNames()))
        ->type_name("GOAL");
    command->add_option("--timeout", options->timeout, "How many seconds at most; 0 looks once")
        ->type_name("SECONDS")
        ->check(CLI::Range(0, kMaxTimeout))
        ->capture_default_str();
    command->callback([&session, options] { session.exitCode = Wait(session, *options); });
}

}  // namespace ardv::ctl
