// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "support/daemon_process.h"
#include "support/file_text.h"
#include "support/network_namespace.h"
#include "support/tunnel_device.h"
#include "support/tunnel_network.h"
#include "support/tunnel_processes.h"

namespace ardv::test {

/** Names a parametrised test by its protocol. */
inline std::string ProtocolName(const testing::TestParamInfo<Protocol>& info) {
    return info.param.name;
}

/** The sandbox's network with a relay, and a device that serves two web pages and answers datagrams. */
class TunnelTest : public testing::Test {
protected:
    void SetUp() override {
        const std::string reason = TunnelNetwork::WhyNot();
        if (!reason.empty()) {
            GTEST_SKIP() << reason;
        }
        undertaker_ = std::make_unique<Undertaker>();
        network_ = std::make_unique<TunnelNetwork>();
        RelayServer::Admit("box", "secret-of-the-box", "45000:5000");
        relay = std::make_unique<RelayServer>();
        InstallTunnelFiles();
        services = std::make_unique<DeviceServices>();
    }

    /** What the tests of ports look at again and again. */
    static std::vector<std::uint16_t> TellingPorts() { return {kPage, kPhotos, kClosed, kNameService}; }

    /** Packets that have come to the device by the tunnel. */
    static std::size_t Received() {
        constexpr std::string_view kName = "tun1000:";
        const InNamespace device("device");
        const std::string table = ReadText("/proc/thread-self/net/dev");
        const auto place = table.find(kName);
        std::istringstream row(place == std::string::npos ? "" : table.substr(place + kName.size()));
        std::size_t bytes = 0;
        std::size_t packets = 0;
        row >> bytes >> packets;
        return packets;
    }

    /** Tries each TCP and UDP port of the device through a tunnel, in both families, until no probe was lost. Gives all that answered. */
    static PortAnswers TryEveryPort(const Protocol& protocol) {
        constexpr int kAttempts = 3;
        PortAnswers answers;
        bool isWhole = false;
        for (int attempt = 0; attempt < kAttempts && !isWhole; ++attempt) {
            const auto before = Received();
            const auto result = ProbePorts(protocol.Route(), EveryPort());
            isWhole = result.isComplete && Received() - before >= result.sent;
            answers.insert(result.answers.begin(), result.answers.end());
        }
        EXPECT_TRUE(isWhole) << "not each probe came through";
        return answers;
    }

    /** The answers when this is all that is permitted, in both families. */
    static PortAnswers OnlyOpen(const std::vector<int>& ports) {
        PortAnswers answers;
        for (const int port : ports) {
            answers.insert("tcp4 " + std::to_string(port) + " open");
            answers.insert("tcp6 " + std::to_string(port) + " open");
        }
        return answers;
    }

    /** Rules of a whole family of the device that speak of the tunnel. */
    static std::vector<std::string> TunnelRules(const std::string& program) {
        auto rules = FilterRules(program, "");
        std::erase_if(rules, [](const std::string& rule) {
            return rule.find("tun1000") == std::string::npos && rule.find("TETHRA_RELAY") == std::string::npos;
        });
        return rules;
    }

    /** Nothing of a tunnel is left on the device: process, interface, files, rules. */
    static void ExpectNoTrace() {
        EXPECT_THAT(OpenVpnClients(), testing::IsEmpty());
        EXPECT_EQ(RunIn("device", {"ip", "-o", "link", "show", "type", "tun"}), "");
        EXPECT_FALSE(std::filesystem::exists(kInformationFile));
        EXPECT_THAT(PasswordFiles(), testing::IsEmpty());
        for (const char* program : {"iptables", "ip6tables"}) {
            EXPECT_THAT(TunnelRules(program), testing::IsEmpty()) << program;
        }
    }

    static std::vector<std::string> PasswordFiles() {
        std::vector<std::string> files;
        for (const auto& entry : std::filesystem::directory_iterator("/tmp")) {
            if (entry.path().filename().string().starts_with(".tunnel.")) {
                files.push_back(entry.path());
            }
        }
        return files;
    }

private:
    // What comes first here ends last.
    std::unique_ptr<Undertaker> undertaker_;
    std::unique_ptr<TunnelNetwork> network_;

protected:
    std::unique_ptr<RelayServer> relay;
    std::unique_ptr<DeviceServices> services;
};

}  // namespace ardv::test
