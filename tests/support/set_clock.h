// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * A time of day that is set and a machine that sleeps, neither of which a test may do to the machine that runs it. A program that links
 * this has clock_gettime, timerfd_create and read of its own, which pass everything on while nothing has been set.
 */
#pragma once

#include <chrono>

namespace ardv::test {

/** Moves this process's time of day, and tells its timers of that clock, as the kernel does when the clock is set. */
void SetClockBy(std::chrono::milliseconds jump);

/** Lets the machine sleep: the time of day and that since its start move on, the monotonic clock doesn't. Timers are told. */
void Suspend(std::chrono::milliseconds time);

/** The last descriptor that timerfd_create has made for the time of day; -1 before. */
int RealTimeTimer();

}  // namespace ardv::test
