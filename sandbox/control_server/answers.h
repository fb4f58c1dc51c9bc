// SPDX-License-Identifier: Apache-2.0
// What the service has to say to devices beside the names of their sessions.
#pragma once

#include <json/json.h>

#include <mutex>
#include <string>
#include <string_view>

namespace ARDV::Sandbox {

/// Members of the answers: "keep_alive", "control_host", "smartdns" and "reachable". Safe for several threads.
class Answers {
public:
    /// Tells `keepAlive` seconds, and nothing else.
    explicit Answers(int keepAlive);

    /// Replaces what is told by the members of `json`; without "keep_alive", that stays. False: a member isn't known or
    /// not as the protocol has it, and `error` says which.
    bool Set(const Json::Value& json, std::string& error);

    /// What is told.
    Json::Value Snapshot() const;

    /// Puts what the answer to `command` tells into `answer`.
    void Tell(std::string_view command, Json::Value& answer) const;

private:
    mutable std::mutex mutex_;
    Json::Value members_{Json::objectValue};
};

}  // namespace ARDV::Sandbox
