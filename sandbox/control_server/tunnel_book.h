// SPDX-License-Identifier: Apache-2.0
// Which device gets a tunnel to which relay, and the relay's users.
#pragma once

#include <json/json.h>

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace ARDV::Sandbox {

/// The assignments, in memory alone, and the file from which relay-server knows its users. Safe for several threads.
class TunnelBook {
public:
    /// Binds to the users' file; empty: there is none. Writes nothing yet.
    explicit TunnelBook(const std::string& usersFile);

    /// Writes a file without users: a service that starts anew has assigned nothing. Failure: false, and `error` says
    /// why.
    bool Begin(std::string& error);

    /// Assigns a relay to a device in place of what it had: `order` has "relay", "candidates" and "forward" as the test
    /// interface has them, and "relay_user" and "relay_pass" are made up where they are missing. The users' file is in
    /// place on return. Success: what get_tunnel answers, {"relay", "candidates"}. Failure: nothing, `error` says why,
    /// and nothing has changed.
    std::optional<Json::Value> Assign(const std::string& serverId, const std::string& alias, const Json::Value& order,
                                      std::string& error);

    /// Takes a device's assignment away, if there is one. False: the file can't be written, and `error` says why.
    bool Remove(const std::string& serverId, std::string& error);

    /// What get_tunnel answers, or nothing where no relay is assigned.
    std::optional<Json::Value> Of(std::string_view serverId) const;

    /// The assignments by serverID, each {"alias", "relay", "candidates", "forward"}, secrets included.
    Json::Value Snapshot() const;

private:
    using Assignments = std::map<std::string, Json::Value, std::less<>>;

    static bool IsFree(const Assignments& others, const Json::Value& assignment, std::string& error);
    bool Take(Assignments fresh, std::string& error);

    const std::string usersFile_;
    mutable std::mutex mutex_;
    Assignments assignments_;
};

}  // namespace ARDV::Sandbox
