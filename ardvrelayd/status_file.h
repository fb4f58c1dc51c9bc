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
    std::string serverId;                    ///< empty: not published
    std::string alias;                       ///< empty: not published
    std::vector<std::string> services = {};  ///< identifiers of what is relayed
    Json::Value tunnel = {};                 ///< null: not published

    bool operator==(const Status& other) const = default;
};

/**
 * The status file "/tmp/.ardvrelayd.status": a JSON object with "pid", "state", "error" (integers), "service" (array of
 * objects with "id"), "serverID", "alias" (strings, where there are any), "since" (integer, when state or error last changed, Unix
 * seconds), "version" (string), and "tunnel", where there is one: an object with
 *
 * | member | type | meaning |
 * |---|---|---|
 * | "status" | string | a text of `Tunnel::GetStatusStr` |
 * | "since" | integer | when that last changed, Unix seconds |
 * | "relay_ip" | string | the relay |
 * | "pid" | integer | OpenVPN's process, while it runs |
 * | "candidate" | object | the one in use: "protocol", "host", "port" (strings), while OpenVPN runs |
 * | "peer_ip", "local_ip", "local_ip6" | string | the addresses within the tunnel, as far as they are known |
 * | "open" | array | what is let in: "id" (string) and "port" (integer) of each service |
 * | "error" | string | the last failure, until the tunnel is up |
 * | "retry_at" | integer | when it is tried again, Unix seconds, where that is waited for |
 *
 * It is replaced as a whole, and only for a change. Gone with the object.
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
