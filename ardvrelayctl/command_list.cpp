// SPDX-License-Identifier: Apache-2.0
#include "command_list.h"

#include <algorithm>
#include <iostream>
#include <string>
#include <string_view>

#include <CLI/CLI.hpp>

#include "config_schema.h"

namespace ardv::ctl {

namespace {

constexpr const char kNone[] = "-";
constexpr std::string_view kKeyType = "KEY";

std::string OrNone(const std::string& text) {
    return text.empty() ? kNone : text;
}

std::string PathOf(const CLI::App& command) {
    const auto* parent = command.get_parent();
    if (!parent) {
        return "";
    }
    const auto above = PathOf(*parent);
    return above + (above.empty() ? "" : " ") + command.get_name();
}

std::string SettingKeys() {
    std::string keys;
    for (const auto& setting : Settings()) {
        keys += (keys.empty() ? "" : " ") + std::string(setting.key);
    }
    return keys;
}

/** Of "GOAL:{login,alias}" the part before the colon. */
std::string TypeOf(const CLI::Option& option) {
    const auto type = option.get_type_name();
    return option.get_items_expected_max() == 0 ? kNone : OrNone(type.substr(0, type.find_first_of(":=")));
}

std::string ValuesOf(const CLI::Option& option) {
    const auto type = option.get_type_name();
    const auto begin = type.find('{');
    const auto end = type.rfind('}');
    if (begin == std::string::npos || end == std::string::npos) {
        return TypeOf(option) == kKeyType ? SettingKeys() : kNone;
    }
    auto values = type.substr(begin + 1, end - begin - 1);
    std::replace(values.begin(), values.end(), ',', ' ');
    return values;
}

void PrintOption(const std::string& path, const CLI::Option& option) {
    const bool isArgument = !option.nonpositional();
    std::cout << (isArgument ? "argument" : "option") << '\t' << OrNone(path) << '\t'
              << option.get_name(isArgument, true) << '\t' << TypeOf(option) << '\t' << ValuesOf(option) << '\t'
              << option.get_description() << '\n';
}

void PrintCommand(const CLI::App& command) {
    const auto path = PathOf(command);
    std::cout << "command\t" << OrNone(path) << '\t' << command.get_description() << '\n';
    for (const auto* option : command.get_options()) {
        PrintOption(path, *option);
    }
    for (const auto* below : command.get_subcommands([](const CLI::App*) { return true; })) {
        PrintCommand(*below);
    }
}

}  // namespace

void PrintCommands(const CLI::App& app) {
    PrintCommand(app);
}

}  // namespace ardv::ctl
