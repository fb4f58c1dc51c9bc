// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "session.h"

namespace ardv::ctl {

/** Adds "alias" with its sub-commands to the tool. */
void AddAliasCommand(CLI::App& app, Session& session);

}  // namespace ardv::ctl
