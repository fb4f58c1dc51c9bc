// SPDX-License-Identifier: Apache-2.0
// The alias server's command line.
#pragma once

#include <string>

namespace ARDV::Sandbox {

/// What the command line asks for.
struct Options {
    std::string address = "127.0.0.1";  ///< numeric address to listen on
    int httpPort = 0;                   ///< 0: any free one
    int httpsPort = 0;                  ///< 0: any free one
    std::string certificate;            ///< PEM file, leaf first; empty: no HTTPS
    std::string key;                    ///< PEM file of the certificate's private key
    std::string registry;               ///< JSON file, made when it doesn't exist
    std::string portsFile;              ///< where to tell the ports; empty: nowhere
};

/// Reads the command line into `options`. True: go on. False: end with `exitCode` (0 after --help, 2 for a wrong
/// command line); the text for the user has been written.
bool ParseOptions(int argc, const char* const* argv, Options& options, int& exitCode);

}  // namespace ARDV::Sandbox
