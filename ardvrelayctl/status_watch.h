// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "descriptor.h"

namespace ardv::ctl {

/** Sleeps until one of some files in the folder of the status files changes, or a process ends. */
class StatusWatch {
public:
    using Deadline = std::chrono::steady_clock::time_point;

    /** What ended a sleep. */
    enum class News { kChange, kTimeout, kReaderGone };

    /** @throws CommandError, `kExitUnavailable`, where the kernel gives no watch. From now on no change is missed. */
    explicit StatusWatch(std::vector<std::string> names);

    /**
     * Sleeps until a file has changed since the watch began or since the last sleep, or the process ends.
     *
     * @param pid the process to watch over; below 1 for none
     * @param deadline when to give up; without one, never, and then the sleep also ends when nobody reads standard output
     *        any more
     */
    News Sleep(pid_t pid, std::optional<Deadline> deadline);

private:
    bool TakeEvents();

    std::vector<std::string> names_;
    Descriptor inotify_;
};

}  // namespace ardv::ctl
