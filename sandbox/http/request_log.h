// SPDX-License-Identifier: Apache-2.0
// The requests seen: whole and in memory for tests, one line each on standard output without secrets.
#pragma once

#include <json/json.h>

#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

namespace ARDV::Sandbox {

/// One request as it came in.
struct SeenRequest {
    std::string time;     ///< Timestamp() of its arrival
    std::string client;   ///< ADDRESS:PORT, or [ADDRESS]:PORT
    std::string address;  ///< ADDRESS alone
    std::string method;
    std::string path;
    std::string query;                           ///< what followed "?", still encoded
    std::map<std::string, std::string> headers;  ///< a header given twice: both values, joined by ", "
    std::string body;
    bool isTls = false;
};

/// The last requests. Safe for several threads.
class RequestLog {
public:
    /// How many requests are kept; the oldest go first.
    static constexpr size_t kCapacity = 1000;

    /// Keeps `request`.
    void Add(SeenRequest request);

    /// Forgets all.
    void Clear();

    /// The requests kept, oldest first, secrets included (docs/alias-protocol.md, "The test interface").
    Json::Value ToJson() const;

private:
    mutable std::mutex mutex_;
    std::deque<SeenRequest> requests_;
};

/// Writes the line for `request` to standard output: when, who and what, then `words`, which must be printable.
void WriteLogLine(const SeenRequest& request, std::string_view words);

/// `text` for one place of that line: printable, at most 80 bytes of it, and "-" for an empty one.
std::string LogWord(std::string_view text);

}  // namespace ARDV::Sandbox
