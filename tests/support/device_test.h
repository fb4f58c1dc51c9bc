// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/value.h>

#include <relay/utils/json_text.h>

#include "captured_log.h"
#include "file_text.h"
#include "message_level.h"

namespace ardv::test {

inline constexpr const char kConfigFolder[] = "/usr/ardv/etc/ardvrelayd";
inline constexpr const char kConfigFile[] = "/usr/ardv/etc/ardvrelayd/ardvrelayd.conf";
inline constexpr const char kEnvironmentFile[] = "/usr/ardv/etc/ardvrelayd/env.conf";
inline constexpr const char kDeviceSettings[] = "/etc/ardvinfo.conf";
inline constexpr const char kFactorySettings[] = "/etc.defaults/ardvinfo.conf";
inline constexpr const char kIdentityFile[] = "/etc/ardv/identity.conf";

/** Tests on a device as it comes, and leaves it so: identity, model and time zone, and no configuration file. */
class DeviceTest : public testing::Test {
protected:
    DeviceTest() {
        std::filesystem::remove_all(kConfigFolder);
        std::filesystem::create_directories(kConfigFolder);
        MakeDevice();
    }

    ~DeviceTest() override { MakeDevice(); }
};

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
