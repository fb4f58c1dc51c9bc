// SPDX-License-Identifier: Apache-2.0
#include "web_command.h"

#include <iostream>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include <relay/utils/utils.h>

#include "command_error.h"
#include "device_identity.h"
#include "output.h"

namespace ardv::ctl {

namespace Utils = ARDV::Relay::Utils;

namespace {

std::string SerialNumber() {
    auto serial = ReadIdentity()["serial"].asString();
    if (serial.empty()) {
        const auto problem = NoIdentity();
        throw CommandError(problem.Code(), std::string(problem.what()) + "; --seed does without one");
    }
    return serial;
}

ExitCode Report(const Session& session, const std::string& nuid) {
    if (session.json) {
        Json::Value report(Json::objectValue);
        report["probe"] = nuid.empty() ? "off" : "on";
        if (!nuid.empty()) {
            report["nuid"] = nuid;
        }
        PrintJson(report);
    } else {
        std::cout << (nuid.empty() ? "the web server no longer answers the probe\n"
                                   : "the web server answers the probe with " + nuid + '\n');
    }
    return kExitSuccess;
}

ExitCode SwitchOn(const Session& session, const std::string& givenSeed) {
    const auto seed = givenSeed.empty() ? SerialNumber() : givenSeed;
    if (!Utils::SetPingpongNginxConf(seed)) {
        throw CommandError(kExitUnavailable,
                           "the web server did not take the probe: see that it is installed, that its configuration is "
                           "valid and that you may change it (--verbose tells more)");
    }
    return Report(session, Utils::GetNuid(seed));
}

ExitCode SwitchOff(const Session& session) {
    if (!Utils::RemovePingpongNginxConf()) {
        throw CommandError(kExitUnavailable,
                           "the web server did not give the probe up: see that its configuration is valid and that you "
                           "may change it (--verbose tells more)");
    }
    return Report(session, "");
}

}  // namespace

void AddWebCommand(CLI::App& app, Session& session) {
    auto* web = AddGroup(app, "web", "Change the device's web server");
    auto* probe = AddGroup(*web, "probe", "The location by which clients find out that they reach this very device");
    const auto seed = std::make_shared<std::string>();
    auto* on = AddCommand(*probe, "on", "Have the web server answer the probe", session);
    AddText(*on, "--seed", *seed, "Text of which the answer's identifier is made; else the serial number", "TEXT");
    on->callback([&session, seed] { session.exitCode = SwitchOn(session, *seed); });
    AddCommand(*probe, "off", "Have the web server no longer answer it", session)->callback([&session] {
        session.exitCode = SwitchOff(session);
    });
}

}  // namespace ardv::ctl
