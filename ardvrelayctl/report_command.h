// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "session.h"

namespace ardv::ctl {

/** Adds "report" to the tool. */
void AddReportCommand(CLI::App& app, Session& session);

}  // namespace ardv::ctl
