// SPDX-License-Identifier: Apache-2.0
// The control server's command line.
#pragma once

#include <string>

#include "http/options.h"
#include "vocabulary.h"

namespace ARDV::Sandbox {

/// What the command line asks for.
struct ControlOptions {
    ServerOptions server;
    std::string state;                  ///< JSON file of the devices; empty: they are forgotten at the end
    std::string scenario;               ///< JSON file; empty: none
    std::string relayUsers;             ///< file for the relay's users; empty: they are not written
    int keepAlive = kDefaultKeepAlive;  ///< seconds that devices are told
    int hold = 3600;                    ///< seconds that a wait is held
    int resend = 5;                     ///< seconds without a result after which a command is sent again
    int expire = 0;                     ///< seconds without a sign of life that end a session; 0: 3 x keepAlive
};

/// Reads the command line into `options`. True: go on. False: end with `exitCode` (0 after --help, 2 for a wrong
/// command line); the text for the user has been written.
bool ParseOptions(int argc, const char* const* argv, ControlOptions& options, int& exitCode);

}  // namespace ARDV::Sandbox
