// SPDX-License-Identifier: Apache-2.0
#include <chrono>
#include <cstdio>
#include <string>

#include "control_service.h"
#include "http/server.h"
#include "options.h"

namespace {

using namespace ARDV::Sandbox;

constexpr const char* kProgram = "ardv-sandbox-control-server";

int Run(const ControlOptions& options) {
    DeviceBook devices(options.state);
    SessionTable sessions({.life = std::chrono::seconds(options.expire > 0 ? options.expire : 3 * options.keepAlive),
                           .resend = std::chrono::seconds(options.resend)});
    Answers answers(options.keepAlive);
    Scenario scenario;
    TunnelBook tunnels(options.relayUsers);
    std::string error;
    if (!devices.Load(error) || !tunnels.Begin(error) ||
        (!options.scenario.empty() && !scenario.Load(options.scenario, error))) {
        std::fprintf(stderr, "%s: %s\n", kProgram, error.c_str());
        return 1;
    }
    ControlService service({devices, sessions, answers, scenario, tunnels}, std::chrono::seconds(options.hold));
    return RunServer(kProgram, options.server, service);
}

}  // namespace

int main(int argc, char** argv) {
    ControlOptions options;
    int exitCode = 0;
    return ParseOptions(argc, argv, options, exitCode) ? Run(options) : exitCode;
}
