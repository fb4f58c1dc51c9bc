// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "session.h"

namespace ardv::ctl {

/** The file into which a daemon in the background logs, by its configuration; its default where that cannot be used. */
std::string LogFileOf(const Session& session);

}  // namespace ardv::ctl
