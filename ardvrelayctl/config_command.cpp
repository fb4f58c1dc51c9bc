// SPDX-License-Identifier: Apache-2.0
#include "config_command.h"

#include <algorithm>
#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>

#include "command_error.h"
#include "config_check.h"
#include "config_file.h"
#include "config_schema.h"
#include "configuration.h"
#include "dotted_key.h"
#include "effective.h"
#include "output.h"
#include "secrets.h"
#include "text.h"

namespace ardv::ctl {

namespace {

struct ConfigOptions {
    std::string key;
    std::string value;
    std::string file;
    bool full = false;
    bool strict = false;
    bool showSecrets = false;
};

ExitCode Show(const Session& session, const ConfigOptions& options) {
    CheckNamedFile(session);
    const auto conf = LoadOrDefault(session.configFile, Services::kRead);
    const Json::Value shown = Shown(options.full ? WithRunTime(conf) : AsSaved(conf), options.showSecrets);
    if (session.json) {
        PrintJson(shown);
    } else {
        PrintDotted(shown);
    }
    return kExitSuccess;
}

// What the system doesn't know has the value that the file gives it.
Json::Value ValueOfKey(const Session& session, const std::string& key) {
    Json::Value values = ReadSettings(session.configFile);
    if (FindSetting(key) || IsGroupOfSettings(key)) {
        const bool isService = FirstPart(key) == "service";
        values = Complete(LoadOrDefault(session.configFile, isService ? Services::kRead : Services::kLeaveOut));
    }
    const auto* value = FindMember(values, key);
    if (!value) {
        throw CommandError(kExitNothing,
                           "\"" + Excerpt(key) + "\" has no value (--help lists the keys that the system knows)");
    }
    return *value;
}

ExitCode Get(const Session& session, const ConfigOptions& options) {
    CheckNamedFile(session);
    const Json::Value value = ShownMember(options.key, ValueOfKey(session, options.key), options.showSecrets);
    if (session.json) {
        Json::Value report(Json::objectValue);
        report["key"] = options.key;
        report["value"] = value;
        PrintJson(report);
    } else if (value.isObject() || value.isArray()) {
        PrintJson(value);
    } else {
        std::cout << Printable(PlainText(value)) << '\n';
    }
    return kExitSuccess;
}

void ReportChange(const Session& session, const std::string& key, const Json::Value& value, bool isChanged) {
    if (session.json) {
        Json::Value report(Json::objectValue);
        report["file"] = session.configFile;
        report["key"] = key;
        report["value"] = value;
        report["changed"] = isChanged;
        PrintJson(report);
    } else if (value.isNull()) {
        std::cout << key << (isChanged ? ": back to its default\n" : ": was at its default already\n");
    } else {
        std::cout << key << ": " << Printable(PlainText(value)) << '\n';
    }
}

CommandError UnknownKey(const std::string& key) {
    return {kExitUsage, "the system knows no setting \"" + Excerpt(key) + "\" (--help lists those that it knows)"};
}

ExitCode Set(const Session& session, const ConfigOptions& options) {
    const auto* setting = FindSetting(options.key);
    if (!setting) {
        throw UnknownKey(options.key);
    }
    const Json::Value value = ValueOf(*setting, options.value);
    EditSettings(session.configFile, [&](Json::Value& settings) {
        if (!SetMember(settings, options.key, value)) {
            throw CommandError(kExitConfig, "\"" + std::string(FirstPart(options.key)) + "\" is no object in " +
                                                ConfigurationFile(session.configFile).Name() + ": 'config unset " +
                                                std::string(FirstPart(options.key)) + "' removes it");
        }
        return true;
    });
    ReportChange(session, options.key, value, true);
    return kExitSuccess;
}

ExitCode Unset(const Session& session, const ConfigOptions& options) {
    if (!FindSetting(options.key) && !IsGroupOfSettings(options.key)) {
        throw UnknownKey(options.key);
    }
    const bool isChanged =
        EditSettings(session.configFile, [&](Json::Value& settings) { return RemoveMember(settings, options.key); });
    ReportChange(session, options.key, Json::Value(), isChanged);
    return kExitSuccess;
}

Json::Value AsJson(const Finding& finding) {
    Json::Value row(Json::objectValue);
    row["file"] = finding.file;
    row["key"] = finding.key;
    row["level"] = finding.isError ? "error" : "warning";
    row["reason"] = finding.reason;
    return row;
}

void PrintFinding(const Finding& finding) {
    std::cout << Printable(finding.file) << ": " << (finding.isError ? "error: " : "warning: ");
    if (!finding.key.empty()) {
        std::cout << Excerpt(finding.key) << ' ';
    }
    std::cout << Printable(finding.reason) << '\n';
}

// A fault that was found counts for more than a file that could not be looked into.
ExitCode ExitCodeOf(const std::vector<Finding>& findings, bool isStrict) {
    ExitCode exitCode = kExitSuccess;
    for (const auto& finding : findings) {
        if (finding.isForbidden) {
            exitCode = kExitNoPermission;
        } else if (finding.isError || isStrict) {
            return kExitConfig;
        }
    }
    return exitCode;
}

void PrintFindings(const std::vector<Finding>& findings, ExitCode exitCode, bool asJson) {
    if (!asJson) {
        std::for_each(findings.begin(), findings.end(), PrintFinding);
        if (findings.empty()) {
            std::cout << "no fault found\n";
        }
        return;
    }
    Json::Value report(Json::objectValue);
    report["valid"] = exitCode == kExitSuccess;
    report["findings"] = Json::Value(Json::arrayValue);
    for (const auto& finding : findings) {
        report["findings"].append(AsJson(finding));
    }
    if (exitCode != kExitSuccess) {
        AddFailure(report,
                   exitCode == kExitConfig ? "the configuration has faults"
                                           : "you may not read all of the configuration: run this as root",
                   exitCode);
    }
    PrintJson(report);
}

ExitCode Check(const Session& session, const ConfigOptions& options) {
    const bool isNamed = !options.file.empty();
    auto findings = CheckConfiguration(isNamed ? options.file : session.configFile, isNamed || session.isConfigNamed);
    if (!isNamed) {
        const auto neighbours = CheckNeighbours();
        findings.insert(findings.end(), neighbours.begin(), neighbours.end());
    }
    const auto exitCode = ExitCodeOf(findings, options.strict);
    PrintFindings(findings, exitCode, session.json);
    return exitCode;
}

using Action = ExitCode (*)(const Session&, const ConfigOptions&);

CLI::App* AddAction(CLI::App& config, const char* name, const char* help, Action action, Session& session,
                    const std::shared_ptr<ConfigOptions>& options) {
    auto* command = AddCommand(config, name, help, session);
    command->callback([&session, action, options] { session.exitCode = action(session, *options); });
    return command;
}

void AddKey(CLI::App& command, ConfigOptions& options) {
    AddText(command, "key", options.key, "Dotted key, such as server_alias.alias", "KEY")->required();
    command.footer([] { return SettingsHelp(); });  // besides the exit codes, which every command shows
}

void AddShowSecrets(CLI::App& command, ConfigOptions& options) {
    command.add_flag("--show-secrets", options.showSecrets, "Show secrets, which are \"***\" otherwise");
}

}  // namespace

void AddConfigCommand(CLI::App& app, Session& session) {
    const auto options = std::make_shared<ConfigOptions>();
    auto* config = AddGroup(app, "config", "Show, change and check the configuration");
    auto* show = AddAction(*config, "show", "Show the configuration that is in effect", Show, session, options);
    show->add_flag("--full", options->full, "Show also what isn't stored, such as the network");
    AddShowSecrets(*show, *options);
    auto* get = AddAction(*config, "get", "Show the value of one key", Get, session, options);
    AddKey(*get, *options);
    AddShowSecrets(*get, *options);
    auto* set = AddAction(*config, "set", "Change one key, and nothing else in the file", Set, session, options);
    AddKey(*set, *options);
    set->add_option("value", options->value, "The new value; put -- before one that begins with a dash")
        ->type_name("VALUE")
        ->required();
    AddKey(
        *AddAction(*config, "unset", "Bring one key, or a group of keys, back to the default", Unset, session, options),
        *options);
    auto* check = AddAction(*config, "check",
                            "Check the main configuration and the device's env.conf and services.conf, which stand in "
                            "/usr/ardv/etc/ardvrelayd whatever --config says; nothing is changed",
                            Check, session, options);
    AddText(*check, "file", options->file, "Check this file alone, as a main configuration", "FILE");
    check->add_flag("--strict", options->strict, "Count warnings as errors");
}

}  // namespace ardv::ctl
