// SPDX-License-Identifier: Apache-2.0
#include "status_command.h"

#include <algorithm>
#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>

#include <relay/common/vocabulary.h>

#include "output.h"
#include "status_report.h"
#include "status_watch.h"
#include "text.h"

namespace ardv::ctl {

using namespace ARDV::Relay;

namespace {

struct StatusOptions {
    std::string service;
    bool watch = false;
};

/** The status of one service, as the library tells it. */
struct ServiceStatus {
    std::string serverId = "--";
    std::string state = GetStateStr(RELAYD_STATE_NOT_RUNNING);
    std::string error = GetErrorStr(RELAYD_RET_SUCCESS);
    bool isRelayed = false;
};

// From the snapshot, as the library takes a daemon that this user may not signal for one that doesn't run.
ServiceStatus StatusOf(const StatusSnapshot& snapshot, const std::string& service) {
    const auto& ids = snapshot.services;
    if (std::find(ids.begin(), ids.end(), service) == ids.end()) {
        return {};
    }
    return {snapshot.serverId, GetStateStr(snapshot.state), GetErrorStr(snapshot.error), true};
}

std::optional<DaemonFault> FaultOf(const StatusSnapshot& snapshot, const std::string& service, bool isRelayed) {
    if (auto fault = FaultOf(snapshot)) {
        return fault;
    }
    if (!isRelayed) {
        return DaemonFault{"the daemon does not relay the service " + Excerpt(service), kExitNothing};
    }
    return std::nullopt;
}

Json::Value AsJson(const std::string& service, const ServiceStatus& status, const std::optional<DaemonFault>& fault) {
    Json::Value report(Json::objectValue);
    report["service"] = service;
    report["server_id"] = status.serverId;
    report["state"] = status.state;
    report["last_error"] = status.error;
    report["relayed"] = status.isRelayed;
    if (fault) {
        AddFailure(report, fault->text, fault->exitCode);
    }
    return report;
}

void Print(const ServiceStatus& status) {
    std::cout << "serverID: " << Excerpt(status.serverId) << "\nstate: " << status.state << '\n';
    if (status.error != GetErrorStr(RELAYD_RET_SUCCESS)) {
        std::cout << "error: " << status.error << '\n';
    }
}

ExitCode ShowService(const Session& session, const StatusOptions& options, const StatusSnapshot& snapshot) {
    const auto status = StatusOf(snapshot, options.service);
    const auto fault = FaultOf(snapshot, options.service, status.isRelayed);
    if (session.json) {
        const Json::Value report = AsJson(options.service, status, fault);
        options.watch ? static_cast<void>(PrintJsonLine(report)) : PrintJson(report);
    } else {
        Print(status);
    }
    if (fault) {
        Complain(fault->text);
    }
    return fault ? fault->exitCode : kExitSuccess;
}

ExitCode ShowAll(const Session& session, const StatusOptions& options, const StatusSnapshot& snapshot) {
    const auto fault = FaultOf(snapshot);
    if (session.json) {
        const Json::Value report = StatusAsJson(snapshot);
        options.watch ? static_cast<void>(PrintJsonLine(report)) : PrintJson(report);
    } else {
        PrintStatus(snapshot);
    }
    if (!snapshot.configFault.empty()) {
        Complain(snapshot.configFault);
    }
    if (fault && fault->exitCode != kExitNotRunning) {
        Complain(fault->text);
    }
    return fault ? fault->exitCode : kExitSuccess;
}

ExitCode Show(const Session& session, const StatusOptions& options, const StatusSnapshot& snapshot) {
    return options.service.empty() ? ShowAll(session, options, snapshot) : ShowService(session, options, snapshot);
}

/** Ends when nobody reads the output any more, or by a signal. */
ExitCode Watch(const Session& session, const StatusOptions& options) {
    StatusWatch watch({kDaemonStatusName, kAliasStatusName});
    StatusSnapshot shown = ReadSnapshot(session);
    ExitCode exitCode = Show(session, options, shown);
    while (std::cout.flush() && watch.Sleep(shown.pid, std::nullopt) == StatusWatch::News::kChange) {
        auto now = ReadSnapshot(session);
        if (!AreAlike(now, shown)) {
            shown = std::move(now);
            std::cout << (session.json ? "" : "\n");
            exitCode = Show(session, options, shown);
        }
    }
    return exitCode;
}

ExitCode Status(const Session& session, const StatusOptions& options) {
    CheckNamedFile(session);
    return options.watch ? Watch(session, options) : Show(session, options, ReadSnapshot(session));
}

}  // namespace

void AddStatusCommand(CLI::App& app, Session& session) {
    const auto options = std::make_shared<StatusOptions>();
    auto* command =
        AddCommand(app, "status", "Show whether the daemon runs, is logged in, and what it relays", session);
    command->add_flag("--watch", options->watch,
                      "Show it again whenever it changes, until interrupted; as JSON, in one line each");
    AddText(*command, "--service", options->service, "The state of this service alone", "ID");
    command->callback([&session, options] { session.exitCode = Status(session, *options); });
}

}  // namespace ardv::ctl
