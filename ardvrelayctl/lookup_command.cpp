// SPDX-License-Identifier: Apache-2.0
#include "lookup_command.h"

#include <array>
#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>

#include <relay/common/ardvrelayd.h>

#include "command_error.h"
#include "output.h"
#include "text.h"

namespace ardv::ctl {

namespace {

constexpr std::size_t kMaxText = 1025;

struct LookupOptions {
    std::string service;
};

// The library moves a damaged file aside.
void CheckConfigurationFile(const Session& session) {
    RequireDefaultConfiguration(session);
    LoadConfiguration(kDefaultConfigFile);
}

CommandError NoServerId(const std::string& serverId, const std::string& service) {
    return {kExitNothing, serverId.empty() ? "the device has no server identifier yet: it has not been registered"
                                           : "the service " + Excerpt(service) + " is not offered through the relay"};
}

ExitCode ServerId(const Session& session, const LookupOptions& options) {
    CheckConfigurationFile(session);
    std::array<char, kMaxText> buffer = {};
    const char* service = options.service.empty() ? nullptr : options.service.c_str();
    const bool isYes = ALIBRelaydGetServerId(service, buffer.data(), buffer.size()) == 1;
    const std::string serverId = buffer.data();
    if (session.json) {
        Json::Value report(Json::objectValue);
        report["server_id"] = serverId;
        if (service) {
            report["service"] = service;
            report["offered"] = isYes;
        }
        if (!isYes) {
            AddFailure(report, NoServerId(serverId, options.service).what(), kExitNothing);
        }
        PrintJson(report);
    } else if (isYes) {
        std::cout << Printable(serverId) << '\n';
    }
    return isYes ? kExitSuccess : Fail(NoServerId(serverId, options.service).what(), kExitNothing, false);
}

ExitCode PortalDomain(const Session& session) {
    CheckConfigurationFile(session);
    std::array<char, kMaxText> buffer = {};
    if (ALIBRelaydGetPortalDomain(buffer.data(), buffer.size()) != 0) {
        throw CommandError(kExitConfig,
                           "the global control host is none of the service's: 'ardvrelayctl config get "
                           "server_global.host' shows it");
    }
    if (session.json) {
        Json::Value report(Json::objectValue);
        report["portal_domain"] = buffer.data();
        PrintJson(report);
    } else {
        std::cout << Printable(buffer.data()) << '\n';
    }
    return kExitSuccess;
}

}  // namespace

void AddLookupCommand(CLI::App& app, Session& session) {
    const auto options = std::make_shared<LookupOptions>();
    auto* serverId =
        AddCommand(app, "server-id", "Show the device's identifier at the service, if the service is offered", session);
    AddText(*serverId, "service", options->service, "A service that must be offered through the relay", "SERVICE");
    serverId->callback([&session, options] { session.exitCode = ServerId(session, *options); });
    AddCommand(app, "portal-domain", "Show the domain below which the service's portal is", session)
        ->callback([&session] { session.exitCode = PortalDomain(session); });
}

}  // namespace ardv::ctl
