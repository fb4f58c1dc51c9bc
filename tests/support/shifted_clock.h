// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>

namespace ardv::test {

/** Lets time pass for everything in this process that reads the monotonic clock, without waiting. */
void LetPass(std::chrono::seconds time);

}  // namespace ardv::test
