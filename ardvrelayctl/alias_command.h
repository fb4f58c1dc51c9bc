// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "alias_request.h"
#include "exit_code.h"

namespace CLI {
class App;
}

namespace ardv::ctl {

/**
 * Adds "alias" with its sub-commands to the tool.
 *
 * @param app the tool
 * @param options filled by the parser; must outlive `app`
 * @param exitCode set when a sub-command has run
 */
void AddAliasCommand(CLI::App& app, AliasOptions& options, ExitCode& exitCode);

}  // namespace ardv::ctl
