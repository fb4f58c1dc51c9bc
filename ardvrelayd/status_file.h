// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <json/value.h>

#include <relay/common/vocabulary.h>

namespace ardv::daemon {

/** What the daemon publishes of itself. */
struct Status {
    ARDV::Relay::RELAYD_STATE state = ARDV::Relay::RELAYD_STATE_STARTING;
    ARDV::Relay::RELAYD_RET error = ARDV::Relay::RELAYD_RET_SUCCESS;
    std::string serverId;               ///< empty: not published
    std::string alias;                  ///< empty: not published
    std::vector<std::string> services;  ///< identifiers of what is relayed

    bool operator==(const Status& other) const = default;
};

/**
 * The status file "/tmp/.ardvrelayd.status": a JSON object with "pid", "state", "error" (integers), "service" (array of
 * objects with "id"), "serverID", "alias" (strings, where there are any), "since" (integer, when state or error last changed, Unix
 * seconds) and "version" (string). It is replaced as a whole, and only for a change. Gone with the object.
 */
class StatusFile {
public:
    StatusFile() = default;
    StatusFile(const StatusFile&) = delete;
    StatusFile& operator=(const StatusFile&) = delete;
    ~StatusFile();

    /** Publishes `status`. Does nothing where it is published already; a failure is logged and tried again with the next. */
    void Publish(const Status& status);

    /** How often the file was written. */
    unsigned Writes() const { return writes_; }

private:
    Status published_;
    bool isPublished_ = false;
    Json::Int64 since_ = 0;
    unsigned writes_ = 0;
};

}  // namespace ardv::daemon
