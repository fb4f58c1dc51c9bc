// SPDX-License-Identifier: Apache-2.0
#include <syslog.h>

#include <algorithm>
#include <exception>
#include <optional>
#include <string>
#include <string_view>

#include <CLI/CLI.hpp>

#include <relay/daemon/daemon.h>

#include "alias_command.h"
#include "command_error.h"
#include "command_list.h"
#include "config_command.h"
#include "control_command.h"
#include "doctor_command.h"
#include "exit_code.h"
#include "identity_command.h"
#include "log_command.h"
#include "lookup_command.h"
#include "network_command.h"
#include "output.h"
#include "permission_command.h"
#include "readable_log.h"
#include "report_command.h"
#include "server_url.h"
#include "service_command.h"
#include "session.h"
#include "status_command.h"
#include "tunnel_command.h"
#include "wait_command.h"
#include "web_command.h"

namespace {

using namespace ardv::ctl;

// In the order in which the help shows them.
constexpr void (*kAddCommands[])(CLI::App&, Session&) = {
    AddStatusCommand, AddDoctorCommand,  AddReportCommand,  AddWaitCommand,       AddControlCommand,
    AddLogCommand,    AddConfigCommand,  AddServiceCommand, AddPermissionCommand, AddTunnelCommand,
    AddAliasCommand,  AddNetworkCommand, AddWebCommand,     AddIdentityCommand,   AddLookupCommand};

// The library's messages are for whoever looks into a failure; the tool has its own words for everybody else.
void SetVerbosity(bool verbose, std::optional<ReadableLog>& log) {
    if (verbose && !log) {
        log.emplace();
    }
    ARDV::Relay::Daemon::SetLogFile("", verbose ? LOG_DEBUG : LOG_CRIT);
}

// The daemon's own default, unless the user names another one.
void SetPidFile(const std::string& path) {
    ARDV::Relay::Daemon::LibInit();
    if (!path.empty()) {
        ARDV::Relay::Daemon::SetPidFile(path.c_str());
    }
}

CLI::Option* AddPidFile(CLI::App& app, std::string& path) {
    return app.add_option("--pid-file", path, "The daemon's pid file, where it was started with another one")
        ->type_name("FILE")
        ->check(CLI::Validator(
            [](const std::string& text) { return text.starts_with('/') ? "" : "must be an absolute path"; }, ""));
}

// Looked for by itself, so that wrong arguments are reported to a program as well.
bool IsJsonAskedFor(int argc, char** argv) {
    return std::any_of(argv, argv + argc, [](std::string_view argument) { return argument == "--json"; });
}

// No option, which the help would have to explain: it is for those who build and test the tool.
bool IsListAskedFor(int argc, char** argv) {
    constexpr int kAlone = 2;
    return argc == kAlone && std::string_view(argv[1]) == "--commands";
}

// Options alone, without their values: an argument that is not expected may be a password.
std::string UnexpectedArguments(const CLI::App& app) {
    std::string options;
    for (const auto& argument : app.remaining(true)) {
        if (argument.starts_with('-')) {
            options += " " + argument.substr(0, argument.find('='));
        }
    }
    return "an argument was not expected" + (options.empty() ? "" : ":" + options);
}

std::string WordsOf(const CLI::App& app, const CLI::ParseError& problem) {
    const bool isUnexpected = problem.get_exit_code() == static_cast<int>(CLI::ExitCodes::ExtrasError);
    return isUnexpected ? UnexpectedArguments(app) : WithoutCredentials(problem.what());
}

ExitCode EndParsing(const CLI::App& app, const CLI::ParseError& problem, bool asJson) {
    if (problem.get_exit_code() == 0) {
        app.exit(problem);  // prints help or version
        return kExitSuccess;
    }
    Fail(WordsOf(app, problem), kExitUsage, asJson);
    Complain("--help tells more");
    return kExitUsage;
}

ExitCode Run(int argc, char** argv) {
    std::optional<ReadableLog> log;
    CLI::App app("Manages the relay daemon of this device.", "ardvrelayctl");
    Session session;
    std::string pidFile;
    bool verbose = false;
    app.set_version_flag("--version", "ardvrelayctl " ARDV_VERSION);
    const auto* config = app.add_option("--config", session.configFile, "Main configuration file")
                             ->type_name("FILE")
                             ->capture_default_str();
    AddPidFile(app, pidFile);
    app.add_flag("--verbose", verbose, "Show the library's log on standard error");
    app.require_subcommand(1);
    app.fallthrough();
    app.footer(ExitCodeHelp());
    app.parse_complete_callback([&] {
        session.isConfigNamed = config->count() > 0;
        SetVerbosity(verbose, log);
        SetPidFile(pidFile);
    });
    for (const auto& add : kAddCommands) {
        add(app, session);
    }
    if (IsListAskedFor(argc, argv)) {
        PrintCommands(app);
        return kExitSuccess;
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& problem) {
        return EndParsing(app, problem, IsJsonAskedFor(argc, argv));
    } catch (const CommandError& problem) {
        return Fail(problem.what(), problem.Code(), session.json);
    } catch (const std::exception& problem) {
        return Fail(problem.what(), kExitConfig, session.json);
    }
    return session.exitCode;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        PrepareOutput();
        return FinishOutput(Run(argc, argv));
    } catch (const std::exception& problem) {
        Complain(problem.what());
        return kExitConfig;
    }
}
