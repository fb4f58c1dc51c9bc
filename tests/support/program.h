// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace ardv::test {

/** What a finished program left. */
struct ProgramResult {
    int exitCode;     ///< or 128 + the signal that ended it
    std::string out;  ///< standard output
    std::string err;  ///< standard error
};

/** Runs a program, without a shell, to its end. Its standard input is `input`. */
ProgramResult RunProgram(const std::vector<std::string>& command, const std::string& input = "");

}  // namespace ardv::test
