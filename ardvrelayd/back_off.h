// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>

namespace ardv::daemon {

/** How long attempts are apart. */
struct BackOffPlan {
    std::chrono::milliseconds base;
    std::chrono::milliseconds cap;
};

/** The plans of the daemon, and the time within which it does what it does soon. */
struct RetryPlans {
    BackOffPlan usual = {std::chrono::seconds(5), std::chrono::minutes(15)};
    BackOffPlan slow = {std::chrono::minutes(5), std::chrono::hours(6)};
    std::chrono::milliseconds soon = std::chrono::seconds(5);
};

/** A random time from 0 up to and including `limit`. */
std::chrono::milliseconds RandomTime(std::chrono::milliseconds limit);

/**
 * Counts attempts in a row that failed, and says how long to wait before the next: exponential with full jitter, which is a
 * random time between 0 and min(cap, base * 2^(n-1)) for the n-th. With a floor of a fifth of the base, so that no attempt
 * follows another at once.
 */
class BackOff {
public:
    /** Counts one failure and draws the time to wait. */
    std::chrono::milliseconds Next(const BackOffPlan& plan);

    /** Whether what failed may be done again at once, or soon, before any back-off: true the first time since `Reset`, then false. */
    bool MayGoAtOnce();

    /** Begins a new row, after a success that lasted. */
    void Reset();

    std::uint32_t Failures() const { return failures_; }

private:
    std::uint32_t failures_ = 0;
    bool wentAtOnce_ = false;
};

}  // namespace ardv::daemon
