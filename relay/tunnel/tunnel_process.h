// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace ARDV::Relay {

/** What became of a child that was to be started. */
struct ChildStart {
    pid_t pid = -1;     ///< -1: there is none
    int forkError = 0;  ///< errno, if there is none
    int execError = 0;  ///< errno, if there is one that cannot execute its program and ends
};

/**
 * Starts a program as a child that ends, by SIGKILL, with the calling thread. It has this process's environment and its
 * descriptors 0 to 2; its signals have their default effect, and none is blocked. Returns once the program runs, or
 * cannot.
 *
 * @param program path of the program
 * @param command its arguments, its own name first
 */
ChildStart StartChild(const char* program, const std::vector<std::string>& command);

/** Executes a program in place of this one. Returns only on failure, with errno set. */
void Execute(const char* program, const std::vector<std::string>& command);

}  // namespace ARDV::Relay
