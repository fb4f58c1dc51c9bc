// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "session.h"

namespace ardv::ctl {

/** Adds "permission" with its sub-commands to the tool. */
void AddPermissionCommand(CLI::App& app, Session& session);

}  // namespace ardv::ctl
