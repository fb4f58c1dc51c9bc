// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include <relay/tunnel/tunnel.h>

#include "support/device_test.h"
#include "support/process.h"
#include "support/recorded_programs.h"

namespace ARDV::Relay {

inline constexpr const char kModuleLoad[] = "/usr/ardv/etc.defaults/ardvvpnclient/scripts/ovpnc.sh|load|tethraa-tunnel";
inline constexpr const char kModuleUnload[] =
    "/usr/ardv/etc.defaults/ardvvpnclient/scripts/ovpnc.sh|unload|tethraa-tunnel";
inline constexpr const char kRelayJson[] =
    R"({"relay_ip":"198.51.100.7","relay_ipv6":"2001:db8:7::7","relay_user":"u1","relay_pass":"secret 1"})";
inline constexpr const char kPassFile[] = "/tmp/.tunnel.u1";
inline constexpr const char kInformationFile[] = "/tmp/.ardv_tethra_tunnel_info";

/** A candidate as the control server sends it. */
inline Json::Value Candidate(const std::string& protocol) {
    return ardv::test::JsonOf(R"({"type":"openvpn","port":"1194","mtu":"1400","protocol":")" + protocol + "\"}");
}

/** A list of them. */
inline Json::Value Candidates(const std::vector<std::string>& protocols) {
    Json::Value list(Json::arrayValue);
    for (const auto& protocol : protocols) {
        list.append(Candidate(protocol));
    }
    return list;
}

/**
 * A tunnel that is assigned to a relay, and recording programs in the place of those it calls. Leaves no child, no alarm
 * and no file behind.
 */
class TunnelTest : public testing::Test {
protected:
    TunnelTest() { RemoveFiles(); }

    ~TunnelTest() override {
        alarm(0);
        std::ifstream children("/proc/thread-self/children");
        for (pid_t child = 0; children >> child;) {
            kill(child, SIGKILL);
            waitpid(child, nullptr, 0);
        }
        RemoveFiles();
    }

    /** Ends the tunnel's OpenVPN and reaps it, as the owner does before it asks for the status. */
    void EndOpenVpn() {
        kill(tunnel.GetPid(), SIGKILL);
        ardv::test::Reap(tunnel.GetPid());
    }

    /** Starts OpenVPN and nothing else. */
    void StartOpenVpn() {
        ASSERT_TRUE(tunnel.RunVPNTunnel(Candidate("udp")));
        ASSERT_FALSE(programs.AwaitOpenVpn().empty());
        programs.Forget();
    }

    /** Has a tunnel come up. */
    void BringUp() {
        ASSERT_TRUE(tunnel.Create(Candidates({"udp"}), true, true));
        programs.AwaitOpenVpn();
        ASSERT_TRUE(tunnel.UpdateTunnelStatus());
        ASSERT_EQ(tunnel.GetStatus(), TUNNEL_STATUS_READY);
        programs.Forget();
    }

    /** The host, the port and the protocol with which OpenVPN was called last. */
    std::string LastTried() {
        programs.AwaitOpenVpn();
        const auto calls = programs.CallsOf("openvpn");
        return calls.empty() ? "" : Between(calls.back(), "|--remote|", "|--dev|");
    }

    static std::string Between(std::string_view text, std::string_view begin, std::string_view end) {
        const auto from = text.find(begin) + begin.size();
        return std::string(text.substr(from, text.find(end) - from));
    }

    static std::vector<std::string> PassFiles() {
        std::vector<std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator("/tmp")) {
            if (entry.path().filename().string().starts_with(".tunnel.")) {
                found.push_back(entry.path());
            }
        }
        return found;
    }

    ardv::test::RecordedPrograms programs;
    Tunnel tunnel{ardv::test::JsonOf(kRelayJson)};

private:
    static void RemoveFiles() {
        for (const auto& file : PassFiles()) {
            std::filesystem::remove_all(file);
        }
        std::filesystem::remove(kInformationFile);
    }
};

}  // namespace ARDV::Relay
