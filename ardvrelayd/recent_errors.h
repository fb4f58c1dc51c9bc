// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ctime>
#include <deque>
#include <string>

#include <json/value.h>

namespace ardv::daemon {

/** The last failures, for the report: the log may be off, and nobody watched. */
class RecentErrors {
public:
    /**
     * Notes one; of more than 16 the oldest is forgotten. One that equals the last counts as its repetition.
     *
     * @param what what failed: "register", for example
     * @param result the word for how, fit to be shown: no text from a server
     */
    void Add(const std::string& what, const std::string& result);

    /** An array of objects with "time" (of the last, Unix seconds), "what", "result" and "times"; the newest last. */
    Json::Value Describe() const;

private:
    struct Entry {
        std::time_t time;
        std::string what;
        std::string result;
        Json::UInt64 times;
    };

    std::deque<Entry> entries_;
};

}  // namespace ardv::daemon
