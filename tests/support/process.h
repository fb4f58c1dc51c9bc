// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace ardv::test {

/**
 * Starts a program, without a shell, that ends with this process at the latest. What it writes to standard output and
 * standard error is added to `logFile`.
 * @throws std::runtime_error when it can't be started or the file can't be written
 */
pid_t Spawn(std::vector<std::string> words, const std::string& logFile);

/** A descriptor of a process, for the caller to close: readable once it has ended. Negative on failure. */
int OpenProcess(pid_t process);

/** Whether a process has ended, after `milliseconds` at most. A child that has ended stays until it is reaped. */
bool HasEnded(pid_t process, int milliseconds);

/** Waits for a child that has ended. Gives its exit code, or minus the signal that ended it. */
int Reap(pid_t child);

}  // namespace ardv::test
