// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <json/value.h>

#include <relay/config/config.h>

namespace ardv::ctl {

/**
 * A configuration as the library would save it. The log level is the one that holds, also where the device demands a
 * higher one.
 */
Json::Value AsSaved(const ARDV::Relay::RelaydConf& conf);

/**
 * As `AsSaved`, in full: with the servers' other members, and with what is never stored, the network as it is now among
 * it.
 */
Json::Value WithRunTime(const ARDV::Relay::RelaydConf& conf);

/** Every setting with the value that holds, defaults included. */
Json::Value Complete(const ARDV::Relay::RelaydConf& conf);

}  // namespace ardv::ctl
