// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "session.h"

namespace ardv::ctl {

/** Adds "identity" with its sub-commands to the tool. */
void AddIdentityCommand(CLI::App& app, Session& session);

}  // namespace ardv::ctl
