// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

namespace ardv::daemon {

/** Takes note of a child that has ended. True once for each child, from its end on; no other child is looked at. */
bool ReapIfEnded(pid_t child);

/**
 * Ends a child and waits for it: SIGTERM, and SIGKILL when it hasn't ended within two seconds. OpenVPN takes some 30 ms; seconds while it resolves
 * a name.
 */
void EndChildAndWait(pid_t child);

/** Kills a child and waits for its end. */
void KillChildAndWait(pid_t child);

/**
 * Ends an OpenVPN that a daemon which was killed has left behind, as `EndChildAndWait` does.
 *
 * @param process may be anybody's by now. It is signalled only if its command line says that it is a tunnel's.
 */
void EndOrphan(pid_t process);

}  // namespace ardv::daemon
