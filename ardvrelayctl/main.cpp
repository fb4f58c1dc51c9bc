// SPDX-License-Identifier: Apache-2.0
#include <syslog.h>

#include <exception>

#include <CLI/CLI.hpp>

#include <relay/daemon/daemon.h>

#include "alias_command.h"
#include "exit_code.h"
#include "output.h"

namespace {

using namespace ardv::ctl;

// The library's messages are for whoever looks into a failure; the tool has its own words for everybody else.
void SetVerbosity(bool verbose) {
    ARDV::Relay::Daemon::SetLogFile("", verbose ? LOG_DEBUG : LOG_CRIT);
}

int Run(int argc, char** argv) {
    CLI::App app("Manages the relay daemon of this device.", "ardvrelayctl");
    AliasOptions options;
    ExitCode exitCode = kExitSuccess;
    bool verbose = false;
    app.set_version_flag("--version", "ardvrelayctl " ARDV_VERSION);
    app.add_option("--config", options.configFile, "Main configuration file")->type_name("FILE")->capture_default_str();
    app.add_flag("--verbose", verbose, "Show the library's log on standard error");
    app.require_subcommand(1);
    app.fallthrough();
    app.footer(ExitCodeHelp());
    app.parse_complete_callback([&verbose] { SetVerbosity(verbose); });
    AddAliasCommand(app, options, exitCode);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& problem) {
        return app.exit(problem) == 0 ? kExitSuccess : kExitUsage;
    }
    return exitCode;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return Run(argc, argv);
    } catch (const std::exception& problem) {
        Complain(problem.what());
        return kExitConfig;
    }
}
