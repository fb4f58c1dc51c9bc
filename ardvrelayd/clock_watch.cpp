// SPDX-License-Identifier: Apache-2.0
#include "clock_watch.h"

#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string>
#include <utility>

#include "log.h"

DAEMON_LOG_SOURCE("clock_watch.cpp");

namespace ardv::daemon {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;

namespace {

nanoseconds ReadClock(clockid_t clock) {
    timespec time = {};
    clock_gettime(clock, &time);
    return seconds(time.tv_sec) + nanoseconds(time.tv_nsec);
}

milliseconds Rounded(nanoseconds time) {
    return std::chrono::round<milliseconds>(time);
}

}  // namespace

ClockWatch::Reading ClockWatch::Reading::Now() {
    return {ReadClock(CLOCK_REALTIME), ReadClock(CLOCK_BOOTTIME), ReadClock(CLOCK_MONOTONIC)};
}

ClockWatch::ClockWatch(EventLoop& loop, std::function<void(const ClockChange&)> changed)
    : changed_(std::move(changed)),
      timer_(timerfd_create(CLOCK_REALTIME, TFD_NONBLOCK | TFD_CLOEXEC)),
      last_(Reading::Now()) {
    if (!timer_.IsOpen() || !Arm()) {
        throw std::runtime_error(std::string("the clock cannot be watched: ") + std::strerror(errno));
    }
    watch_.emplace(loop, timer_.Get(), Watch::kReadable, [this](short) { Read(); });
}

ClockWatch::~ClockWatch() = default;

// The timer is due at the end of all time, whatever its type can tell: never, before 2038 and after. ECANCELED says that the
// clock was set just now; the timer runs all the same.
bool ClockWatch::Arm() {
    itimerspec end = {};
    end.it_value.tv_sec = std::numeric_limits<time_t>::max();
    return timerfd_settime(timer_.Get(), TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET, &end, nullptr) == 0 ||
           errno == ECANCELED;
}

void ClockWatch::Read() {
    std::uint64_t expirations = 0;
    const bool wasSet = read(timer_.Get(), &expirations, sizeof expirations) < 0 && errno == ECANCELED;
    if (!wasSet && errno == EAGAIN) {
        return;
    }
    if (!Arm()) {
        DAEMON_LOG(LOG_ERR, "the clock is not watched any more: %s", std::strerror(errno));
        watch_.reset();
    }
    const auto before = std::exchange(last_, Reading::Now());
    const auto slept = (last_.bootTime - last_.awake) - (before.bootTime - before.awake);
    const auto jump = (last_.realTime - last_.bootTime) - (before.realTime - before.bootTime);
    const auto changed = changed_;  // this may be gone before the call is over
    changed({Rounded(jump), Rounded(slept)});
}

}  // namespace ardv::daemon
