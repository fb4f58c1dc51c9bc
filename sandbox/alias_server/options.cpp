// SPDX-License-Identifier: Apache-2.0
#include "options.h"

#include <CLI/CLI.hpp>

namespace ARDV::Sandbox {
namespace {

constexpr const char* kAbout =
    "The alias service for one machine: maps aliases to devices over HTTP and HTTPS, and misbehaves on demand. For "
    "tests and demonstrations, not for a network that is not your own.";

}  // namespace

bool ParseOptions(int argc, const char* const* argv, AliasServerOptions& options, int& exitCode) {
    CLI::App app(kAbout, "ardv-sandbox-alias-server");
    AddServerOptions(app, options.server);
    app.add_option("--registry", options.registry, "Registry file (JSON), made when it does not exist")->required();
    return ParseCommandLine(app, argc, argv, exitCode);
}

}  // namespace ARDV::Sandbox
