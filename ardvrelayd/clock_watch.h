// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

#include "descriptor.h"
#include "event_loop.h"

namespace ardv::daemon {

/** What has happened to the time of day. */
struct ClockChange {
    std::chrono::milliseconds jump;   ///< by how much it was set: forward above zero, backward below
    std::chrono::milliseconds slept;  ///< how long the machine was suspended, while timers stood still
};

/**
 * Tells when the time of day was set, and when the machine has woken up from suspension. A clock that is merely slowed down
 * or sped up, as time services do day by day, is not reported. Wakes the loop for nothing else.
 */
class ClockWatch {
public:
    /**
     * @param changed called from the loop. It may destroy this object.
     * @throws std::runtime_error where the kernel grants no timer descriptor
     */
    ClockWatch(EventLoop& loop, std::function<void(const ClockChange&)> changed);
    ~ClockWatch();
    ClockWatch(const ClockWatch&) = delete;
    ClockWatch& operator=(const ClockWatch&) = delete;

private:
    /** The clocks' readings at one moment. */
    struct Reading {
        std::chrono::nanoseconds realTime;  ///< the time of day
        std::chrono::nanoseconds bootTime;  ///< since the machine was started
        std::chrono::nanoseconds awake;     ///< the same without suspension

        static Reading Now();
    };

    bool Arm();
    void Read();

    std::function<void(const ClockChange&)> changed_;
    Descriptor timer_;
    Reading last_;
    std::optional<Watch> watch_;
};

}  // namespace ardv::daemon
