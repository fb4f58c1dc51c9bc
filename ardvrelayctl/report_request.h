// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <json/value.h>

namespace ardv::ctl {

/**
 * Fetches the daemon's report as the library does, and with more patience: a daemon that is busy gets two seconds to answer.
 *
 * @param pid the daemon, which the pid file names
 * @param report the document; null unless the result is 0
 * @return a result of `Daemon::DebugStatus`
 * @throws CommandError where the kernel gives no watch over the answer
 */
int RequestReport(pid_t pid, Json::Value& report);

}  // namespace ardv::ctl
