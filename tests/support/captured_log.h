// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace ardv::test {

/** Reads the log where a user reads it: what is written to descriptor 2 goes to a file while this lives. */
class CapturedLog {
public:
    /** @param level threshold of the log meanwhile; it is put back afterwards */
    explicit CapturedLog(int level = 9);
    ~CapturedLog();
    CapturedLog(const CapturedLog&) = delete;
    CapturedLog& operator=(const CapturedLog&) = delete;

    /** All that was written so far, to the byte. */
    std::string Text() const;

    /** The lines without their time stamps and line numbers, e.g. "config.cpp open failed [/x]". */
    std::vector<std::string> Messages() const;

    /** The lines without their time stamps, e.g. "utils.cpp:82 open failed [/x]". */
    std::vector<std::string> Lines() const;

private:
    int file_;
    int original_;
    int level_;
};

}  // namespace ardv::test
