// SPDX-License-Identifier: Apache-2.0
#include "options.h"

#include <CLI/CLI.hpp>

namespace ARDV::Sandbox {
namespace {

constexpr const char* kAbout =
    "The control service for one machine: registers devices, keeps their sessions, holds their waits for commands over "
    "HTTP and HTTPS, and misbehaves on demand. For tests and demonstrations, not for a network that is not your own.";
constexpr int kMaxSeconds = 86400;

}  // namespace

bool ParseOptions(int argc, const char* const* argv, ControlOptions& options, int& exitCode) {
    CLI::App app(kAbout, "ardv-sandbox-control-server");
    AddServerOptions(app, options.server);
    app.add_option("--state", options.state, "File of the known devices (JSON), made when it does not exist");
    app.add_option("--scenario", options.scenario, "Steps to play (JSON)");
    app.add_option("--relay-users", options.relayUsers, "File of the relay's users, written at each change");
    app.add_option("--keep-alive", options.keepAlive, "Seconds between two signs of life that devices are told")
        ->check(CLI::Range(kMinKeepAlive, kMaxKeepAlive))
        ->capture_default_str();
    app.add_option("--hold", options.hold, "Seconds that a wait is held")
        ->check(CLI::Range(1, kMaxSeconds))
        ->capture_default_str();
    app.add_option("--resend", options.resend, "Seconds without a result after which a command is sent again")
        ->check(CLI::Range(1, kMaxSeconds))
        ->capture_default_str();
    app.add_option("--expire", options.expire,
                   "Seconds without a sign of life that end a session, 0 for three times --keep-alive")
        ->check(CLI::Range(0, 3 * kMaxSeconds))
        ->capture_default_str();
    return ParseCommandLine(app, argc, argv, exitCode);
}

}  // namespace ARDV::Sandbox
