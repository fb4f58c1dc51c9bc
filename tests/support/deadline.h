// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>

namespace ardv::test {

/** The time until `end` for poll(): 0 when it has passed. */
inline int MillisecondsUntil(std::chrono::steady_clock::time_point end) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now()).count();
    return left > 0 ? static_cast<int>(left) : 0;
}

}  // namespace ardv::test
