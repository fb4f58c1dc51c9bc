// SPDX-License-Identifier: Apache-2.0
#include "support/shifted_clock.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <ctime>

namespace {

std::atomic<std::time_t> shift{0};

}  // namespace

namespace ardv::test {

void LetPass(std::chrono::seconds time) {
    shift += time.count();
}

}  // namespace ardv::test

// Visible to the shared libraries, which read the clock too.
// NOLINTNEXTLINE(readability-identifier-naming): the system's own names
extern "C" __attribute__((visibility("default"))) int clock_gettime(clockid_t clock_id, timespec* tp) noexcept {
    const int result = static_cast<int>(syscall(SYS_clock_gettime, clock_id, tp));
    if (result == 0 && (clock_id == CLOCK_MONOTONIC || clock_id == CLOCK_MONOTONIC_COARSE)) {
        tp->tv_sec += shift;
    }
    return result;
}
