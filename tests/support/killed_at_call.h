// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>

namespace ardv::test {

/** How a child process ended. */
enum class Ending {
    kKilled,        ///< at the stop that was asked for
    kFinished,      ///< before it came to that stop
    kNotPermitted,  ///< this machine lets nobody trace a process
};

/**
 * Runs an action in a child process and kills the child, by SIGKILL, at a system call: as a crash of the process would at any
 * moment between two instructions. Each call has two stops, one before the kernel does it and one after that; a child that
 * is killed at the first one leaves the call undone.
 *
 * @param stop which stop of the action ends it, beginning with 1
 * @param action what to run; what it does to memory is not seen here
 * @throws std::runtime_error if the action throws, or ends the child otherwise
 */
Ending RunKilledAt(int stop, const std::function<void()>& action);

}  // namespace ardv::test
