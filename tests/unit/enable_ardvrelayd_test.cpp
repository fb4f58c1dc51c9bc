// SPDX-License-Identifier: Apache-2.0
#include <filesystem>
#include <string>
#include <vector>

#include <relay/config/config.h>

#include "support/device_test.h"
#include "support/systemd_calls.h"

namespace ARDV::Relay {

namespace {

using namespace ardv::test;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char kWebSettings[] = "/etc/ardv/web.conf";
constexpr const char kWithRelayName[] = "http_port=\"5000\"\nrelay_ddns=\"mybox.tethra.example\"\n";
constexpr const char kWithoutRelayName[] = "http_port=\"5000\"\nrelay_ddns=\"\"\n";

struct Switches {
    const char* name;
    bool tethra;
    bool supportChannel;
    bool enable;
    std::vector<std::string> calls;
    bool keepsRelayName;
};

const std::vector<std::string> kOn = {"Enable ardvrelayd", "Start ardvrelayd", "Reload ardvrelayd"};
const std::vector<std::string> kOff = {"Stop ardvrelayd", "Disable ardvrelayd"};

RelaydConf WithSwitches(bool tethra, bool supportChannel) {
    RelaydConf conf(nullptr);
    auto value = JsonOf(R"({"tethra":{},"support_channel":{}})");
    value["tethra"]["enabled"] = tethra;
    value["support_channel"]["enabled"] = supportChannel;
    EXPECT_TRUE(conf.Overwrite(value));
    return conf;
}

class SystemService : public DeviceTest {
protected:
    SystemService() { WriteText(kWebSettings, kWithRelayName); }
    ~SystemService() override { std::filesystem::remove(kWebSettings); }

    SystemdCalls systemd_;
};

class SystemServiceSwitch : public SystemService, public testing::WithParamInterface<Switches> {};

TEST_P(SystemServiceSwitch, BringsTheServiceIntoTheStateThatTheSwitchesAskFor) {
    const auto& [name, tethra, supportChannel, enable, calls, keepsRelayName] = GetParam();
    auto conf = WithSwitches(tethra, supportChannel);
    const CapturedLog log;
    EXPECT_TRUE(conf.EnableArdvrelayd(enable));
    EXPECT_EQ(systemd_.calls, calls);
    EXPECT_EQ(ReadText(kWebSettings), keepsRelayName ? kWithRelayName : kWithoutRelayName);
    EXPECT_EQ(log.Text(), "");
}

TEST_P(SystemServiceSwitch, IsTrueAndTriesEverythingWhereAllOfItFails) {
    const auto& [name, tethra, supportChannel, enable, calls, keepsRelayName] = GetParam();
    auto conf = WithSwitches(tethra, supportChannel);
    std::filesystem::remove(kWebSettings);
    std::filesystem::create_directory(kWebSettings);
    systemd_.switchResult = -1;
    const CapturedLog log(0);
    EXPECT_TRUE(conf.EnableArdvrelayd(enable));
    EXPECT_EQ(systemd_.calls, calls);
    std::filesystem::remove(kWebSettings);
}

INSTANTIATE_TEST_SUITE_P(Combinations, SystemServiceSwitch,
                         testing::Values(Switches{"OnWithNeither", false, false, true, {}, true},
                                         Switches{"OnWithTethra", true, false, true, kOn, true},
                                         Switches{"OnWithSupportChannel", false, true, true, kOn, true},
                                         Switches{"OnWithBoth", true, true, true, kOn, true},
                                         Switches{"OffWithNeither", false, false, false, kOff, false},
                                         Switches{"OffWithTethra", true, false, false, {"Reload ardvrelayd"}, true},
                                         Switches{"OffWithSupportChannel", false, true, false, {}, false},
                                         Switches{"OffWithBoth", true, true, false, {}, true}),
                         [](const auto& switches) { return std::string(switches.param.name); });

TEST_F(SystemService, RelayNameIsWithdrawnBeforeTheServiceStops) {
    std::vector<std::string> seen;
    systemd_.onCall = [&seen](const std::string&) { seen.push_back(ReadText(kWebSettings)); };
    EXPECT_TRUE(WithSwitches(false, false).EnableArdvrelayd(false));
    EXPECT_THAT(seen, ElementsAre(kWithoutRelayName, kWithoutRelayName));
}

TEST_F(SystemService, FailureToWithdrawTheRelayNameIsReportedAndTheServiceStopsAllTheSame) {
    std::filesystem::remove(kWebSettings);
    std::filesystem::create_directory(kWebSettings);
    const CapturedLog log(3);
    EXPECT_TRUE(WithSwitches(false, false).EnableArdvrelayd(false));
    EXPECT_THAT(log.Lines(), ElementsAre("utils.cpp:344 fail to set ardvw3 HOS"));
    EXPECT_EQ(systemd_.calls, kOff);
    std::filesystem::remove(kWebSettings);
}

}  // namespace

}  // namespace ARDV::Relay
