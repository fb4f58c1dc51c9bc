// SPDX-License-Identifier: Apache-2.0
#include "config_check.h"

#include <filesystem>
#include <optional>
#include <set>
#include <system_error>
#include <utility>

#include <relay/config/config.h>
#include <relay/service/service_permission.h>

#include "command_error.h"
#include "config_schema.h"
#include "configuration.h"
#include "dotted_key.h"
#include "json_file.h"
#include "permission_file.h"
#include "table.h"
#include "text.h"

namespace ardv::ctl {

using namespace ARDV::Relay;

namespace {

constexpr std::size_t kMaxFindings = 200;

// The library reads it from this place, wherever the main configuration stands.
constexpr const char kEnvironmentFile[] = "/usr/ardv/etc/ardvrelayd/env.conf";

constexpr const char* kServers[] = {"server_global", "server_control", "server_waitcmd"};

// Of the full form that is shown and never stored.
constexpr const char* kRunTimeMembers[] = {"enable", "debug", "pid", "network"};

/** Findings of one file, errors before warnings; of either no more than anybody reads. */
class Findings {
public:
    explicit Findings(std::string file) : file_(std::move(file)) {}

    void Error(const std::string& key, const std::string& reason) { Add(errors_, key, true, reason); }
    void Forbidden(const std::string& reason) { errors_.push_back({file_, "", true, reason, true}); }
    void Warning(const std::string& key, const std::string& reason) { Add(warnings_, key, false, reason); }
    const std::string& File() const { return file_; }
    bool HasErrors() const { return !errors_.empty(); }
    bool HasAllWarnings() const { return warnings_.size() > kMaxFindings; }

    std::vector<Finding> Take() {
        errors_.insert(errors_.end(), warnings_.begin(), warnings_.end());
        return std::move(errors_);
    }

private:
    void Add(std::vector<Finding>& list, const std::string& key, bool isError, const std::string& reason) const {
        if (list.size() < kMaxFindings) {
            list.push_back({file_, key, isError, reason});
        } else if (list.size() == kMaxFindings) {
            list.push_back({file_, "", isError,
                            std::string("has more ") + (isError ? "errors" : "warnings") + " than are listed here"});
        }
    }

