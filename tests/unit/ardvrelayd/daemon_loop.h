// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>

#include "event_loop.h"

namespace ardv::test {

/** Runs the daemon's loop until a callback stops it; false if that took longer than the limit. */
inline bool RunUntilStopped(daemon::EventLoop& loop, std::chrono::milliseconds limit = std::chrono::seconds(20)) {
    bool isLate = false;
    daemon::Timer deadline(loop, "deadline of the test", [&] {
        isLate = true;
        loop.Stop();
    });
    deadline.Start(limit);
    loop.Run();
    return !isLate;
}

/** Runs the daemon's loop for a while, in which callbacks do what they do. */
inline void RunFor(daemon::EventLoop& loop, std::chrono::milliseconds time) {
    RunUntilStopped(loop, time);
}

}  // namespace ardv::test
