// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "captured_log.h"

namespace ardv::test {

/** What an action writes to the log at a threshold: "source text", without times and line numbers. */
template <typename Action>
std::vector<std::string> MessagesAt(int threshold, Action&& action) {
    const CapturedLog log(threshold);
    action();
    return log.Messages();
}

/** Expects an action, which can be done repeatedly, to log one message that needs a threshold of at least `level`. */
template <typename Action>
void ExpectMessage(int level, const std::string& message, Action&& action) {
    EXPECT_THAT(MessagesAt(level, action), testing::ElementsAre(message));
    EXPECT_THAT(MessagesAt(level - 1, action), testing::IsEmpty()) << "below the level of " << message;
}

}  // namespace ardv::test
