// SPDX-License-Identifier: Apache-2.0
// To be loaded into a program: its clock is set by a year on SIGRTMIN+5, and back by one on SIGRTMIN+6.
#include <csignal>

#include "support/set_clock.h"

namespace {

constexpr std::chrono::hours kYear{24 * 365};

[[gnu::constructor]] void Install() {
    std::signal(SIGRTMIN + 5, [](int) { ardv::test::SetClockBy(kYear); });
    std::signal(SIGRTMIN + 6, [](int) { ardv::test::SetClockBy(-kYear); });
}

}  // namespace
