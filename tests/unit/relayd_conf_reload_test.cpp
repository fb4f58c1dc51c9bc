// SPDX-License-Identifier: Apache-2.0
#include <relay/config/config.h>

#include <unistd.h>

#include <filesystem>
#include <string>

#include "support/network_faults.h"
#include "support/platform_faults.h"
#include "support/scratch_folder.h"
#include "support/service_device.h"
#include "support/service_faults.h"

namespace ARDV::Relay {

namespace {

using namespace ardv::test;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

constexpr const char kOwnFile[] = R"({"serverID":"own","log_file":"/own","service":[{"id":"ftp"}]})";

/** A configuration that was loaded from a file of its own, on a device with a network. */
class Reload : public ServiceDevice {
protected:
    Reload() : conf_(MakeOwnFile().c_str()) {
        faults_.router = {0, 0};
        network_.interfaces = {MakeInterface("eth0", 2, "192.0.2.7", "255.255.255.0")};
        network_.ipv6 = [](const std::string&) { return std::vector<std::string>(); };
        network_.pppoeStatus = 0;
        network_.gateway = {0, "192.0.2.1"};
    }

    Json::Value Value() const {
        Json::Value value;
        EXPECT_TRUE(conf_.Write(value, true));
        return value;
    }

    const std::string& MakeOwnFile() {
        OfferAtPort("ftp", "21");
        WriteText(ownFile_, kOwnFile);
        return ownFile_;
    }

    ServiceFaults faults_;
    NetworkFaults network_;
    ScratchFolder folder_;
    std::string ownFile_ = folder_.File("own.conf");
    RelaydConf conf_;
};

constexpr const char kNetworkNow[] = R"({"ddns":"","fqdn":"","gateway":"192.0.2.1","ipv6_tunnel":[],"mode":"",
    "interface":[{"name":"eth0","ip":"192.0.2.7","mask":"255.255.255.0","ipv6":[]}]})";

TEST_F(Reload, TakesEverySettingOfTheMainFileOver) {
    auto file = JsonOf(R"({"serverID":"7","log_level":6,"log_file":"/x","tethra":{"enabled":true},
        "disable_holepunch":true,"server_alias":{"alias":"mybox","url":"https://a.zz","poll_seconds":60},
        "server_global":{"host":"g.zz","ip":"192.0.2.3","protocol":"http","port":1,"page":"p"},
        "server_control":{"host":"c.zz","ip":"192.0.2.4","protocol":"http","port":2,"page":"q"},
        "server_waitcmd":{"host":"w.zz","ip":"192.0.2.5","protocol":"https","port":3,"page":"r"},
        "support_channel":{"enabled":true},"server_smartdns":{"enabled":true},
        "server_kova":{"account":"owner","host":"k.zz"},"service":[{"id":"ftp","name":"mine","port":2121}]})");
    WriteText(kConfigFile, file.toStyledString());
    const CapturedLog log(6);
    EXPECT_TRUE(conf_.Reload());
    EXPECT_EQ(log.Text(), "");
    auto& expected = file;
    expected["network"] = JsonOf(kNetworkNow);
    expected["enable"] = false;
    expected["debug"] = false;
    expected["pid"] = getpid();
    EXPECT_EQ(Value(), expected);
    EXPECT_TRUE(conf_.GetEnableConf());
}

TEST_F(Reload, DropsWhatTheMainFileDoesNotSay) {
    WriteText(kConfigFile, "{}");
    conf_.Overwrite(
        JsonOf(R"({"tethra":{"enabled":true},"server_alias":{"alias":"a"},"server_global":{"host":"g.zz"}})"));
    EXPECT_TRUE(conf_.Reload());
    const RelaydConf fresh(nullptr);
    Json::Value expected;
    fresh.Write(expected, true);
    expected["network"] = JsonOf(kNetworkNow);
    EXPECT_EQ(Value(), expected);
}

TEST_F(Reload, SavesToTheMainFileAfterwards) {
    WriteText(kConfigFile, R"({"serverID":"7"})");
    EXPECT_TRUE(conf_.Reload());
    EXPECT_TRUE(conf_.WriteConfig());
    EXPECT_EQ(JsonOf(ReadText(kConfigFile))["serverID"], Json::Value("7"));
    EXPECT_TRUE(JsonOf(ReadText(kConfigFile)).isMember("service"));
    EXPECT_EQ(ReadText(ownFile_), kOwnFile);
}

TEST_F(Reload, OfAMissingMainFileGivesTheDefaults) {
    const CapturedLog log(3);
    EXPECT_TRUE(conf_.Reload());
    EXPECT_EQ(log.Text(), "");
    EXPECT_FALSE(Value().isMember("serverID"));
    EXPECT_EQ(Value()["log_file"], Json::Value(""));
    EXPECT_EQ(Value()["service"], Json::Value(Json::arrayValue));
    EXPECT_EQ(Value()["network"], JsonOf(kNetworkNow));
    EXPECT_TRUE(conf_.WriteConfig());
    EXPECT_TRUE(std::filesystem::exists(kConfigFile)) << "the path is the main file's";
}

