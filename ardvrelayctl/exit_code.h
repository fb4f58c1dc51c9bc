// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <relay/common/vocabulary.h>

namespace ardv::ctl {

/**
 * What the tool's exit codes mean. Up to 4 they follow the retry class of an alias result, those up to 8 are of the running
 * daemon, those from 64 on those of sysexits.h, and 124 is that of timeout(1).
 */
enum ExitCode : int {
    kExitSuccess = 0,
    kExitResolve = 1,        ///< the server's name did not resolve
    kExitLater = 2,          ///< may succeed by itself later
    kExitUser = 3,           ///< stays as it is until somebody changes something
    kExitNothing = 4,        ///< what was asked for is not there: an alias, its record, a key, a service, a tunnel
    kExitNotRunning = 5,     ///< the daemon does not run
    kExitBadStatus = 6,      ///< the daemon's status file, or an answer of it, is not what it should be
    kExitNoAnswer = 7,       ///< the daemon did not answer in time, or somebody else asks it at this moment
    kExitProblem = 8,        ///< "doctor" or "tunnel rules" found a problem
    kExitUsage = 64,         ///< wrong use of the tool
    kExitUnavailable = 69,   ///< a part of the device did not do what it was asked for
    kExitCantCreate = 73,    ///< a file could not be written
    kExitIo = 74,            ///< what was printed could not be written
    kExitNoPermission = 77,  ///< this user may not do that
    kExitConfig = 78,        ///< configuration or identity of the device cannot be used
    kExitTimeout = 124       ///< what was waited for did not come in time
};

/** The exit code of an alias result. */
ExitCode ExitCodeOf(ARDV::Relay::ALIAS_RET ret);

/** The exit code of what a function of the daemon's results in: `RELAYD_RET`, and the 1 and 2 of a daemon that isn't there. */
ExitCode ExitCodeOfDaemon(int result);

/** The table of exit codes, as the help shows it. */
std::string ExitCodeHelp();

}  // namespace ardv::ctl
