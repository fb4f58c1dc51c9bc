// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "session.h"

namespace ardv::ctl {

/** Adds "web" with its sub-commands to the tool. */
void AddWebCommand(CLI::App& app, Session& session);

}  // namespace ardv::ctl
