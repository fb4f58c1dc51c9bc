// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "options.h"

namespace ardv::daemon {

/** Does what the command line asks for. Returns the exit code. */
int RunProgram(const Options& options);

}  // namespace ardv::daemon
