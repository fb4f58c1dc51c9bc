// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "session.h"

namespace ardv::ctl {

/** Something that was found, and what it is about. */
struct DaemonFinding {
    const char* what;
    std::string text;
};

/** What can be told of a daemon that does not answer, without asking it. */
std::vector<DaemonFinding> ExamineDaemon(const Session& session);

/** The last lines of the daemon's log, each fit for a terminal; empty where there is none that this user may read. */
std::vector<std::string> EndOfLog(const Session& session);

}  // namespace ardv::ctl
