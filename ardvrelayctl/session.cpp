// SPDX-License-Identifier: Apache-2.0
#include "session.h"

#include <CLI/CLI.hpp>

#include "command_error.h"

namespace ardv::ctl {

namespace {

std::string TextFault(const std::string& text) {
    return text.empty() ? "must not be empty" : "";
}

}  // namespace

void CheckNamedFile(const Session& session) {
    const auto file = ConfigurationFile(session.configFile);
    if (session.isConfigNamed && !ReadText(file)) {
        throw CommandError(kExitConfig, file.Name() + " does not exist");
    }
}

void RequireDefaultConfiguration(const Session& session) {
    if (session.configFile != kDefaultConfigFile) {
        throw CommandError(kExitUsage, std::string("this command works on ") + kDefaultConfigFile +
                                           " alone: it cannot be had with --config");
    }
}

CLI::App* AddCommand(CLI::App& parent, const char* name, const char* help, Session& session) {
    auto* command = parent.add_subcommand(name, help);
    command->add_flag("--json", session.json, "Print JSON, for programs");
    return command;
}

CLI::App* AddGroup(CLI::App& parent, const char* name, const char* help) {
    auto* group = parent.add_subcommand(name, help);
    group->require_subcommand(1);
    return group;
}

CLI::Option* AddText(CLI::App& command, const char* name, std::string& text, const char* help, const char* type) {
    return command.add_option(name, text, help)->type_name(type)->check(CLI::Validator(TextFault, ""));
}

}  // namespace ardv::ctl
