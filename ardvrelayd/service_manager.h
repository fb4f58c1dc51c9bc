// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "descriptor.h"
#include "event_loop.h"

namespace ardv::daemon {

/**
 * Tells the service manager how the daemon is, by the protocol of sd_notify(3), and feeds its watchdog (sd_watchdog_enabled(3))
 * for as long as the daemon is well. Does nothing where no service manager listens.
 *
 * It takes the service manager's variables (NOTIFY_SOCKET, WATCHDOG_USEC, WATCHDOG_PID) out of the environment, so that no child
 * speaks in the daemon's name. So it is made while the process has no other thread.
 */
class ServiceManager {
public:
    using HealthCheck = std::function<bool(std::string& why)>;

    /**
     * @param isHealthy asked each half of the watchdog's interval, from the loop. While it says no (or throws) the watchdog is
     *     not fed, and the reason is logged once at level 3.
     */
    ServiceManager(EventLoop& loop, HealthCheck isHealthy);
    ~ServiceManager();
    ServiceManager(const ServiceManager&) = delete;
    ServiceManager& operator=(const ServiceManager&) = delete;

    /** The daemon is up, at its start or again after a reload. */
    void Ready();

    /** The configuration is being read again; `Ready` follows. */
    void Reloading();

    /** The daemon is ending. */
    void Stopping();

    /** One line for the user, in which line feeds become blanks. */
    void Status(std::string_view text);

    /** Whether a service manager listens. */
    bool IsListening() const { return socket_.IsOpen(); }

    /** How long the daemon may keep silent; nothing where no watchdog waits for it. */
    std::optional<std::chrono::microseconds> WatchdogInterval() const { return interval_; }

private:
    void Send(std::string_view message);
    void Feed();

    Descriptor socket_;
    std::optional<std::chrono::microseconds> interval_;
    HealthCheck isHealthy_;
    bool isWell_ = true;
    Timer feeding_;
};

}  // namespace ardv::daemon
