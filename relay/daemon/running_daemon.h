// SPDX-License-Identifier: Apache-2.0
/** @file What the process operations and the status queries both need to know of the daemon that runs. */
#pragma once

#include <sys/types.h>

namespace ARDV::Relay::RunningDaemon {

inline constexpr int kNotRunning = 1;  ///< result: no daemon runs
inline constexpr int kFailed = 2;      ///< result: it could not be signalled, or its status could not be had

/**
 * Process id of the daemon on the pid file, as libdaemon finds it; it removes a file that names no live process. Below 1 if none runs, and
 * also for what names a whole group of processes: an empty file is read as 0.
 */
pid_t FindPid();

/** Signals a process, never a group of them: false for an id below 1. */
bool SendSignal(pid_t pid, int signal);

/** The daemon's name; empty if none was set. */
const char* Name();

}  // namespace ARDV::Relay::RunningDaemon
