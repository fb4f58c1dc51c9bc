// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace ardv::ctl {

/** How long a program may take, and how much it may print. */
struct ProgramLimits {
    std::chrono::milliseconds time = std::chrono::seconds(10);
    std::size_t bytes = 1U << 20U;
};

/**
 * Runs a program to its end and gives what it printed. It runs without a shell, with nothing on its standard input, with a path
 * and the language "C" for its environment, and with no other descriptor; what it says on standard error is dropped.
 *
 * @param command absolute path of the program, and its arguments
 * @return no value if it cannot be started, ends with another status than 0, or goes beyond a limit. It is killed then.
 */
std::optional<std::string> OutputOf(const std::vector<std::string>& command, const ProgramLimits& limits = {});

}  // namespace ardv::ctl
