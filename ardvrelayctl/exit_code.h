// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <relay/common/vocabulary.h>

namespace ardv::ctl {

/** What the tool's exit codes mean. Up to 4 they follow the retry class of an alias result; the others are those of
 * sysexits.h. */
enum ExitCode : int {
    kExitSuccess = 0,
    kExitResolve = 1,        ///< the server's name did not resolve
    kExitLater = 2,          ///< may succeed by itself later
    kExitUser = 3,           ///< stays as it is until somebody changes something
    kExitNothing = 4,        ///< what was asked for is not there: an alias, its record, a key, a service
    kExitUsage = 64,         ///< wrong use of the tool
    kExitUnavailable = 69,   ///< a part of the device did not do what it was asked for
    kExitCantCreate = 73,    ///< a file could not be written
    kExitIo = 74,            ///< what was printed could not be written
    kExitNoPermission = 77,  ///< this user may not do that
    kExitConfig = 78         ///< configuration or identity of the device cannot be used
};

/** The exit code of an alias result. */
ExitCode ExitCodeOf(ARDV::Relay::ALIAS_RET ret);

/** The table of exit codes, as the help shows it. */
std::string ExitCodeHelp();

}  // namespace ardv::ctl
