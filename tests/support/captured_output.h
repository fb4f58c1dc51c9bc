// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace ardv::test {

/** Reads standard output where a user reads it: what is written to descriptor 1 goes to a file while this lives. */
class CapturedOutput {
public:
    CapturedOutput();
    ~CapturedOutput();
    CapturedOutput(const CapturedOutput&) = delete;
    CapturedOutput& operator=(const CapturedOutput&) = delete;

    /** All that has come out so far. */
    std::string Text() const;

private:
    int file_;
    int original_;
};

}  // namespace ardv::test
