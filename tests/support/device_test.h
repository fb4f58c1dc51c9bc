// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/value.h>

#include <relay/utils/json_text.h>

#include "captured_log.h"
#include "file_text.h"

namespace ardv::test {

inline constexpr const char kConfigFolder[] = "/usr/ardv/etc/ardvrelayd";
inline constexpr const char kConfigFile[] = "/usr/ardv/etc/ardvrelayd/ardvrelayd.conf";
inline constexpr const char kEnvironmentFile[] = "/usr/ardv/etc/ardvrelayd/env.conf";
inline constexpr const char kDeviceSettings[] = "/etc/ardvinfo.conf";
inline constexpr const char kFactorySettings[] = "/etc.defaults/ardvinfo.conf";
inline constexpr const char kIdentityFile[] = "/etc/ardv/identity.conf";

/** Tests on a device as it comes: identity, model and time zone, and no configuration file. */
class DeviceTest : public testing::Test {
protected:
    DeviceTest() {
        std::filesystem::remove_all(kConfigFolder);
        std::filesystem::create_directories(kConfigFolder);
        MakeDevice();
    }
};

/** What an action writes to the log at a threshold: "source text", without times and line numbers. */
template <typename Action>
std::vector<std::string> MessagesAt(int threshold, Action&& action) {
    CapturedLog log(threshold);
    action();
    return log.Messages();
}

/** Expects an action, which can be done repeatedly, to log one message that needs a threshold of at least `level`. */
template <typename Action>
void ExpectMessage(int level, const std::string& message, Action&& action) {
    EXPECT_THAT(MessagesAt(level, action), testing::ElementsAre(message));
    EXPECT_THAT(MessagesAt(level - 1, action), testing::IsEmpty()) << "below the level of " << message;
}

/** The value of a JSON text, which must be one. */
inline Json::Value JsonOf(std::string_view text) {
    Json::Value value;
    EXPECT_TRUE(ARDV::Relay::JsonText::Parse(text, value)) << text;
    return value;
}

/** The compact text of what an object writes into a null value. */
template <typename Conf>
std::string Written(const Conf& conf, bool full) {
    Json::Value value;
    EXPECT_TRUE(conf.Write(value, full));
    return ARDV::Relay::JsonText::Compact(value);
}

}  // namespace ardv::test
