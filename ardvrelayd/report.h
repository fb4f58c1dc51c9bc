// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The diagnostic report, which the daemon writes where a requester of `Daemon::DebugStatus` waits for it. It may be sent to
 * strangers: what is in it is named one by one, and no secret is named.
 */
#pragma once

#include <json/value.h>

#include <relay/config/config.h>

#include "event_loop.h"
#include "transfer_engine.h"

namespace ardv::daemon {

/** The settings that a report may show. */
Json::Value DescribeConfiguration(const ARDV::Relay::RelaydConf& configuration);

/** The transfers under way: purpose, server without path and query, and for how long. */
Json::Value DescribeTransfers(const TransferEngine& engine);

/** The timers that run, and in how many milliseconds they are due. */
Json::Value DescribeTimers(const EventLoop& loop);

/** This program and the libraries that it runs with. */
Json::Value DescribeVersions();

/**
 * Writes a report into the requester's file "/tmp/.ardvrelayd.PID.debug", which is not made here: without a requester
 * there is nobody to delete it. Follows no link, and writes into no file of somebody else.
 *
 * @return false, with a message of level 5, if there is no such file or it cannot be written
 */
bool WriteReport(const Json::Value& report);

}  // namespace ardv::daemon
