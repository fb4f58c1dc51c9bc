// SPDX-License-Identifier: Apache-2.0
#include "signals.h"

#include <libdaemon/dsignal.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <stdexcept>
#include <utility>
#include <vector>

#include "guarded_call.h"
#include "log.h"

DAEMON_LOG_SOURCE("signals.cpp");

namespace ardv::daemon {

namespace {

struct Meaning {
    int signal;
    Command command;
};

// SIGRTMIN is no constant: the C library keeps some real-time signals to itself.
const auto& Meanings() {
    static const std::array<Meaning, 12> meanings = {{
        {SIGTERM, Command::kStop},
        {SIGINT, Command::kStop},
        {SIGQUIT, Command::kStop},
        {SIGHUP, Command::kReload},
        {SIGUSR1, Command::kReport},
        {SIGRTMIN + 1, Command::kUpdateAlias},
        {SIGCHLD, Command::kChildEnded},
        {SIGUSR2, Command::kTunnelReady},
        {SIGALRM, Command::kTunnelAlarm},
        {SIGPIPE, Command::kIgnored},
        {SIGRTMIN + 2, Command::kIgnored},
        {SIGRTMIN + 3, Command::kIgnored},
    }};
    return meanings;
}

// The rest comes in the next turn: who floods the daemon with signals must not keep it from everything else.
constexpr std::size_t kMaxSignals = 64;

}  // namespace

Command CommandOf(int signal) {
    const auto& meanings = Meanings();
    const auto* found =
        std::find_if(meanings.begin(), meanings.end(), [signal](const Meaning& m) { return m.signal == signal; });
    return found == meanings.end() ? Command::kIgnored : found->command;
}

SignalSource::SignalSource(EventLoop& loop, std::function<void(Command)> handle) : handle_(std::move(handle)) {
    const int fd = daemon_signal_fd();
    if (fd < 0) {
        throw std::runtime_error("no signal handler is installed");
    }
    watch_ = std::make_unique<Watch>(loop, fd, Watch::kReadable, [this](short) { Read(); });
}

SignalSource::~SignalSource() = default;

void SignalSource::Read() {
    std::vector<Command> commands;
    int signal = 0;
    while (commands.size() < kMaxSignals && (signal = daemon_signal_next()) > 0) {
        commands.push_back(CommandOf(signal));
    }
    if (signal < 0) {
        DAEMON_LOG(LOG_ERR, "signals cannot be read any more");
        watch_.reset();
    }
    const auto handle = handle_;  // this may be gone before the last call is over
    for (const auto command : commands) {
        if (command != Command::kIgnored) {
            GuardedCall("handler of a signal", [&] { handle(command); });
        }
    }
}

}  // namespace ardv::daemon
