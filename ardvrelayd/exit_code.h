// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace ardv::daemon {

/** How the program ends. Those below 64, and the last, are results of the daemon, where it has one. */
enum ExitCode : int {
    kExitSuccess = 0,
    kExitFailed = 1,
    kExitConfig = 3,
    kExitPidFile = 4,
    kExitNotSupported = 9,
    kExitUsage = 64,
    kExitNoAnswer = 255,
};

struct ExitCodeRow {
    ExitCode code;
    const char* meaning;
};

/** What each says to who called the program. */
inline constexpr ExitCodeRow kExitCodes[] = {
    {kExitSuccess, "ended in order; in the background: started"},
    {kExitFailed, "not started: one runs already, or the system refused"},
    {kExitConfig, "the configuration cannot be used"},
    {kExitPidFile, "the pid file could not be made"},
    {kExitNotSupported, "this version does not do that"},
    {kExitUsage, "wrong use"},
    {kExitNoAnswer, "nothing was heard from the background within 20 seconds"},
};

}  // namespace ardv::daemon
