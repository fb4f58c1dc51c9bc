// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gmock/gmock.h>
#include <json/json.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "support/alias_server_process.h"
#include "support/control_server_process.h"
#include "support/daemon_process.h"
#include "support/file_text.h"
#include "support/program.h"

namespace ardv::test {

inline constexpr const char kDaemonConfig[] = "/usr/ardv/etc/ardvrelayd/ardvrelayd.conf";
inline constexpr const char kDaemonStatusFile[] = "/tmp/.ardvrelayd.status";
inline constexpr const char kAliasStatusFile[] = "/tmp/nubo_alias.status";
inline constexpr const char kLoggedIn[] = "login success";

/** The JSON of a text; null where it is none. */
inline Json::Value JsonFrom(const std::string& text) {
    Json::Value value;
    std::istringstream stream(text);
    std::string problems;
    return Json::parseFromStream(Json::CharReaderBuilder(), stream, &value, &problems) ? value : Json::Value();
}

/** Names a parametrised test by its parameter's `name`. */
template <typename Param>
std::string ParamName(const testing::TestParamInfo<Param>& info) {
    return info.param.name;
}

/** A device with the alias "attic", its control and alias servers, and the daemon once it is started. */
class DaemonTest : public testing::Test {
protected:
    DaemonTest() {
        MakeDevice();
        Json::Value configuration;
        configuration["tethra"]["enabled"] = true;
        configuration["log_level"] = 7;
        for (const auto* server : {"server_global", "server_control", "server_waitcmd"}) {
            configuration[server]["protocol"] = "http";
            configuration[server]["host"] = "127.0.0.1";
            configuration[server]["port"] = control.HttpPort();
        }
        configuration["server_alias"]["alias"] = "attic";
        configuration["server_alias"]["url"] = alias.HttpUrl();
        Write(configuration);
    }

    // No test's daemon may tell a secret, whatever happened to it.
    void TearDown() override {
        daemon.reset();
        const std::string told = ReadText(DaemonProcess::kLog) + ReadText(kDaemonStatusFile);
        for (const auto& secret : Secrets()) {
            EXPECT_EQ(told.find(secret), std::string::npos) << "a secret is told";
        }
    }

    /** What the daemon must not tell: its identity's secrets, and the names of the session that it had last. */
    std::vector<std::string> Secrets() const {
        std::vector<std::string> secrets{"0123456789abcdef0123456789abcdef", "example-api-key"};
        if (control.Pid() > 0) {
            for (const auto& session : control.Sessions()) {
                secrets.push_back(session["session"].asString());
                secrets.push_back(session["channel"].asString());
            }
        }
        return secrets;
    }

    static void Write(const Json::Value& configuration) {
        WriteText(kDaemonConfig, Json::FastWriter().write(configuration));
    }

    /** Changes the configuration file as it is now, with what the daemon wrote into it. */
    static void Edit(const std::function<void(Json::Value&)>& change) {
        auto configuration = JsonFrom(ReadText(kDaemonConfig));
        change(configuration);
        Write(configuration);
    }

    void Start(const std::vector<std::string>& options = DaemonProcess::Hasty()) {
        daemon = std::make_unique<DaemonProcess>(options);
    }

    /** Starts the daemon and waits until it is logged in, its wait is held, and its alias is mapped. */
    void StartAndLogIn(const std::vector<std::string>& options = DaemonProcess::Hasty()) {
        Start(options);
        ASSERT_EQ(AwaitStatus(kLoggedIn), kLoggedIn) << daemon->Log();
        ASSERT_TRUE(AwaitWait());
        ASSERT_EQ(AwaitAlias("success"), "success");
    }

    /** The identifier by which the servers know the device. */
    std::string ServerId() const { return control.Devices()["AV0000000001"]["serverID"].asString(); }

    /** Waits until a wait of the device is held. */
    bool AwaitWait() const {
        return Await([&] { return control.Sessions()[ServerId()]["waiting"].asBool(); });
    }

    static std::string AliasWord() { return JsonFrom(ReadText(kAliasStatusFile))["status"].asString(); }

    static std::string AwaitAlias(const std::string& word) {
        Await([&] { return AliasWord() == word; });
        return AliasWord();
    }

    /** How many requests of a command the control server has had. */
    std::size_t Count(const std::string& command) const {
        const auto requests = control.Requests();
        const auto isOne = [&](const auto& r) { return JsonFrom(r["body"].asString())["command"] == command; };
        return static_cast<std::size_t>(std::count_if(requests.begin(), requests.end(), isOne));
    }

    /** The daemon must still be the one that was started, and end in order. */
    void ExpectOrderlyEnd() {
        EXPECT_EQ(daemon->Stop(), 0) << daemon->Log();
        EXPECT_FALSE(std::filesystem::exists(kDaemonStatusFile));
        EXPECT_FALSE(std::filesystem::exists(kDaemonPidFile));
    }

    /** Starts a daemon as StartAndLogIn() does, and has what follows be meant for another try alone. */
    void StartPatient() { StartAndLogIn({"--retry-base", "60", "--retry-cap", "600"}); }

    static void Ip(std::vector<std::string> words) {
        words.insert(words.begin(), "ip");
        const auto result = RunProgram(words);
        ASSERT_EQ(result.exitCode, 0) << result.err;
    }

    ControlServerProcess control{{{.folder = "/run/control"}}};
    AliasServerProcess alias{{.folder = "/run/alias"}};
    std::unique_ptr<DaemonProcess> daemon;
};

}  // namespace ardv::test
