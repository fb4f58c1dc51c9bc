// SPDX-License-Identifier: Apache-2.0
#include "status_watch.h"

#include <poll.h>
#include <sys/inotify.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>

#include "command_error.h"
#include "daemon_process.h"
#include "status_snapshot.h"

namespace ardv::ctl {

namespace {

constexpr std::uint32_t kEvents = IN_MOVED_TO | IN_MOVED_FROM | IN_CLOSE_WRITE | IN_DELETE;
constexpr std::size_t kBufferSize = 64 * (sizeof(inotify_event) + NAME_MAX + 1);

// Rounded up, so that the deadline has passed when the sleep ends.
int MillisecondsUntil(std::optional<StatusWatch::Deadline> deadline) {
    if (!deadline) {
        return -1;
    }
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(*deadline - std::chrono::steady_clock::now()).count();
    return static_cast<int>(std::clamp<decltype(left)>(left, 0, INT_MAX));
}

}  // namespace

StatusWatch::StatusWatch(std::vector<std::string> names)
    : names_(std::move(names)), inotify_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
    if (!inotify_.IsOpen() || inotify_add_watch(inotify_.Get(), kStatusFolder, kEvents | IN_ONLYDIR) < 0) {
        throw CommandError(kExitUnavailable,
                           std::string("cannot watch ") + kStatusFolder + ": " + std::strerror(errno));
    }
}

StatusWatch::News StatusWatch::Sleep(pid_t pid, std::optional<Deadline> deadline) {
    const Descriptor process = WatchProcess(pid);
    if (pid > 0 && !process.IsOpen() && errno == ESRCH) {
        return News::kChange;  // gone already
    }
    for (;;) {
        std::array<pollfd, 3> polled = {pollfd{inotify_.Get(), POLLIN, 0}, pollfd{process.Get(), POLLIN, 0},
                                        pollfd{deadline ? -1 : STDOUT_FILENO, 0, 0}};
        const int count = poll(polled.data(), polled.size(), MillisecondsUntil(deadline));
        if (count == 0) {
            return News::kTimeout;
        }
        if (count < 0) {
            continue;  // a signal
        }
        if (polled[0].revents != 0 ? TakeEvents() || polled[1].revents != 0 : polled[1].revents != 0) {
            return News::kChange;
        }
        if (polled[2].revents != 0) {
            return News::kReaderGone;
        }
    }
}

/** Whether one of the events, all of which are taken, is of a file that is watched, or may be: some were lost. */
bool StatusWatch::TakeEvents() {
    alignas(inotify_event) std::array<char, kBufferSize> buffer = {};
    const ssize_t size = ReadSome(inotify_.Get(), buffer.data(), buffer.size());
    bool isNews = false;
    for (ssize_t at = 0; at < size;) {
        inotify_event event = {};
        std::memcpy(&event, buffer.data() + at, sizeof event);
        const std::string name = event.len == 0 ? "" : buffer.data() + at + sizeof event;
        isNews = isNews || (event.mask & IN_Q_OVERFLOW) != 0 ||
                 std::find(names_.begin(), names_.end(), name) != names_.end();
        at += static_cast<ssize_t>(sizeof event + event.len);
    }
    return isNews;
}

}  // namespace ardv::ctl
