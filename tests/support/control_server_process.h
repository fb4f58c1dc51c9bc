// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "support/server_process.h"
#include "support/test_certificates.h"

namespace ardv::test {

/** How a ControlServerProcess is started: with the server's own options besides those of every server. */
struct ControlServerSettings {
    ServerSettings server;
    std::vector<std::string> options = {};  ///< e.g. {"--hold", "2"}
};

/** The sandbox's control server: the control and the wait-command server of one machine, page /Serv.php. */
class ControlServerProcess : public ServerProcess {
public:
    explicit ControlServerProcess(const ControlServerSettings& settings);

    /** Queues a command, a JSON object as text, for a device. Gives its identifier. */
    std::string Command(const std::string& serverId, const std::string& command) const;

    /** Assigns a relay and orders the tunnel, as the test interface has it:
     * R"({"relay":{"relay_ip":"198.51.100.7"},"candidates":[],"forward":[]})". Gives "relay", "candidates" and the
     * command's "id". */
    Json::Value OpenTunnel(const std::string& serverId, const std::string& order) const;

    /** Takes the relay away and orders the tunnel's end. Gives the command's identifier. */
    std::string CloseTunnel(const std::string& serverId) const;

    /** The relays that are assigned, by serverID: "alias", "relay", "candidates", "forward". */
    Json::Value Tunnels() const { return Ask("GET", "/sandbox/tunnel"); }

    /** What the device told last of its tunnel, "status" and "relay_ip"; null where there is none. */
    Json::Value Tunnel(const std::string& serverId) const { return Sessions()[serverId]["tunnel"]; }

    /** The sessions that stand, by serverID; "waiting" tells whether the device's wait is held. */
    Json::Value Sessions() const { return Ask("GET", "/sandbox/sessions"); }

    /** Ends them all: a held wait is answered errno 6. */
    void EndSessions() const { Ask("DELETE", "/sandbox/sessions"); }

    /** Waits, 10 seconds at most, until the device's wait is held. False: it is not. */
    bool AwaitWait(const std::string& serverId) const;

    /** Has every held wait meet a fault. Gives how many there were. */
    int BreakWaits(const std::string& fault) const;

    /** What devices are told besides the names of their sessions, e.g. {"control_host":"other.zz","reachable":true}. */
    void SetAnswers(const std::string& members) const { Ask("PUT", "/sandbox/answers", members); }

    /** Plays a scenario, a JSON array as text, from its first step. */
    void SetScenario(const std::string& steps) const { Ask("PUT", "/sandbox/scenario", steps); }

    /** The known devices by serial: {"token", "serverID"}. */
    Json::Value Devices() const { return Ask("GET", "/sandbox/devices")["devices"]; }

    /** The commands that have no result yet, by serverID, and the results as they came, oldest first: one that
     * was told by a wait without an answer is told again. */
    Json::Value Commands() const { return Ask("GET", "/sandbox/commands"); }
    Json::Value Results() const { return Ask("GET", "/sandbox/results"); }

    std::string StateFile() const { return stateFile_; }

    /** The file of the relay's users. */
    std::string UsersFile() const { return usersFile_; }

private:
    std::string stateFile_;
    std::string usersFile_;
};

}  // namespace ardv::test
