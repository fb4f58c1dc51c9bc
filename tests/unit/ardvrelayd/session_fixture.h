// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "control_session.h"
#include "support/control_script.h"
#include "support/device_test.h"
#include "support/shifted_clock.h"

namespace ardv::test {

/** Times so long that a test sees what is waited for, and none of it happens by itself. */
inline constexpr daemon::RetryPlans kLongPlans = {{std::chrono::seconds(50), std::chrono::seconds(50)},
                                                  {std::chrono::hours(1), std::chrono::hours(1)},
                                                  std::chrono::milliseconds(20)};

/** Times so short that a test can wait for what follows. */
inline constexpr daemon::RetryPlans kShortPlans = {{std::chrono::milliseconds(20), std::chrono::milliseconds(20)},
                                                   {std::chrono::milliseconds(30), std::chrono::milliseconds(30)},
                                                   std::chrono::milliseconds(20)};

/** Runs a loop until a condition holds; false if it did not within 20 s. */
inline bool RunLoopUntil(daemon::EventLoop& loop, const std::function<bool()>& isDone) {
    constexpr std::chrono::milliseconds kInterval(2);
    int looks = 10'000;
    daemon::Timer look(loop, "condition of the test", [&] {
        if (isDone() || --looks == 0) {
            loop.Stop();
        } else {
            look.Start(kInterval);
        }
    });
    look.Start(std::chrono::milliseconds(0));
    loop.Run();
    return looks > 0;
}

/** The time until a timer is due; nothing where it does not run. */
inline std::optional<std::chrono::milliseconds> TimeUntil(const daemon::EventLoop& loop, const std::string& timer) {
    for (const auto& info : loop.Timers()) {
        if (info.name == timer) {
            return info.remaining;
        }
    }
    return std::nullopt;
}

/** A server's answer that is an error alone. */
inline std::string ErrnoText(int number) {
    return R"({"errno":)" + std::to_string(number) + "}";
}

/** A session of a device with a control server of its own. */
class SessionTest : public DeviceTest {
protected:
    SessionTest() {
        Json::Value configuration;
        configuration["tethra"]["enabled"] = true;
        configuration["server_control"] = server_.Server();
        configuration["server_waitcmd"] = server_.Server();
        WriteText(kConfigFile, ARDV::Relay::JsonText::Styled(configuration));
    }

    /** Makes a session and starts it. */
    void Begin(const daemon::RetryPlans& plans) {
        device_ = std::make_unique<daemon::Device>(ARDV::Relay::RelaydConf(kConfigFile), kConfigFile);
        session_ = std::make_unique<daemon::ControlSession>(
            loop_, engine_, *device_, errors_, plans,
            daemon::ControlSession::Events{[this] { ++changes_; }, [this](const auto& c) { return CarryOut(c); },
                                           [this] { return tunnel_; }});
        session_->Start(std::chrono::milliseconds(0));
    }

    /** The same, until the session stands and waits for commands. */
    void Stand(const daemon::RetryPlans& plans) {
        const auto waits = server_.Count("wait");
        Begin(plans);
        ASSERT_TRUE(RunUntilCount("wait", waits + 1));
    }

    bool RunUntil(const std::function<bool()>& isDone) { return RunLoopUntil(loop_, isDone); }
    bool RunUntilCount(const std::string& command, std::size_t count) {
        return RunUntil([&] { return server_.Count(command) >= count; });
    }

    /** Runs until the session has failed so often. */
    bool RunUntilFailures(std::size_t count) {
        return RunUntil([&] {
            std::size_t failures = 0;
            for (const auto& row : errors_.Describe()) {
                failures += row["times"].asUInt64();
            }
            return failures >= count;
        });
    }

    std::optional<std::chrono::milliseconds> UntilNext() const { return TimeUntil(loop_, "control session"); }

    static Json::Value Stored() { return JsonOf(ReadText(kConfigFile)); }

    std::optional<ARDV::Relay::RELAYD_RET> CarryOut(const daemon::ServerCommand& command) {
        carriedOut_.push_back(command.id);
        return onCommand_(command);
    }

    ControlScript server_;
    daemon::EventLoop loop_;
    daemon::TransferEngine engine_{loop_};
    daemon::RecentErrors errors_;
    std::unique_ptr<daemon::Device> device_;
    std::unique_ptr<daemon::ControlSession> session_;
    int changes_ = 0;
    Json::Value tunnel_;  ///< what the servers are told of it
    std::vector<std::string> carriedOut_;
    std::function<std::optional<ARDV::Relay::RELAYD_RET>(const daemon::ServerCommand&)> onCommand_ = [](const auto&) {
        return std::optional(ARDV::Relay::RELAYD_RET_SUCCESS);
    };
};

}  // namespace ardv::test
