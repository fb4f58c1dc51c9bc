// SPDX-License-Identifier: Apache-2.0
// What the session tells of itself.
#include "control_session.h"

#include "json_member.h"

namespace ardv::daemon {

using namespace ARDV::Relay;
using std::chrono::duration_cast;
using std::chrono::seconds;

const char* ControlSession::NameOf(Phase phase) {
    struct Row {
        Phase phase;
        const char* name;
    };
    static constexpr Row kNames[] = {
        {Phase::kOff, "off"},           {Phase::kRetrying, "retrying"}, {Phase::kRegistering, "registering"},
        {Phase::kStanding, "standing"}, {Phase::kDoubtful, "doubtful"}, {Phase::kRefused, "refused"},
    };
    for (const auto& row : kNames) {
        if (row.phase == phase) {
            return row.name;
        }
    }
    return "unknown";
}

RELAYD_STATE ControlSession::State() const {
    switch (phase_) {
        case Phase::kOff:
            return RELAYD_STATE_LOGOUT;
        case Phase::kRefused:
            return RELAYD_STATE_NONE;
        case Phase::kStanding:
            return isReachable_ ? RELAYD_STATE_DIRECT_CONNECT : RELAYD_STATE_LOGIN;
        case Phase::kRetrying:
        case Phase::kRegistering:
        case Phase::kDoubtful:
            break;
    }
    return RELAYD_STATE_STARTING;
}

bool ControlSession::IsHealthy(std::string& why) const {
    if (phase_ == Phase::kOff || phase_ == Phase::kRefused || exchange_) {
        return true;
    }
    if (!next_.IsToBeExpected()) {
        why = std::string("the control session is ") + NameOf(phase_) + " and nothing leads on";
        return false;
    }
    if (phase_ == Phase::kStanding && !wait_ && !waitAgain_.IsRunning()) {
        why = "the control session does not wait for commands";
        return false;
    }
    return true;
}

Json::Value ControlSession::Describe() const {
    Json::Value value;
    value["phase"] = NameOf(phase_);
    value["state"] = GetStateStr(State());
    value["error"] = GetErrorStr(error_);
    value["failures"] = backOff_.Failures();
    value["wait_failures"] = waitBackOff_.Failures();
    value["waiting"] = wait_ != nullptr;
    value["keep_alive_seconds"] = Number(keepAlive_.count());
    value["reachable"] = isReachable_;
    value["commands"] = Count(commands_.size());
    value["results_to_tell"] = Count(results_.size());
    if (phase_ == Phase::kStanding) {
        value["standing_seconds"] = Number(duration_cast<seconds>(Clock::now() - standingSince_).count());
    }
    return value;
}

}  // namespace ardv::daemon
