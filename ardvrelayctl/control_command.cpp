// SPDX-License-Identifier: Apache-2.0
#include "control_command.h"

#include <poll.h>

#include <cerrno>
#include <chrono>
#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>

#include <relay/daemon/daemon.h>

#include "command_error.h"
#include "configuration.h"
#include "daemon_process.h"
#include "output.h"
#include "status_snapshot.h"

namespace ardv::ctl {

using ARDV::Relay::Daemon;

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kDefaultTimeout = 10;
constexpr int kMaxTimeout = 3'600;

struct StopOptions {
    int timeout = kDefaultTimeout;
};

ExitCode Report(const Session& session, const char* what, pid_t pid, const char* words) {
    if (session.json) {
        Json::Value report(Json::objectValue);
        report["action"] = what;
        report["pid"] = pid;
        PrintJson(report);
    } else {
        std::cout << words << '\n';
    }
    return kExitSuccess;
}

CommandError NotSignalled(int result) {
    return {ExitCodeOfDaemon(result), "the daemon could not be told: it has just ended"};
}

// The daemon would keep what it has; but it moves a damaged file aside, and would be without one at its next start.
void RequireUsableConfiguration(const Session& session) {
    try {
        LoadConfiguration(session.configFile);
    } catch (const CommandError& fault) {
        throw CommandError(fault.Code(),
                           std::string(fault.what()) + "; the daemon was not told, and keeps what it has");
    }
}

ExitCode Reload(const Session& session) {
    const auto pid = RequireDaemon();
    RequireUsableConfiguration(session);
    if (const int result = Daemon::Hup(); result != 0) {
        throw NotSignalled(result);
    }
    return Report(session, "reload", pid, "the daemon reads its configuration again");
}

bool EndsBefore(const Descriptor& process, Clock::time_point deadline) {
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        pollfd polled = {process.Get(), POLLIN, 0};
        const int count = poll(&polled, 1, static_cast<int>(std::max<decltype(left)>(left, 0)));
        if (count >= 0 || errno != EINTR) {
            return count > 0;
        }
    }
}

// The descriptor comes first: it stays with this process, whoever gets its number later.
ExitCode Stop(const Session& session, const StopOptions& options) {
    const auto pid = RequireDaemon();
    const Descriptor process = WatchProcess(pid);
    if (!process.IsOpen() || !IsDaemon(pid)) {
        throw NotSignalled(1);
    }
    if (const int result = Daemon::Kill(); result != 0) {
        throw NotSignalled(result);
    }
    if (!EndsBefore(process, Clock::now() + std::chrono::seconds(options.timeout))) {
        throw CommandError(kExitTimeout, "the daemon was told to end, and still runs (process " + std::to_string(pid) +
                                             "): 'ardvrelayctl report' tells what it does");
    }
    return Report(session, "stop", pid, "the daemon has ended");
}

ExitCode UpdateAlias(const Session& session) {
    const auto snapshot = ReadSnapshot(session);
    if (const auto fault = FaultOf(snapshot)) {
        throw CommandError(fault->exitCode, fault->text);
    }
    if (!IsDaemon(snapshot.pid)) {
        throw CommandError(kExitNotRunning, "the daemon does not run: process " + std::to_string(snapshot.pid) +
                                                ", which its status file names, is another program");
    }
    RequireRights(snapshot.pid);
    if (snapshot.alias.empty() && snapshot.configFault.empty()) {
        throw CommandError(kExitNothing, "there is no alias to map: 'ardvrelayctl config set server_alias.alias NAME'");
    }
    if (snapshot.state == ARDV::Relay::RELAYD_STATE_LOGOUT) {
        throw CommandError(kExitUser, "the daemon keeps no alias: the service is switched off");
    }
    if (const int result = Daemon::UpdateAlias(); result != 0) {
        throw NotSignalled(result);
    }
    return Report(session, "update", snapshot.pid,
                  snapshot.serverId.empty()
                      ? "the daemon maps the alias once the service has given the device an identifier"
                      : "the daemon maps the alias anew: 'ardvrelayctl alias status' shows the outcome");
}

}  // namespace

void AddControlCommand(CLI::App& app, Session& session) {
    AddCommand(app, "reload", "Have the daemon read its configuration again", session)->callback([&session] {
        session.exitCode = Reload(session);
    });
    const auto options = std::make_shared<StopOptions>();
    auto* stop = AddCommand(app, "stop", "End the daemon, and wait until it is gone", session);
    stop->add_option("--timeout", options->timeout, "How many seconds to wait at most")
        ->type_name("SECONDS")
        ->check(CLI::Range(0, kMaxTimeout))
        ->capture_default_str();
    stop->callback([&session, options] { session.exitCode = Stop(session, *options); });
}

void AddAliasUpdateCommand(CLI::App& alias, Session& session) {
    AddCommand(alias, "update", "Have the running daemon map the alias anew, at once", session)->callback([&session] {
        session.exitCode = UpdateAlias(session);
    });
}

}  // namespace ardv::ctl
