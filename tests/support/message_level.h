// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <gmock/gmock.h>

#include "captured_log.h"

namespace ardv::test {

/** Runs `action` twice: its message must be in the log at `level`, and must not be there one level below. */
template <typename Action>
void ExpectMessageOfLevel(int level, const std::string& message, Action action) {
    {
        const CapturedLog log(level);
        action();
        EXPECT_THAT(log.Messages(), testing::Contains(message));
    }
    const CapturedLog log(level - 1);
    action();
    EXPECT_THAT(log.Messages(), testing::Not(testing::Contains(message)));
}

}  // namespace ardv::test
