// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "platform/linux/error.h"
#include "platform/linux/file.h"

namespace ARDV::Platform {

/// What a program may take: of its time, and of what it prints. What it prints beyond is read and dropped.
struct ProgramLimits {
    std::chrono::milliseconds time;
    std::size_t output;
    std::size_t errors;
};

/// What a program left when it ended.
struct ProgramOutcome {
    bool isInTime = false;     ///< false: it was killed at the end of its time
    int exitCode = -1;         ///< -1 when a signal ended it
    std::string output;        ///< standard output, up to its limit
    std::string errors;        ///< standard error, up to its limit
    bool isOutputCut = false;  ///< there was more output than that
};

/// Runs a program to its end: no shell, an empty standard input, the default signals, a minimal environment, and none of
/// this process's descriptors.
///
/// @param command path of the program, and its arguments
/// @return an error if it couldn't be started (ARDV_ERR_NOT_FOUND: there's none), or if its end couldn't be learnt
///         because this process doesn't keep children that ended
Result<ProgramOutcome> RunProgram(const std::vector<std::string>& command, const ProgramLimits& limits);

/// A descriptor that stands for a process, whatever becomes of its number; it's readable when the process has ended.
FileDescriptor OpenProcess(pid_t process);

}  // namespace ARDV::Platform
