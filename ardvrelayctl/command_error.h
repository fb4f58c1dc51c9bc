// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <stdexcept>
#include <string>

#include "exit_code.h"

namespace ardv::ctl {

/** A failure in words for the user, with the exit code that it ends in. */
class CommandError : public std::runtime_error {
public:
    CommandError(ExitCode exitCode, const std::string& text) : std::runtime_error(text), exitCode_(exitCode) {}

    ExitCode Code() const { return exitCode_; }

private:
    ExitCode exitCode_;
};

}  // namespace ardv::ctl
