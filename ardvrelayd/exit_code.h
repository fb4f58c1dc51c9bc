// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace ardv::daemon {

/** How the program ends. Those below 64 are results of the daemon, where it has one. */
enum ExitCode : int {
    kExitSuccess = 0,       ///< ended in order; in the background: started
    kExitFailed = 1,        ///< could not start: one runs already, or the system refused
    kExitConfig = 3,        ///< the configuration cannot be used
    kExitPidFile = 4,       ///< the process id file could not be made
    kExitNotSupported = 9,  ///< this version does not do that
    kExitUsage = 64,        ///< wrong use
};

}  // namespace ardv::daemon
