// SPDX-License-Identifier: Apache-2.0
#include <cstdio>
#include <string>

#include "alias_service.h"
#include "http/server.h"
#include "options.h"
#include "registry.h"

int main(int argc, char** argv) {
    using namespace ARDV::Sandbox;
    constexpr const char* kProgram = "ardv-sandbox-alias-server";
    AliasServerOptions options;
    int exitCode = 0;
    if (!ParseOptions(argc, argv, options, exitCode)) {
        return exitCode;
    }
    Registry registry(options.registry);
    std::string error;
    if (!registry.Load(error)) {
        std::fprintf(stderr, "%s: %s\n", kProgram, error.c_str());
        return 1;
    }
    AliasService service(registry);
    return RunServer(kProgram, options.server, service);
}
