// SPDX-License-Identifier: Apache-2.0
// A scenario: steps that requests meet one after the other (docs/control-protocol.md, "Scenarios").
#pragma once

#include <json/json.h>

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "http/fault.h"

namespace ARDV::Sandbox {

/// The steps and how far they have been played. Safe for several threads.
class Scenario {
public:
    /// What one request meets.
    struct Act {
        std::optional<Fault> fault;       ///< instead of, or changing, the ordinary answer
        std::optional<Json::Value> push;  ///< a command to queue for the device before it is answered
    };

    /// Reads the steps from `file`. Failure: false, and `error` says why.
    bool Load(const std::string& file, std::string& error);

    /// Replaces the steps by `json` and begins with the first. Failure: false, `error` names the offending step, and
    /// nothing has changed.
    bool Set(const Json::Value& json, std::string& error);

    /// What a request of `command` meets; it counts for the step in turn.
    Act Next(std::string_view command);

    /// {"step": number of the step in turn, from 0, "steps": how many there are, "seen": requests that it has seen}
    Json::Value Progress() const;

private:
    struct Step {
        std::string command;  ///< empty: any
        uint64_t after = 0;   ///< requests that are answered as ever
        uint64_t times = 1;   ///< requests after these that meet the act
        Act act;
    };

    static bool ReadStep(const Json::Value& json, Step& step, std::string& error);
    static bool ReadWhen(const Json::Value& json, Step& step, std::string& error);

    mutable std::mutex mutex_;
    std::vector<Step> steps_;
    size_t turn_ = 0;
    uint64_t seen_ = 0;
};

}  // namespace ARDV::Sandbox
