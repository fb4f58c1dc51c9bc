// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

#include <relay/common/vocabulary.h>

namespace ardv::ctl {

/** What a state of the daemon means, as a sentence without its end. */
const char* MeaningOf(ARDV::Relay::RELAYD_STATE state);

/** Whether a session with the service stands in this state. */
bool IsLoggedIn(ARDV::Relay::RELAYD_STATE state);

/** What an error of the daemon means, as a sentence without its end; empty for a success. */
const char* MeaningOf(ARDV::Relay::RELAYD_RET error);

/** What the user can do about an error; empty where the daemon needs nobody. */
const char* AdviceFor(ARDV::Relay::RELAYD_RET error);

/** Whether the daemon waits for its user after this error, rather than trying again. */
bool NeedsUser(ARDV::Relay::RELAYD_RET error);

/** A point in time, in local time and by how long it is ago: "2026-11-20 17:24:41 +0000 (3 min ago)". */
std::string TimeWords(std::int64_t seconds);

/** Likewise one that lies ahead: "2026-11-20 17:24:41 +0000 (in 30 s)". */
std::string DueWords(std::int64_t seconds);

}  // namespace ardv::ctl