TEST_F(Reload, OfADamagedMainFileGivesTheDefaults) {
    for (const char* text : {"{", "[1]"}) {
        WriteText(kConfigFile, text);
        const CapturedLog log(0);
        EXPECT_TRUE(conf_.Reload()) << text;
        EXPECT_FALSE(Value().isMember("serverID")) << text;
    }
    EXPECT_EQ(ReadText(std::string(kConfigFile) + ".bad"), "{");
}

TEST_F(Reload, OfAnInvalidMainFileKeepsTheLastGoodConfiguration) {
    WriteText(kConfigFile, R"({"serverID":"7","server_control":{"port":-1},"tethra":{"enabled":true}})");
    const auto before = Value();
    network_.calls.clear();
    const CapturedLog log(3);
    EXPECT_FALSE(conf_.Reload());
    EXPECT_THAT(log.Messages(),
                ElementsAre("config.cpp wrong control server config", "config.cpp invalid relayd config",
                            "config.cpp wrong control server config", "config.cpp reload config failed"));
    EXPECT_THAT(network_.calls, Not(Contains("GetInterfaceInfo")));
    EXPECT_EQ(Value(), before);
    EXPECT_FALSE(conf_.GetEnableConf());
    EXPECT_TRUE(conf_.WriteConfig());
    EXPECT_TRUE(JsonOf(ReadText(ownFile_)).isMember("server_alias")) << "the path stays";
    EXPECT_THAT(MessagesAt(2, [this] { EXPECT_FALSE(conf_.Reload()); }), IsEmpty());
}

TEST_F(Reload, ReadsTheNetworkAnew) {
    WriteText(kConfigFile, "{}");
    EXPECT_EQ(Value()["network"]["interface"], Json::Value(Json::arrayValue)) << "not read before";
    EXPECT_THAT(network_.calls, Not(Contains("GetInterfaceInfo")));
    EXPECT_TRUE(conf_.Reload());
    EXPECT_EQ(Value()["network"], JsonOf(kNetworkNow));
    network_.interfaces = {MakeInterface("eth1", 2, "198.51.100.7", "255.255.255.0")};
    EXPECT_TRUE(conf_.Reload());
    EXPECT_EQ(Value()["network"]["interface"],
              JsonOf(R"([{"name":"eth1","ip":"198.51.100.7","mask":"255.255.255.0","ipv6":[]}])"));
}

TEST_F(Reload, SucceedsWithANetworkThatCannotBeRead) {
    WriteText(kConfigFile, R"({"serverID":"7"})");
    network_.interfaceResult = -1;
    network_.gateway = {-1, ""};
    const CapturedLog log(7);
    EXPECT_TRUE(conf_.Reload());
    EXPECT_EQ(log.Messages().size(), 2U);
    EXPECT_EQ(Value()["serverID"], Json::Value("7"));
}

TEST_F(Reload, TimeZoneIsTheDevicesOfNowAndTheIdentityIsReadWhenItIsNeeded) {
    WriteText(kConfigFile, R"({"serverID":"7"})");
    Json::Value data;
    conf_.DumpDataForAliasReq(data);
    ASSERT_EQ(data["timezone"], Json::Value("Amsterdam"));
    WriteText(kDeviceSettings, "timezone=\"Taipei\"\n");
    PlatformFaults platform;
    EXPECT_TRUE(conf_.Reload());
    EXPECT_THAT(platform.CallsOf("GetToken"), IsEmpty());
    conf_.DumpDataForAliasReq(data);
    EXPECT_EQ(platform.CallsOf("GetToken").size(), 1U);
    EXPECT_EQ(data["timezone"], Json::Value("Taipei"));
    EXPECT_EQ(data["serial"], Json::Value("AV0000000001"));
}

TEST_F(Reload, TimeZoneIsReadAfterTheNetwork) {
    WriteText(kConfigFile, "{}");
    network_.ipv6 = [](const std::string&) {
        WriteText(kDeviceSettings, "timezone=\"Taipei\"\n");
        return std::vector<std::string>();
    };
    EXPECT_TRUE(conf_.Reload());
    WriteText(kIdentityFile, "");
    const CapturedLog log(0);
    Json::Value data;
    conf_.DumpDataForAliasReq(data);
    EXPECT_EQ(data["timezone"], Json::Value("Taipei"));
}

TEST_F(Reload, LogLevelIsRaisedWhereTheKernelLogsAll) {
    WriteText(kConfigFile, R"({"log_level":3})");
    EXPECT_TRUE(conf_.Reload());
    EXPECT_EQ(Value()["log_level"], Json::Value(3));
    WriteText(kDeviceSettings, "kern_log_max=\"yes\"\n");
    EXPECT_TRUE(conf_.Reload());
    EXPECT_EQ(Value()["log_level"], Json::Value(7));
}

TEST_F(Reload, ServicesAreReadFromTheDeviceAnew) {
    WriteText(kConfigFile, R"({"service":[{"id":"ftp"}]})");
    EXPECT_TRUE(conf_.Reload());
    EXPECT_EQ(conf_.GetServices().at(0).GetPort(), 21);
    OfferAtPort("ftp", "2121");
    EXPECT_TRUE(conf_.Reload());
    ASSERT_EQ(conf_.GetServices().size(), 1U);
    EXPECT_EQ(conf_.GetServices()[0].GetPort(), 2121);
}

}  // namespace

}  // namespace ARDV::Relay
