// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>

#include "event_loop.h"

namespace ardv::daemon {

/** What a signal asks of the daemon. */
enum class Command {
    kStop,         ///< SIGTERM, SIGINT, SIGQUIT: end in order
    kReload,       ///< SIGHUP: read the configuration again
    kReport,       ///< SIGUSR1: write the diagnostic report
    kUpdateAlias,  ///< SIGRTMIN+1: bring the alias up to date now
    kChildEnded,   ///< SIGCHLD: one child or several have ended
    kTunnelReady,  ///< SIGUSR2
    kTunnelAlarm,  ///< SIGALRM
    kIgnored,      ///< SIGPIPE, SIGRTMIN+2, SIGRTMIN+3, and whatever else
};

/** What a signal number asks for. */
Command CommandOf(int signal);

/**
 * Hands the signals that `ARDV::Relay::Daemon::InitSignalHandler` catches to the loop.
 *
 * Signals that come faster than they are handled may come as one, but for real-time signals, of which each is handed on.
 * Their order among one another is the kernel's.
 */
class SignalSource {
public:
    /**
     * @param handle called from the loop, once for each signal; never with `kIgnored`. It may destroy this object.
     * @throws std::runtime_error if no signal handler is installed
     */
    SignalSource(EventLoop& loop, std::function<void(Command)> handle);
    ~SignalSource();
    SignalSource(const SignalSource&) = delete;
    SignalSource& operator=(const SignalSource&) = delete;

private:
    void Read();

    std::function<void(Command)> handle_;
    std::unique_ptr<Watch> watch_;
};

}  // namespace ardv::daemon
