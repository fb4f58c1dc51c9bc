// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "session.h"

namespace ardv::ctl {

/** Adds "doctor" to the tool. */
void AddDoctorCommand(CLI::App& app, Session& session);

}  // namespace ardv::ctl
