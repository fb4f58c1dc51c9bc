// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <chrono>
#include <string>

#include "support/handle.h"

namespace ardv::test {

/** Notices when a file of a folder is written to. */
class FolderWatch {
public:
    explicit FolderWatch(const std::string& folder) : notifier_(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
        ::inotify_add_watch(notifier_.Number(), folder.c_str(), IN_MODIFY);
    }

    /** Returns once something was written since the last call, or after `limit`. */
    void AwaitChange(std::chrono::milliseconds limit) const {
        pollfd entry{notifier_.Number(), POLLIN, 0};
        ::poll(&entry, 1, static_cast<int>(limit.count()));
        char events[4096];
        while (::read(notifier_.Number(), events, sizeof events) > 0) {
        }
    }

private:
    Handle notifier_;
};

}  // namespace ardv::test
