// SPDX-License-Identifier: Apache-2.0
#include <relay/config/smartdns_conf.h>
#include <relay/config/support_channel_conf.h>

#include "support/device_test.h"

namespace ARDV::Relay {

namespace {

using namespace ardv::test;

template <typename Conf>
class EverySwitch : public testing::Test {};

using Switches = testing::Types<SupportChannelConf, SmartDNSConf>;
TYPED_TEST_SUITE(EverySwitch, Switches);

TYPED_TEST(EverySwitch, IsOffAtFirstAndAlwaysValid) {
    TypeParam setting;
    EXPECT_FALSE(setting.GetEnabled());
    EXPECT_TRUE(setting.IsValid());
    setting.SetEnabled(true);
    EXPECT_TRUE(setting.GetEnabled());
    EXPECT_TRUE(setting.IsValid());
    setting.SetEnabled(false);
    EXPECT_FALSE(setting.GetEnabled());
}

TYPED_TEST(EverySwitch, TakesABooleanAlone) {
    TypeParam setting;
    EXPECT_TRUE(setting.Overwrite(JsonOf(R"({"enabled":true,"other":false})")));
    EXPECT_TRUE(setting.GetEnabled());
    for (const char* json : {R"({"enabled":0})", R"({"enabled":"false"})", R"({"enabled":null})",
                             R"({"enabled":[false]})", R"({"enabled":{}})", "{}"}) {
        EXPECT_TRUE(setting.Overwrite(JsonOf(json)));
        EXPECT_TRUE(setting.GetEnabled()) << json;
    }
    EXPECT_TRUE(setting.Overwrite(JsonOf(R"({"enabled":false})")));
    EXPECT_FALSE(setting.GetEnabled());
}

TYPED_TEST(EverySwitch, IsWrittenInBothForms) {
    TypeParam setting;
    for (const bool full : {false, true}) {
        setting.SetEnabled(false);
        EXPECT_EQ(Written(setting, full), "{\"enabled\":false}\n");
        setting.SetEnabled(true);
        EXPECT_EQ(Written(setting, full), "{\"enabled\":true}\n");
    }
}

}  // namespace

}  // namespace ARDV::Relay
