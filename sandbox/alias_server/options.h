// SPDX-License-Identifier: Apache-2.0
// The alias server's command line.
#pragma once

#include <string>

#include "http/options.h"

namespace ARDV::Sandbox {

/// What the command line asks for.
struct AliasServerOptions {
    ServerOptions server;
    std::string registry;  ///< JSON file, made when it doesn't exist
};

/// Reads the command line into `options`. True: go on. False: end with `exitCode` (0 after --help, 2 for a wrong
/// command line); the text for the user has been written.
bool ParseOptions(int argc, const char* const* argv, AliasServerOptions& options, int& exitCode);

}  // namespace ARDV::Sandbox
