// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <chrono>

namespace ARDV::Platform {

/// The end of the time that an operation has, with all its steps. Set clocks don't move it.
class Deadline {
public:
    using Clock = std::chrono::steady_clock;

    explicit Deadline(std::chrono::milliseconds limit) : end_(Clock::now() + limit) {}

    /// The time that is left, rounded up; 0 when it is over.
    std::chrono::milliseconds Left() const {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end_ - Clock::now());
        return std::max(left, std::chrono::milliseconds::zero());
    }

    bool IsOver() const { return Left() == std::chrono::milliseconds::zero(); }

    /// The end of one step: after `limit`, but not after this end.
    Deadline Within(std::chrono::milliseconds limit) const {
        Deadline step(limit);
        step.end_ = std::min(step.end_, end_);
        return step;
    }

private:
    Clock::time_point end_;
};

}  // namespace ARDV::Platform
