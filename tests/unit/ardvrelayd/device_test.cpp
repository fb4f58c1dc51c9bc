// SPDX-License-Identifier: Apache-2.0
#include "device.h"

#include <syslog.h>

#include <filesystem>
#include <string>

#include <relay/daemon/daemon.h>

#include "support/device_test.h"

using namespace ardv::test;
using namespace ardv::daemon;
using namespace ARDV::Relay;
using testing::Contains;

namespace {

namespace fs = std::filesystem;

const std::string kFile = "/usr/ardv/etc/ardvrelayd/other.conf";  // of the daemon's --config

class DaemonDeviceTest : public DeviceTest {
protected:
    static Device Load(const std::string& text) {
        WriteText(kFile, text);
        return Device(RelaydConf(kFile.c_str()), kFile);
    }

    static Json::Value Stored() { return JsonOf(ReadText(kFile)); }

    static void TellExternalHost(const std::string& host) {
        WriteText(kDeviceSettings, "timezone=\"Amsterdam\"\nexternal_host_ip=\"" + host + "\"\n");
    }

    static std::string HostOf(const Device& device) {
        Json::Value network;
        device.Network().Write(network, true);
        return network["fqdn"].asString();
    }
};

}  // namespace

TEST_F(DaemonDeviceTest, IsWantedByItsOwnerOrTheSupport) {
    EXPECT_FALSE(Load("{}").IsWanted());
    EXPECT_TRUE(Load(R"({"tethra":{"enabled":true}})").IsWanted());
    EXPECT_TRUE(Load(R"({"support_channel":{"enabled":true}})").IsWanted());
}

TEST_F(DaemonDeviceTest, TakesTheFileOverAgain) {
    auto device = Load(R"({"serverID":"box-1","own":1})");
    WriteText(kFile, R"({"serverID":"box-2","tethra":{"enabled":true}})");
    EXPECT_TRUE(device.Reload());
    EXPECT_EQ(device.Configuration().GetServerId(), "box-2");
    EXPECT_TRUE(device.IsWanted());
}

TEST_F(DaemonDeviceTest, ForgetsSettingsThatTheFileHasNoMore) {
    auto device = Load(R"({"serverID":"box-1","tethra":{"enabled":true},"log_level":7})");
    WriteText(kFile, "{}");
    EXPECT_TRUE(device.Reload());
    EXPECT_EQ(device.Configuration().GetServerId(), "");
    EXPECT_FALSE(device.IsWanted());
}

TEST_F(DaemonDeviceTest, StaysAsItIsWhereTheFilesSettingsAreNotValid) {
    auto device = Load(R"({"serverID":"box-1"})");
    WriteText(kFile, R"({"serverID":"box-2","server_control":{"protocol":"gopher"}})");
    const auto messages = MessagesAt(LOG_ERR, [&] { EXPECT_FALSE(device.Reload()); });
    EXPECT_THAT(messages, Contains("device.cpp the configuration " + kFile + " is not valid and is not taken over"));
    EXPECT_EQ(device.Configuration().GetServerId(), "box-1");
}

TEST_F(DaemonDeviceTest, StaysAsItIsWithoutAnUsableFile) {
    auto device = Load(R"({"serverID":"box-1","tethra":{"enabled":true}})");
    const CapturedLog quiet(0);
    for (const char* text : {"{\"tethra\":", "", "[]", "null"}) {
        WriteText(kFile, text);
        EXPECT_FALSE(device.Reload()) << text;
    }
    fs::remove(kFile);
    EXPECT_FALSE(device.Reload()) << "no file is no wish to switch everything off";
    EXPECT_EQ(device.Configuration().GetServerId(), "box-1");
    EXPECT_TRUE(device.IsWanted());
}

TEST_F(DaemonDeviceTest, PutsTheLogSettingsIntoForce) {
    auto device = Load("{}");
    WriteText(kFile, R"({"log_level":6,"log_file":"/var/log/other.log"})");
    const CapturedLog log;
    ASSERT_TRUE(device.Reload());
    EXPECT_EQ(Daemon::_logLevel, 6);
    EXPECT_EQ(Daemon::_strLogFile, "/var/log/other.log");
    EXPECT_FALSE(fs::exists("/var/log/other.log")) << "in the foreground the log stays where it is";
}

TEST_F(DaemonDeviceTest, StoresAnAssignedIdentifierAndKeepsTheRestOfTheFile) {
    auto device = Load(R"({"own":{"a":1},"server_control":{"host":"eu1.box.zz","port":8443}})");
    device.SetServerId("box-7");
    EXPECT_EQ(device.Configuration().GetServerId(), "box-7");
    EXPECT_EQ(Stored(),
              JsonOf(R"({"own":{"a":1},"server_control":{"host":"eu1.box.zz","port":8443},"serverID":"box-7"})"));
}

TEST_F(DaemonDeviceTest, StoresAnotherControlHostAndKeepsTheServersOtherSettings) {
    auto device = Load(R"({"own":1,"server_control":{"host":"eu1.box.zz","port":8443,"protocol":"http"}})");
    device.SetControlHost("eu2.box.zz");
    EXPECT_EQ(device.Configuration().GetControlServer().GetUrl(nullptr), "http://eu2.box.zz:8443/Serv.php");
    EXPECT_EQ(Stored(), JsonOf(R"({"own":1,"server_control":{"host":"eu2.box.zz","port":8443,"protocol":"http"}})"));
}