    std::string file_;
    std::vector<Finding> errors_;
    std::vector<Finding> warnings_;
};

/** A member of the elements of a list, or of the environment file. */
struct Member {
    const char* name;
    SettingType type;
    const char* (*fault)(const Json::Value&);
};

constexpr Member kServiceMembers[] = {{"id", SettingType::kText, TextFault},
                                      {"name", SettingType::kText, TextFault},
                                      {"port", SettingType::kInteger, PortFault},
                                      {"ext_port", SettingType::kInteger, PortFault}};
constexpr Member kEnvironmentMembers[] = {{"relay_region", SettingType::kText, TextFault},
                                          {"ddns_domain", SettingType::kText, TextFault}};
constexpr Member kPermissionMembers[] = {{"id", SettingType::kText, nullptr},
                                         {"enabled", SettingType::kBoolean, nullptr}};

std::string Joined(const std::string& group, const std::string& key) {
    return group.empty() ? key : group + "." + key;
}

std::string ElementKey(const std::string& list, Json::ArrayIndex index) {
    return list + "[" + std::to_string(index) + "]";
}

template <std::size_t kCount>
void CheckMembers(const Json::Value& object, const Member (&known)[kCount], const std::string& group,
                  Findings& findings) {
    for (auto member = object.begin(); member != object.end(); ++member) {
        const std::string key = Joined(group, member.name());
        const auto* row = FindRow(known, [&](const Member& r) { return r.name == member.name(); });
        if (!row) {
            findings.Warning(key, "is not known and ignored");
        } else if (!HasType(*member, row->type)) {
            findings.Error(key, std::string("must be ") + NameOf(row->type));
        } else if (const char* fault = row->fault ? row->fault(*member) : nullptr) {
            findings.Error(key, fault);
        }
    }
}

/** The element's identifier; empty, with an error, if it has none. */
std::string IdOf(const Json::Value& element, const std::string& key, Findings& findings) {
    const auto* id = FindMember(element, "id");
    const bool isGood = id && id->isString() && !id->asString().empty();
    if (!isGood) {
        findings.Error(key, "must be an object with a string \"id\"");
    }
    return isGood ? id->asString() : "";
}

void CheckServices(const Json::Value& list, Findings& findings) {
    std::set<std::string> seen;
    for (Json::ArrayIndex i = 0; i < list.size(); ++i) {
        const std::string key = ElementKey("service", i);
        const std::string id = IdOf(list[i], key, findings);
        if (id.empty()) {
            continue;
        }
        CheckMembers(list[i], kServiceMembers, key, findings);
        if (!seen.insert(id).second) {
            findings.Warning(key, "stands a second time in the list: the first one counts");
        } else if (!findings.HasAllWarnings() && !ServiceConf(list[i], true).IsValid()) {  // it asks the device
            findings.Warning(key, "is not offered: this device has no port for the service \"" + Excerpt(id) + "\"");
        }
    }
}

void CheckSetting(const Setting& setting, const Json::Value& value, Findings& findings) {
    const auto fault = WhatIsWrong(setting, value);
    if (!fault.empty()) {
        findings.Error(setting.key, fault);
    } else if (setting.type == SettingType::kServices) {
        CheckServices(value, findings);
    }
}

void CheckSettings(const Json::Value& object, const std::string& group, Findings& findings);

void CheckGroup(const Json::Value& value, const std::string& group, Findings& findings) {
    if (value.isObject()) {
        CheckSettings(value, group, findings);
    } else {
        findings.Error(group, "must be an object");
    }
}

void CheckSettings(const Json::Value& object, const std::string& group, Findings& findings) {
    for (auto member = object.begin(); member != object.end(); ++member) {
        const std::string key = Joined(group, member.name());
        if (const auto* setting = FindSetting(key)) {
            CheckSetting(*setting, *member, findings);
        } else if (group.empty() && IsGroupOfSettings(key)) {
            CheckGroup(*member, key, findings);
        } else if (FindRow(kRunTimeMembers, [&](const char* name) { return key == name; })) {
            findings.Warning(key, "is ignored: it is a fact of a running daemon, not a setting");
        } else {
            findings.Warning(key, "is not known and ignored");
        }
    }
}

Json::Value Defaults() {
    Json::Value defaults;
    RelaydConf(nullptr).Write(defaults, true);
    return defaults;
}

bool IsEmptyText(const Json::Value& defaults, const Json::Value& settings, const std::string& key) {
    const auto* given = FindMember(settings, key);
    const auto* value = given && given->isString() ? given : FindMember(defaults, key);
    return !value || !value->isString() || value->asString().empty();
}

void CheckServers(const Json::Value& settings, Findings& findings) {
    const Json::Value defaults = Defaults();
    for (const std::string server : kServers) {
        if (IsEmptyText(defaults, settings, server + ".host") && IsEmptyText(defaults, settings, server + ".ip")) {
            findings.Error(server, "needs a \"host\" or an \"ip\"");
        }
    }
}

bool IsValidConfiguration(const Json::Value& settings) {
    bool isValid = false;
    Configured(settings, Services::kLeaveOut, isValid);
    return isValid;
}

/** Whether a setting keeps the configuration from being valid, whatever the others say. */
bool IsRefused(const Setting& setting, const Json::Value& value) {
    Json::Value alone(Json::objectValue);
    return SetMember(alone, setting.key, value) && !IsValidConfiguration(alone);
}

void CheckMain(const Json::Value& value, Findings& findings) {
    if (!value.isObject()) {
        findings.Error("", "must be a JSON object");
        return;
    }
    CheckSettings(value, "", findings);
    CheckServers(value, findings);
    if (!findings.HasErrors() && !IsValidConfiguration(value)) {
        findings.Error("", "is not valid: every command refuses it");
    }
}

void CheckEnvironment(const Json::Value& value, Findings& findings) {
    if (!value.isObject()) {
        findings.Error("", "must be a JSON object");
        return;
    }
    CheckMembers(value, kEnvironmentMembers, "", findings);
}

void CheckPermissions(const Json::Value& value, Findings& findings) {
    if (!value.isArray()) {
        findings.Error("", "must be a JSON array");
        return;
    }
    std::set<std::string> seen;
    for (Json::ArrayIndex i = 0; i < value.size(); ++i) {
        const std::string key = ElementKey("", i);
        const std::string id = IdOf(value[i], key, findings);
        if (id.empty()) {
            continue;
        }
        CheckMembers(value[i], kPermissionMembers, key, findings);
        if (ServicePermission::GetMaskVal(id) == 0) {
            findings.Warning(key, "is no group of services: \"" + Excerpt(id) + "\"");
        } else if (!seen.insert(id).second) {
            findings.Warning(key, "stands a second time in the list");
        }
        if (!FindMember(value[i], "enabled")) {
            findings.Error(key, "needs a boolean \"enabled\"");
        }
    }
}

std::string PlaceOf(const JsonFault& fault) {
    return fault.line == 0 ? ""
                           : "line " + std::to_string(fault.line) + ", column " + std::to_string(fault.column) + ": ";
}

std::optional<Json::Value> ParseFor(const std::string& text, Findings& findings) {
    Json::Value value;
    if (const auto fault = Parse(text, value)) {
        findings.Error("", "is not JSON: " + PlaceOf(*fault) + fault->reason);
        return std::nullopt;
    }
    if (const auto fault = TextBehind(text, value)) {
        findings.Error("", PlaceOf(*fault) + fault->reason);
    }
    if (HasKeyTwice(text)) {
        findings.Warning("", "has a key twice in one object: the last one counts");
    }
    return value;
}

struct Check {
    JsonFile file;
    void (*content)(const Json::Value&, Findings&);
    void (*missing)(Findings&);
};

std::vector<Finding> Run(const Check& check) {
    Findings findings(check.file.path);
    try {
        if (const auto text = ReadText(check.file); !text) {
            check.missing(findings);
        } else if (const auto value = ParseFor(*text, findings)) {
            check.content(*value, findings);
        }
    } catch (const CommandError& problem) {
        if (problem.Code() == kExitNoPermission) {
            findings.Forbidden(problem.what());
        } else {
            findings.Error("", problem.what());
        }
    }
    return findings.Take();
}

void MissingFile(Findings& findings) {
    findings.Error("", "does not exist");
}

// The library moves a damaged file aside.
void MissingSettings(Findings& findings) {
    const auto aside = findings.File() + ".bad";
    std::error_code unknown;
    const bool isDamaged = std::filesystem::exists(aside, unknown);
    findings.Warning("",
                     "does not exist: the defaults hold" +
                         (isDamaged ? "; a damaged one was moved to " + aside + ": mend it, and move it back" : ""));
}

void MissingNeighbour(Findings& /*findings*/) {}

}  // namespace

std::vector<Finding> CheckConfiguration(const std::string& path, bool isNamed) {
    return Run({ConfigurationFile(path), CheckMain, isNamed ? MissingFile : MissingSettings});
}

std::vector<Finding> CheckNeighbours() {
    auto findings = Run({{"the environment file", kEnvironmentFile}, CheckEnvironment, MissingNeighbour});
    const auto permissions = Run({PermissionFile(), CheckPermissions, MissingNeighbour});
    findings.insert(findings.end(), permissions.begin(), permissions.end());
    return findings;
}

std::string ValidityFault(const Json::Value& settings) {
    for (const auto& setting : Settings()) {
        const auto* value = FindMember(settings, setting.key);
        if (!value) {
            continue;
        }
        const auto fault = WhatIsWrong(setting, *value);
        if (!fault.empty() && IsRefused(setting, *value)) {
            return std::string(setting.key) + " " + fault;
        }
    }
    Findings findings("");
    CheckServers(settings, findings);
    const auto list = findings.Take();
    return list.empty() ? "" : list.front().key + " " + list.front().reason;
}

}  // namespace ardv::ctl
