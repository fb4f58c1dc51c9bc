// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "session.h"

namespace ardv::ctl {

/** Adds "log" with its sub-commands to the tool. */
void AddLogCommand(CLI::App& app, Session& session);

}  // namespace ardv::ctl
