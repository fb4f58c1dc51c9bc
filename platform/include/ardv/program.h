// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ardv/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Helper programs: small programs of the system, such as the packet filter's, that are run and waited for.

enum {
    /// How `ALIBCExecl` runs a helper program: to its end, without a shell, with an empty standard input, its output
    /// dropped, the default signals, a minimal environment (PATH and LC_ALL=C), and none of the caller's descriptors.
    ARDV_EXEC_HELPER = 187,

    /// How long a helper program may take, in seconds; then it's killed. The caller has one thread, and waits.
    ARDV_EXEC_HELPER_SECONDS = 10
};

/// Runs a program and waits for its end. Its name, argv[0], is its path.
///
/// A process that ignores SIGCHLD, or reaps all of its children whoever started them, can't be told how the program
/// ended: that's a failure.
///
/// @param path the program; an absolute path
/// @param flags ARDV_EXEC_HELPER
/// @param argument the first argument, argv[1]; the others follow. The last parameter is a null pointer. What follows
///        the first null pointer isn't looked at, so that a null pointer here stands for no argument at all
/// @return 0 when the program ended with exit status 0
/// @return -1 on failure; the error triple is set: ARDV_ERR_PROGRAM_FAILED (another exit status, ended by a signal, or
///         killed at the end of its time), ARDV_ERR_NOT_FOUND (there is no such program), ARDV_ERR_ACCESS_DENIED (it may
///         not be executed), ARDV_ERR_INVALID_ARGUMENT (null pointer, a path that isn't absolute, other flags),
///         ARDV_ERR_NO_MEMORY, or ARDV_ERR_IO (it can't be executed, or can't be waited for)
ARDVPLATFORM_API int ALIBCExecl(const char* path, int flags, const char* argument, ...) __attribute__((sentinel));

#ifdef __cplusplus
}
#endif
