// SPDX-License-Identifier: Apache-2.0
#include "http/options.h"

#include <CLI/CLI.hpp>

namespace ARDV::Sandbox {

void AddServerOptions(CLI::App& app, ServerOptions& options) {
    app.add_option("--listen,--address", options.address,
                   "Address to listen on; the test interface is reachable there too")
        ->check(CLI::ValidIPV4 | CLI::IsMember({"::1", "::"}))
        ->capture_default_str();
    app.add_option("--http-port", options.httpPort, "Port for HTTP, 0 for any")->check(CLI::Range(0, 65535));
    app.add_option("--https-port", options.httpsPort, "Port for HTTPS, 0 for any")->check(CLI::Range(0, 65535));
    auto* certificate = app.add_option("--certificate", options.certificate, "Certificate (PEM); without it, no HTTPS");
    auto* key = app.add_option("--key", options.key, "Its private key (PEM)");
    certificate->needs(key);
    key->needs(certificate);
    app.add_option("--ports-file", options.portsFile, "File to write the ports to (JSON) when ready");
    app.footer("Ends in order on SIGTERM and SIGINT. Exit codes: 0 ended in order, 1 failure, 2 wrong command line.");
}

bool ParseCommandLine(CLI::App& app, int argc, const char* const* argv, int& exitCode) {
    try {
        app.parse(argc, argv);
        return true;
    } catch (const CLI::ParseError& error) {
        exitCode = app.exit(error) == 0 ? 0 : 2;
        return false;
    }
}

}  // namespace ARDV::Sandbox
