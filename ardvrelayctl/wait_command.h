// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "session.h"

namespace ardv::ctl {

/** Adds "wait" to the tool. */
void AddWaitCommand(CLI::App& app, Session& session);

}  // namespace ardv::ctl