TEST_F(DaemonDeviceTest, StoresTheSmartDnsSetting) {
    auto device = Load(R"({"own":1,"server_smartdns":{"enabled":false,"more":2}})");
    device.SetSmartDns(true);
    EXPECT_TRUE(device.Configuration().IsSmartDNSEnabled());
    EXPECT_EQ(Stored(), JsonOf(R"({"own":1,"server_smartdns":{"enabled":true,"more":2}})"));
    device.SetSmartDns(false);
    EXPECT_EQ(Stored()["server_smartdns"]["enabled"], false);
}

TEST_F(DaemonDeviceTest, WritesNothingWhereNothingDiffers) {
    auto device =
        Load(R"({"serverID":"box-1","server_control":{"host":"eu1.box.zz"},"server_smartdns":{"enabled":true}})");
    fs::remove(kFile);
    device.SetServerId("box-1");
    device.SetControlHost("eu1.box.zz");
    device.SetSmartDns(true);
    EXPECT_FALSE(fs::exists(kFile));
}

TEST_F(DaemonDeviceTest, WorksOnWithWhatItCannotStore) {
    auto device = Load("{}");
    fs::create_directory(TemporaryOf(kFile));
    const auto messages = MessagesAt(LOG_ERR, [&] {
        device.SetServerId("box-7");
        device.SetControlHost("eu2.box.zz");
        device.SetSmartDns(true);
    });
    EXPECT_THAT(messages, Contains("device.cpp the server identifier is not stored"));
    EXPECT_THAT(messages, Contains("device.cpp the control server's host is not stored"));
    EXPECT_THAT(messages, Contains("device.cpp the SmartDNS setting is not stored"));
    EXPECT_EQ(device.Configuration().GetServerId(), "box-7");
    EXPECT_EQ(device.Configuration().GetControlServer().GetHost(), "eu2.box.zz");
    EXPECT_TRUE(device.Configuration().IsSmartDNSEnabled());
    EXPECT_EQ(ReadText(kFile), "{}");
}

TEST_F(DaemonDeviceTest, TellsWhetherTheNetworkIsAnotherOne) {
    TellExternalHost("one.zz");
    auto device = Load("{}");
    EXPECT_FALSE(device.RefreshNetwork());
    TellExternalHost("two.zz");
    EXPECT_TRUE(device.RefreshNetwork());
    EXPECT_FALSE(device.RefreshNetwork()) << "told once";
    EXPECT_EQ(HostOf(device), "two.zz");
}

TEST_F(DaemonDeviceTest, ReadsTheNetworkAgainWithTheFile) {
    TellExternalHost("one.zz");
    auto device = Load("{}");
    TellExternalHost("two.zz");
    ASSERT_TRUE(device.Reload());
    EXPECT_EQ(HostOf(device), "two.zz");
    EXPECT_FALSE(device.RefreshNetwork()) << "known already";
}

TEST_F(DaemonDeviceTest, ShowsWhatARegistrationIsAbout) {
    auto device = Load(R"({"serverID":"box-1","server_alias":{"alias":"attic"}})");
    const auto before = device.Registered();
    for (const char* same : {R"({"serverID":"box-1","server_alias":{"alias":"attic"},"log_level":7,"own":1})",
                             R"({"serverID":"box-1","server_alias":{"alias":"attic","poll_seconds":60}})",
                             R"({"serverID":"box-1","server_alias":{"alias":"attic"},"disable_holepunch":true})"}) {
        WriteText(kFile, same);
        ASSERT_TRUE(device.Reload());
        EXPECT_EQ(device.Registered(), before) << same;
    }
    for (const char* other :
         {R"({"serverID":"box-2","server_alias":{"alias":"attic"}})",
          R"({"serverID":"box-1","server_alias":{"alias":"loft"}})",
          R"({"serverID":"box-1","server_alias":{"alias":"attic"},"server_control":{"host":"eu9.box.zz"}})",
          R"({"serverID":"box-1","server_alias":{"alias":"attic"},"server_waitcmd":{"port":81}})",
          R"({"serverID":"box-1","server_alias":{"alias":"attic"},"server_smartdns":{"enabled":true}})",
          R"({"serverID":"box-1","server_alias":{"alias":"attic"},"service":[{"id":"x","port":1}]})"}) {
        WriteText(kFile, other);
        ASSERT_TRUE(device.Reload());
        EXPECT_NE(device.Registered(), before) << other;
    }
}

TEST_F(DaemonDeviceTest, HasWhatAnAliasRequestCarries) {
    auto device = Load(R"({"serverID":"box-1","server_alias":{"alias":"attic","url":"https://alias.box.zz"}})");
    const auto data = device.AliasData();
    EXPECT_EQ(data["alias"], "attic");
    EXPECT_EQ(data["url"], "https://alias.box.zz");
    EXPECT_EQ(data["id"], "box-1");
    EXPECT_EQ(data["serial"], "AV0000000001");
    EXPECT_EQ(data["token"], "0123456789abcdef0123456789abcdef");
}
