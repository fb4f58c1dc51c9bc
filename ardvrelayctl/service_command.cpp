// SPDX-License-Identifier: Apache-2.0
#include "service_command.h"

#include <algorithm>
#include <iostream>
#include <map>
#include <memory>

#include <CLI/CLI.hpp>

#include <relay/config/config.h>

#include "command_error.h"
#include "config_file.h"
#include "configuration.h"
#include "edit_lock.h"
#include "json_member.h"
#include "output.h"
#include "permission_file.h"
#include "service_state.h"
#include "text.h"

namespace ardv::ctl {

using namespace ARDV::Relay;

namespace {

struct ServiceOptions {
    std::string id;
    bool all = false;
};

constexpr const char kList[] = "service";
constexpr const char kNoPort[] = "not offered: this device has no port for it";
constexpr const char kSwitchedOff[] =
    "nothing is offered as long as the service is switched off: 'ardvrelayctl config set tethra.enabled true' switches "
    "it on";

std::string PortText(int port) {
    return port < 0 ? "-" : std::to_string(port);
}

std::string IdOf(const Json::Value& element) {
    return TextOf(element, "id");
}

Json::Value AsJson(const ServiceConf& service) {
    Json::Value row(Json::objectValue);
    service.Write(row, true);
    return row;
}

void PrintServices(const RelaydConf& conf, const std::vector<std::string>& ids, bool asJson) {
    Json::Value report(Json::objectValue);
    report["services"] = Json::Value(Json::arrayValue);
    std::vector<std::vector<std::string>> table = {{"ID", "NAME", "PORT", "OUTSIDE"}};
    for (const auto& id : ids) {
        const auto* service = conf.GetServiceById(id);
        Json::Value row = service ? AsJson(*service) : Json::Value(Json::objectValue);
        row["id"] = id;
        row["offered"] = service != nullptr;
        report["services"].append(row);
        table.push_back(service ? std::vector<std::string>{id, service->GetName(), PortText(service->GetPort()),
                                                           PortText(service->GetExtPort())}
                                : std::vector<std::string>{id, "", "-", "-", kNoPort});
    }
    if (asJson) {
        PrintJson(report);
    } else if (ids.empty()) {
        std::cout << "no service is listed\n";
    } else {
        PrintTable(table);
    }
}

Json::Value AsJson(const ServiceState& state) {
    Json::Value row = AsJson(state.onDevice);
    row["id"] = state.id;
    row["group"] = state.group;
    row["offered"] = state.isOffered;
    row["permitted"] = state.isPermitted;
    row["on"] = state.isOn;
    row["test"] = state.obstacle.test;
    row["reason"] = state.obstacle.reason;
    return row;
}

const char* YesNo(bool yes) {
    return yes ? "yes" : "no";
}

void PrintAll(const std::vector<ServiceState>& states, bool asJson) {
    Json::Value report(Json::objectValue);
    report["services"] = Json::Value(Json::arrayValue);
    std::vector<std::vector<std::string>> table = {{"ID", "OFFERED", "PERMITTED", "ON", "PORT", "WHY NOT"}};
    for (const auto& state : states) {
        report["services"].append(AsJson(state));
        table.push_back({state.id, YesNo(state.isOffered), YesNo(state.isPermitted), YesNo(state.isOn),
                         PortText(state.onDevice.GetPort()), state.obstacle.reason});
    }
    if (asJson) {
        PrintJson(report);
    } else {
        PrintTable(table);
    }
}

ExitCode List(const Session& session, const ServiceOptions& options) {
    CheckNamedFile(session);
    const auto conf = LoadOrDefault(session.configFile, Services::kRead);
    if (options.all) {
        PrintAll(SurveyServices(conf), session.json);
    } else {
        PrintServices(conf, ListedIds(ReadSettings(session.configFile)), session.json);
    }
    return kExitSuccess;
}

/** The elements of the file's list by their identifiers, of each the first. */
std::map<std::string, Json::Value> ElementsById(const Json::Value& list) {
    std::map<std::string, Json::Value> elements;
    for (Json::ArrayIndex i = 0; list.isArray() && i < list.size(); ++i) {
        elements.emplace(IdOf(list[i]), list[i]);
    }
    return elements;
}

Json::Value& ListOf(Json::Value& settings) {
    auto& list = settings[kList];
    if (!list.isArray()) {
        Json::Value empty(Json::arrayValue);
        list.swapPayload(empty);
    }
    return list;
}

/** Replaces the list by these services. What the file says of a service besides its identifier stays. */
void ReplaceList(Json::Value& settings, const std::vector<std::string>& ids) {
    const auto elements = ElementsById(settings[kList]);
    Json::Value list(Json::arrayValue);
    for (const auto& id : ids) {
        const auto old = elements.find(id);
        auto& element = list.append(old == elements.end() ? Json::Value(Json::objectValue) : old->second);
        element["id"] = id;
    }
    settings[kList].swapPayload(list);
}

void AppendToList(Json::Value& settings, const std::string& id) {
    Json::Value element(Json::objectValue);
    element["id"] = id;
    ListOf(settings).append(element);
}

void Report(const Session& session, const std::string& id, bool isOffered, bool isChanged) {
    if (!session.json) {
        std::cout << Excerpt(id) << (isOffered ? ": offered" : ": no longer offered")
                  << (isChanged ? "\n" : " already\n");
        return;
    }
    Json::Value report(Json::objectValue);
    report["id"] = id;
    report["offered"] = isOffered;
    report["changed"] = isChanged;
    PrintJson(report);
}

CommandError Refusal(const std::string& id) {
    if (!IsKnown(id)) {
        return {kExitNothing, "this device knows no service " + Excerpt(id) +
                                  ": 'ardvrelayctl service list --all' shows those that "
                                  "the relay can carry"};
    }
    const auto obstacle = ObstacleTo(id);
    return {kExitUser, "the service " + Excerpt(id) +
                           " cannot be offered: " + (obstacle ? obstacle.reason : "it is off (--verbose tells more)")};
}

ExitCode Add(const Session& session, const ServiceOptions& options) {
    ReadPermissions();  // refuses a damaged file, which the library would move aside
    bool isSwitchedOn = false;
    const bool isChanged = EditSettings(session.configFile, [&](Json::Value& settings) {
        auto conf = LoadOrDefault(session.configFile, Services::kRead);
        if (!conf.AddServiceById(options.id)) {
            throw Refusal(options.id);
        }
        isSwitchedOn = conf.GetEnableConf();
        const auto ids = ListedIds(settings);
        if (std::find(ids.begin(), ids.end(), options.id) != ids.end()) {
            return false;
        }
        AppendToList(settings, options.id);
        return true;
    });
    Report(session, options.id, true, isChanged);
    if (!isSwitchedOn) {
        Complain(kSwitchedOff);
    }
    return kExitSuccess;
}

// Also a service that is in the file and cannot be read from the device, of which the library knows nothing.
ExitCode Remove(const Session& session, const ServiceOptions& options) {
    const bool isRemoved = EditSettings(session.configFile, [&](Json::Value& settings) {
        Json::Value kept(Json::arrayValue);
        const Json::Value& list = settings[kList];
        for (Json::ArrayIndex i = 0; list.isArray() && i < list.size(); ++i) {
            if (IdOf(list[i]) != options.id) {
                kept.append(list[i]);
            }
        }
        const bool isThere = list.isArray() && kept.size() < list.size();
        settings[kList].swapPayload(kept);
        return isThere;
    });
    if (!isRemoved) {
        throw CommandError(kExitNothing, "the service " + Excerpt(options.id) + " is not in the list");
    }
    Report(session, options.id, false, true);
    return kExitSuccess;
}

/** The configuration as it is, with the services that are permitted and on. */
RelaydConf GeneratedConfiguration(const std::string& path) {
    auto conf = LoadOrDefault(path, Services::kLeaveOut);
    MakeConfigFolder(kDefaultConfigFile);
    const EditLock lock(PermissionFile());
    UpdatePermissions();
    conf.GenServiceConf();
    return conf;
}

ExitCode Generate(const Session& session, const ServiceOptions& /*options*/) {
    ReadPermissions();
    RelaydConf conf(nullptr);
    Json::Value made(Json::objectValue);
    EditSettings(session.configFile, [&](Json::Value& settings) {
        conf = GeneratedConfiguration(session.configFile);
        conf.Write(made, false);
        ReplaceList(settings, ListedIds(made));
        return true;
    });
    PrintServices(conf, ListedIds(made), session.json);
    if (!conf.GetEnableConf() && !made["support_channel"]["enabled"].asBool()) {
        Complain(std::string(kSwitchedOff) + "; make the list again then");
    }
    return kExitSuccess;
}

using Action = ExitCode (*)(const Session&, const ServiceOptions&);

CLI::App* AddAction(CLI::App& service, const char* name, const char* help, Action action, Session& session,
                    const std::shared_ptr<ServiceOptions>& options) {
    auto* command = AddCommand(service, name, help, session);
    command->callback([&session, action, options] { session.exitCode = action(session, *options); });
    return command;
}

void AddId(CLI::App& command, ServiceOptions& options) {
    AddText(command, "id", options.id, "The service's identifier: 'service list --all' shows them", "ID")->required();
}

}  // namespace

void AddServiceCommand(CLI::App& app, Session& session) {
    const auto options = std::make_shared<ServiceOptions>();
    auto* service = AddGroup(app, "service", "Choose the services that are reached through the relay");
    AddAction(*service, "list", "Show the services that are offered", List, session, options)
        ->add_flag("--all", options->all, "Show every service that the relay can carry, and why it is not offered");
    AddId(*AddAction(*service, "add", "Offer one more service", Add, session, options), *options);
    AddId(*AddAction(*service, "remove", "No longer offer a service", Remove, session, options), *options);
    AddAction(*service, "generate", "Offer every service that is permitted and on, and no other", Generate, session,
              options);
}

}  // namespace ardv::ctl
