// SPDX-License-Identifier: Apache-2.0
#include "permission_command.h"

#include <algorithm>
#include <iostream>
#include <memory>
#include <numeric>

#include <CLI/CLI.hpp>

#include <relay/service/service_permission.h>

#include "command_error.h"
#include "config_file.h"
#include "edit_lock.h"
#include "output.h"
#include "permission_file.h"
#include "table.h"

namespace ardv::ctl {

using namespace ARDV::Relay;

namespace {

struct PermissionOptions {
    std::string group;
};

constexpr const char kNotHere[] = "not on this device";

struct GroupState {
    const char* word;   // for programs
    const char* shown;  // for people
};

constexpr GroupState kPermitted = {"permitted", "permitted"};
constexpr GroupState kDenied = {"denied", "denied"};
constexpr GroupState kNew = {"new", "new: permitted from the next 'service generate' on"};
constexpr GroupState kAbsent = {"absent", kNotHere};

std::uint32_t GroupsOnDevice() {
    const ServicePermission permission(false);
    std::uint32_t mask = 0;
    for (const auto* row = grgszSupportService; row->id; ++row) {
        if (row->group != SERVICE_GROUP_ALWAYS && permission.IsServiceEnabled(row, kAllServiceGroups)) {
            mask |= static_cast<std::uint32_t>(row->group);
        }
    }
    return mask;
}

/** The position of a group's entry in the list; its size if there is none. */
Json::ArrayIndex EntryOf(const Json::Value& list, const std::string& group) {
    Json::ArrayIndex i = 0;
    while (i < list.size() && !(list[i].isObject() && list[i]["id"] == group)) {
        ++i;
    }
    return i;
}

GroupState StateOf(const std::string& group, const Json::Value& list, std::uint32_t onDevice) {
    if ((ServicePermission::GetMaskVal(group) & onDevice) == 0) {
        return kAbsent;
    }
    if (!ServicePermission::IsChosen(list, group)) {
        return kDenied;
    }
    const bool isInEffect = (ServicePermission::GetMaskVal(group) & ServicePermission::JsonToMask(list)) != 0;
    return isInEffect ? kPermitted : kNew;
}

std::string Listed(const std::vector<std::string>& words) {
    return std::accumulate(
        words.begin(), words.end(), std::string(),
        [](const std::string& text, const std::string& word) { return text + (text.empty() ? "" : ", ") + word; });
}

Json::Value AsJson(const std::string& group, const GroupState& state) {
    Json::Value row(Json::objectValue);
    row["id"] = group;
    row["state"] = state.word;
    row["services"] = Json::Value(Json::arrayValue);
    for (const auto& id : ServicesOf(group)) {
        row["services"].append(id);
    }
    return row;
}

ExitCode List(const Session& session) {
    const Json::Value list = ReadPermissions();
    const auto onDevice = GroupsOnDevice();
    Json::Value report(Json::objectValue);
    report["groups"] = Json::Value(Json::arrayValue);
    std::vector<std::vector<std::string>> table = {{"GROUP", "STATE", "SERVICES"}};
    for (const auto& group : GroupNames()) {
        const auto state = StateOf(group, list, onDevice);
        report["groups"].append(AsJson(group, state));
        table.push_back({group, state.shown, Listed(ServicesOf(group))});
    }
    if (session.json) {
        PrintJson(report);
    } else {
        PrintTable(table);
    }
    return kExitSuccess;
}

ExitCode Choose(const Session& session, const std::string& group, bool isPermitted) {
    MakeConfigFolder(kDefaultConfigFile);
    const EditLock lock(PermissionFile());
    Json::Value list = UpdatePermissions();
    const auto entry = EntryOf(list, group);
    if (entry == list.size() && (ServicePermission::GetMaskVal(group) & GroupsOnDevice()) == 0) {
        throw CommandError(kExitUser, "the group " + group + " is " + kNotHere + ": none of its services is on (" +
                                          Listed(ServicesOf(group)) + "); 'ardvrelayctl service list --all' tells why");
    }
    list[entry]["id"] = group;
    list[entry]["enabled"] = isPermitted;
    Write(PermissionFile(), list);
    const auto state = isPermitted ? kPermitted : kDenied;
    if (session.json) {
        PrintJson(AsJson(group, state));
    } else {
        std::cout << group << ": " << state.shown << "; 'ardvrelayctl service generate' puts it into effect\n";
    }
    return kExitSuccess;
}

void AddChoice(CLI::App& permission, const char* name, const char* help, bool isPermitted, Session& session) {
    const auto options = std::make_shared<PermissionOptions>();
    auto* command = AddCommand(permission, name, help, session);
    command->add_option("group", options->group, "The group of services")
        ->type_name("GROUP")
        ->required()
        ->check(CLI::IsMember(GroupNames()));
    command->callback(
        [&session, options, isPermitted] { session.exitCode = Choose(session, options->group, isPermitted); });
}

}  // namespace

void AddPermissionCommand(CLI::App& app, Session& session) {
    auto* permission = AddGroup(app, "permission", "Permit or deny groups of services");
    AddCommand(*permission, "list", "Show the groups, and what is permitted", session)->callback([&session] {
        session.exitCode = List(session);
    });
    AddChoice(*permission, "allow", "Permit the services of a group", true, session);
    AddChoice(*permission, "deny", "Deny the services of a group", false, session);
}

}  // namespace ardv::ctl
