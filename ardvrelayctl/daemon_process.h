// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "descriptor.h"

namespace ardv::ctl {

/** What the kernel says of a process. */
struct ProcessFacts {
    char state = '?';   ///< as in /proc/PID/stat: "R", "S", "D", "T", "Z" ...; "?" where it cannot be told
    std::string name;   ///< the program's name as the kernel keeps it, 15 bytes of it
    std::string waits;  ///< the kernel's function that it sleeps in; empty where this user may not know
};

/** The facts of a process; no value if there is none of this id. */
std::optional<ProcessFacts> FactsOf(pid_t pid);

/** A state in words: "sleeping" for "S". */
const char* StateWords(char state);

/** Whether there is a process of this id that has not ended. */
bool IsAlive(pid_t pid);

/** Whether a process of this id is the daemon: it lives, and has the daemon's name. */
bool IsDaemon(pid_t pid);

/** What a process that is not the daemon is instead: "gone", or "another program" and its name. */
std::string WordsForStranger(pid_t pid);

/** A descriptor that becomes readable when the process ends; not open if there is no such process. */
Descriptor WatchProcess(pid_t pid);

/** The process that the daemon's pid file names; no value for a missing, unreadable or senseless one. */
std::optional<pid_t> ReadPidFile();

/**
 * The running daemon, by its pid file.
 *
 * @throws CommandError: `kExitNotRunning`, with what stands in the way in words, if it doesn't run; `kExitNoPermission` if
 *         this user may not send it a signal
 */
pid_t RequireDaemon();

/** Throws CommandError, `kExitNoPermission`, unless this user may send the process a signal. One that is gone passes. */
void RequireRights(pid_t pid);

}  // namespace ardv::ctl
