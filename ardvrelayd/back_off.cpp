// SPDX-License-Identifier: Apache-2.0
#include "back_off.h"

#include <algorithm>

#include <relay/utils/utils.h>

namespace ardv::daemon {

using std::chrono::milliseconds;

namespace {

constexpr std::uint32_t kMaxDoublings = 20;  // beyond every cap, far from the end of the type
constexpr int kFloorDivisor = 5;

}  // namespace

milliseconds RandomTime(milliseconds limit) {
    const auto span = static_cast<std::uint64_t>(std::max<milliseconds::rep>(limit.count(), 0)) + 1;
    return milliseconds(static_cast<milliseconds::rep>(ARDV::Relay::Utils::Random() % span));
}

milliseconds BackOff::Next(const BackOffPlan& plan) {
    const auto doublings = std::min(failures_, kMaxDoublings);
    ++failures_;
    const auto limit = std::min(plan.cap, plan.base * (1U << doublings));
    return std::max(plan.base / kFloorDivisor, RandomTime(limit));
}

bool BackOff::MayGoAtOnce() {
    const bool may = !wentAtOnce_;
    wentAtOnce_ = true;
    return may;
}

void BackOff::Reset() {
    *this = BackOff();
}

}  // namespace ardv::daemon
