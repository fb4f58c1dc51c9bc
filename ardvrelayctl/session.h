// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "configuration.h"
#include "exit_code.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace ardv::ctl {

/** What holds for every command of one run of the tool. */
struct Session {
    std::string configFile = kDefaultConfigFile;
    bool isConfigNamed = false;  ///< by the user
    bool json = false;
    ExitCode exitCode = kExitSuccess;  ///< set by the command that has run
};

/**
 * For a command that reads the main configuration and can do without the file.
 *
 * @throws CommandError if the user named a file that isn't there: the defaults are not what is meant then
 */
void CheckNamedFile(const Session& session);

/**
 * For a command that works on the default configuration alone, as the library's functions for it do.
 *
 * @throws CommandError if the user named another file
 */
void RequireDefaultConfiguration(const Session& session);

/** Adds a command that does something, with its option "--json". */
CLI::App* AddCommand(CLI::App& parent, const char* name, const char* help, Session& session);

/** Adds a command that only has commands of its own. */
CLI::App* AddGroup(CLI::App& parent, const char* name, const char* help);

/**
 * Adds a text that must not be empty: an empty one would count as one that was not given, which is not what a script
 * with an empty variable means.
 */
CLI::Option* AddText(CLI::App& command, const char* name, std::string& text, const char* help, const char* type);

}  // namespace ardv::ctl
