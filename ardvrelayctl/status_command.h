// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "session.h"

namespace ardv::ctl {

/** Adds "status" to the tool. */
void AddStatusCommand(CLI::App& app, Session& session);

}  // namespace ardv::ctl
