// SPDX-License-Identifier: Apache-2.0
#include <csignal>
#include <cstdio>
#include <string>

#include <pthread.h>
#include <unistd.h>

#include "alias_server.h"
#include "file.h"
#include "options.h"

namespace {

using ARDV::Sandbox::AliasServer;
using ARDV::Sandbox::Options;

// Blocked before any thread exists, so that only the main thread's sigwait() sees them.
sigset_t BlockEndSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGTERM, SIGINT, SIGUSR1}) {
        sigaddset(&signals, number);
    }
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    return signals;
}

int Fail(const std::string& reason) {
    std::fprintf(stderr, "ardv-sandbox-alias-server: %s\n", reason.c_str());
    return 1;
}

// SIGUSR1 is how a listener that failed wakes the main thread.
int WaitForEnd(const sigset_t& signals) {
    int number = 0;
    sigwait(&signals, &number);
    return number == SIGUSR1 ? Fail("a port can no longer be served") : 0;
}

int Run(const Options& options) {
    const sigset_t signals = BlockEndSignals();
    AliasServer server(options);
    std::string error;
    if (!server.Start([] { ::kill(::getpid(), SIGUSR1); }, error)) {
        return Fail(error);
    }
    const std::string ports = server.Ports() + "\n";
    std::fputs(ports.c_str(), stdout);
    std::fflush(stdout);
    if (!options.portsFile.empty() && !ARDV::Sandbox::ReplaceFile(options.portsFile, ports, error)) {
        return Fail(error);
    }
    const int code = WaitForEnd(signals);
    server.Stop();
    return code;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    int exitCode = 0;
    return ARDV::Sandbox::ParseOptions(argc, argv, options, exitCode) ? Run(options) : exitCode;
}
