// SPDX-License-Identifier: Apache-2.0
#include "support/set_clock.h"

#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

#include "support/real_function.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;

nanoseconds realTimeShift{0};
nanoseconds bootTimeShift{0};
int timer = -1;
bool isCancelled = false;

/** Has the timer's descriptor become readable, as it does where the clock was set. */
void Wake() {
    itimerspec past = {};
    past.it_value.tv_nsec = 1;
    timerfd_settime(timer, TFD_TIMER_ABSTIME, &past, nullptr);
    isCancelled = true;
}

}  // namespace

namespace ardv::test {

void SetClockBy(milliseconds jump) {
    realTimeShift += jump;
    Wake();
}

void Suspend(milliseconds time) {
    realTimeShift += time;
    bootTimeShift += time;
    Wake();
}

int RealTimeTimer() {
    return timer;
}

}  // namespace ardv::test

// NOLINTBEGIN(readability-identifier-naming): the system's own names
extern "C" {

__attribute__((visibility("default"))) int clock_gettime(clockid_t clock_id, timespec* tp) noexcept {
    const int result = static_cast<int>(syscall(SYS_clock_gettime, clock_id, tp));
    const auto shift = clock_id == CLOCK_REALTIME   ? realTimeShift
                       : clock_id == CLOCK_BOOTTIME ? bootTimeShift
                                                    : nanoseconds::zero();
    if (result == 0 && shift != nanoseconds::zero()) {
        const auto shifted = seconds(tp->tv_sec) + nanoseconds(tp->tv_nsec) + shift;
        const auto whole = std::chrono::floor<seconds>(shifted);
        *tp = {whole.count(), (shifted - whole).count()};
    }
    return result;
}

__attribute__((visibility("default"))) int timerfd_create(int clock_id, int flags) noexcept {
    const int fd = static_cast<int>(syscall(SYS_timerfd_create, clock_id, flags));
    timer = clock_id == CLOCK_REALTIME ? fd : timer;
    return fd;
}

__attribute__((visibility("default"))) ssize_t read(int fd, void* buffer, size_t size) {
    if (fd >= 0 && fd == timer && isCancelled) {
        isCancelled = false;
        errno = ECANCELED;
        return -1;
    }
    return syscall(SYS_read, fd, buffer, size);
}

}  // extern "C"
// NOLINTEND(readability-identifier-naming)
