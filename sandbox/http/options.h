// SPDX-License-Identifier: Apache-2.0
// The part of the command line that the sandbox's servers share.
#pragma once

#include <string>

namespace CLI {
class App;
}

namespace ARDV::Sandbox {

/// Where and how to serve.
struct ServerOptions {
    std::string address = "127.0.0.1";  ///< numeric address to listen on
    int httpPort = 0;                   ///< 0: any free one
    int httpsPort = 0;                  ///< 0: any free one
    std::string certificate;            ///< PEM file, leaf first; empty: no HTTPS
    std::string key;                    ///< PEM file of the certificate's private key
    std::string portsFile;              ///< where to tell the ports; empty: nowhere
};

/// Makes `app` fill `options`, which must outlive it.
void AddServerOptions(CLI::App& app, ServerOptions& options);

/// Reads the command line. True: go on. False: end with `exitCode` (0 after --help, 2 for a wrong command line); the
/// text for the user has been written.
bool ParseCommandLine(CLI::App& app, int argc, const char* const* argv, int& exitCode);

}  // namespace ARDV::Sandbox
