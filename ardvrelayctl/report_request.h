// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <json/value.h>

namespace ardv::ctl {

/**
 * Fetches the daemon's report as the library does, and with more patience: a daemon that is busy gets two seconds to answer.
 *
 * @param report the document; null unless the result is 0
 * @return a result of `Daemon::DebugStatus`
 * @throws CommandError where the kernel gives no watch over the answer
 */
int RequestReport(Json::Value& report);

}  // namespace ardv::ctl
