// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "session.h"

namespace ardv::ctl {

/** Adds "reload" and "stop" to the tool. */
void AddControlCommand(CLI::App& app, Session& session);

/** Adds "update", which asks the running daemon, to the group "alias". */
void AddAliasUpdateCommand(CLI::App& alias, Session& session);

}  // namespace ardv::ctl
