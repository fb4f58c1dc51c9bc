// SPDX-License-Identifier: Apache-2.0
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <string>

#include <openssl/evp.h>

#include <relay/utils/utils.h>

#include "support/device_test.h"
#include "support/memory_faults.h"
#include "support/scratch_folder.h"
#include "support/web_server_faults.h"

namespace ARDV::Relay::Utils {

namespace {

using namespace ardv::test;
using ardvw3::W3Code;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kProbeFile = "/tmp/hos.ardvrelayd.conf";
constexpr const char* kWebSettings = "/etc/ardv/web.conf";

bool ProbeFileExists() {
    return std::filesystem::exists(std::filesystem::symlink_status(kProbeFile));
}

class Probe : public testing::Test {
protected:
    ~Probe() override {
        std::filesystem::remove_all(kProbeFile);
        std::filesystem::remove_all(TemporaryOf(kProbeFile));
    }

    WebServerFaults server;
};

TEST_F(Probe, IsHandedOverInTenLinesUnderItsName) {
    std::string text;
    mode_t mode = 0;
    server.onAction = [&] {
        text = ReadText(kProbeFile);
        mode = ModeOf(kProbeFile);
        return W3Code::kSuccess;
    };
    EXPECT_TRUE(SetPingpongNginxConf("abc"));
    EXPECT_EQ(text,
              "location ~ ^/webman/pingpong.cgi {\n"
              "\tdefault_type text/plain;\n"
              "\troot /usr/ardv/ardvman;\n"
              "\tif ($arg_tethra) {\n"
              "\t\tadd_header Access-Control-Allow-Origin *;\n"
              "\t\treturn 200 '{\"success\": true, \"nuid\": \"900150983cd24fb0d6963f7d28e17f72\"}';\n"
              "\t}\n"
              "\tinclude\tscgi_params;\n"
              "\tscgi_pass ardvscgi;\n"
              "}\n");
    EXPECT_EQ(mode, 0644U);
    EXPECT_FALSE(ProbeFileExists());
}

TEST_F(Probe, IsRegisteredWithoutForceByAnActionOfItsOwn) {
    ASSERT_TRUE(SetPingpongNginxConf("abc"));
    ASSERT_TRUE(SetPingpongNginxConf("abc"));
    ASSERT_EQ(server.actions.size(), 2U);
    for (const auto& [action, force] : server.actions) {
        EXPECT_NE(dynamic_cast<ardvw3::NginxConfRegActionRegAndEnable*>(action.get()), nullptr);
        EXPECT_FALSE(force);
        EXPECT_EQ(action.use_count(), 1) << "the caller keeps none";
    }
    EXPECT_NE(server.actions[0].first, server.actions[1].first);
}

TEST_F(Probe, TellsItsIdentifierAtLevelNineAlone) {
    ExpectMessage(9, "utils.cpp write nuid to nginx config: 900150983cd24fb0d6963f7d28e17f72",
                  [] { EXPECT_TRUE(SetPingpongNginxConf("abc")); });
    const CapturedLog log;
    SetPingpongNginxConf("abc");
    EXPECT_THAT(log.Lines(), ElementsAre("utils.cpp:255 write nuid to nginx config: 900150983cd24fb0d6963f7d28e17f72"));
}

TEST_F(Probe, OfAnEmptySeedIsRegisteredToo) {
    EXPECT_TRUE(SetPingpongNginxConf(""));
    EXPECT_EQ(server.actions.size(), 1U);
}

TEST_F(Probe, FailsWithoutAnIdentifierAndStillLeavesNoFile) {
    WriteText(kProbeFile, "of somebody else");
    ASSERT_EQ(EVP_set_default_properties(nullptr, "fips=yes"), 1);
    {
        const CapturedLog log(3);
        EXPECT_FALSE(SetPingpongNginxConf("abc"));
        EXPECT_THAT(log.Lines(), ElementsAre("utils.cpp:251 Generate nuid fail"));
    }
    EXPECT_THAT(MessagesAt(2, [] { SetPingpongNginxConf("abc"); }), IsEmpty());
    ASSERT_EQ(EVP_set_default_properties(nullptr, ""), 1);
    EXPECT_THAT(server.actions, IsEmpty());
    EXPECT_FALSE(ProbeFileExists());
}

TEST_F(Probe, FailsWhereItsFileCannotBeOpened) {
    std::filesystem::create_directory(TemporaryOf(kProbeFile));
    WriteText(kProbeFile, "of somebody else");
    const CapturedLog log(3);
    errno = EPERM;
    EXPECT_FALSE(SetPingpongNginxConf("abc"));
    EXPECT_THAT(log.Lines(),
                ElementsAre("utils.cpp:82 open failed [" + TemporaryOf(kProbeFile) + "]",
                            std::string("utils.cpp:269 write nginx conf ") + kProbeFile + " failed, File exists"));
    EXPECT_THAT(server.actions, IsEmpty());
    EXPECT_FALSE(ProbeFileExists());
}

TEST_F(Probe, FailsWithTheReasonWhereTheDiskIsFullAndLeavesTheUnfinishedFileBehind) {
    const MountedDisk disk("/tmp", 8192);
    WriteText(kProbeFile, "of somebody else");
    WriteText("/tmp/filler", std::string(4096, 'x'));
    const CapturedLog log(3);
    errno = EPERM;
    EXPECT_FALSE(SetPingpongNginxConf("abc"));
    EXPECT_THAT(log.Lines(), ElementsAre("utils.cpp:91 write file " + TemporaryOf(kProbeFile) + " failed",
                                         std::string("utils.cpp:269 write nginx conf ") + kProbeFile +
                                             " failed, No space left on device"));
    EXPECT_THAT(server.actions, IsEmpty());
    EXPECT_FALSE(ProbeFileExists());
    EXPECT_TRUE(std::filesystem::is_regular_file(TemporaryOf(kProbeFile)));
}

TEST_F(Probe, FailsWithAMessageOfLevelThreeWhereItIsNotRegistered) {
    for (const W3Code code : {W3Code::kRefused, W3Code::kInternal, W3Code(-1)}) {
        server.onAction = [code] { return code; };
        const CapturedLog log(3);
        EXPECT_FALSE(SetPingpongNginxConf("abc"));
        EXPECT_THAT(log.Lines(), ElementsAre("utils.cpp:279 register nginx conf failed"));
        EXPECT_FALSE(ProbeFileExists());
    }
    EXPECT_THAT(MessagesAt(2, [] { SetPingpongNginxConf("abc"); }), IsEmpty());
}

TEST_F(Probe, FailsAndLeavesNoFileWhereThePlatformThrows) {
    server.onAction = []() -> W3Code { throw std::runtime_error("a reason"); };
    const CapturedLog log(3);
    EXPECT_FALSE(SetPingpongNginxConf("abc"));
    EXPECT_FALSE(ProbeFileExists());
    EXPECT_FALSE(RemovePingpongNginxConf());
    EXPECT_THAT(log.Messages(),
                ElementsAre("utils.cpp exception caught: a reason", "utils.cpp exception caught: a reason"));
}

TEST_F(Probe, LeavesNoFileWhereverMemoryRunsOut) {
    const CapturedLog log(0);
    int failures = 0;
    for (bool isShort = true; isShort; ++failures) {
        bool done = false;
        isShort = IsShortOfMemory(failures, [&done] { done = SetPingpongNginxConf("abc"); });
        EXPECT_FALSE(ProbeFileExists()) << failures;
        EXPECT_TRUE(done || isShort) << failures;
    }
    EXPECT_GT(failures, 3);
}

TEST_F(Probe, IsRemovedWithoutForceByAnActionOfItsOwn) {
    const CapturedLog log;
    ASSERT_TRUE(RemovePingpongNginxConf());
    ASSERT_EQ(server.actions.size(), 1U);
    const auto& [action, force] = server.actions.front();
    EXPECT_NE(dynamic_cast<ardvw3::NginxConfRegActionDisableAndUnReg*>(action.get()), nullptr);
    EXPECT_FALSE(force);
    EXPECT_EQ(log.Text(), "");
}

TEST_F(Probe, CannotBeRemovedWhereThePlatformFails) {
    server.onAction = [] { return W3Code::kRefused; };
    ExpectMessage(3, "utils.cpp unregister nginx conf failed", [] { EXPECT_FALSE(RemovePingpongNginxConf()); });
    const CapturedLog log;
    RemovePingpongNginxConf();
    EXPECT_THAT(log.Lines(), ElementsAre("utils.cpp:300 unregister nginx conf failed"));
}

class RelayName : public testing::Test {
protected:
    RelayName() { WriteText(kWebSettings, "http_port=\"5000\"\n"); }
    ~RelayName() override { std::filesystem::remove_all(kWebSettings); }

    WebServerFaults server;
};

TEST_F(RelayName, IsRegisteredInTheWebSettings) {
    const CapturedLog log;
    EXPECT_TRUE(EnableRelaySNI("box1.tethra.zz"));
    EXPECT_EQ(ReadText(kWebSettings), "http_port=\"5000\"\nrelay_ddns=\"box1.tethra.zz\"\n");
    EXPECT_EQ(log.Text(), "");
}

TEST_F(RelayName, TakesThePlaceOfAnother) {
    ASSERT_TRUE(EnableRelaySNI("box1.tethra.zz"));
    EXPECT_TRUE(EnableRelaySNI("Box1.tethra.zz")) << "upper and lower case are different";
    EXPECT_EQ(ReadText(kWebSettings), "http_port=\"5000\"\nrelay_ddns=\"Box1.tethra.zz\"\n");
}

TEST_F(RelayName, IsLeftAloneWhereItIsRegisteredAlready) {
    ASSERT_TRUE(EnableRelaySNI("box1.tethra.zz"));
    server.calls.clear();
    ExpectMessage(7, "utils.cpp already enable smartdns sni", [] { EXPECT_TRUE(EnableRelaySNI("box1.tethra.zz")); });
    const CapturedLog log;
    EnableRelaySNI("box1.tethra.zz");
    EXPECT_THAT(log.Lines(), ElementsAre("utils.cpp:314 already enable smartdns sni"));
    EXPECT_THAT(server.calls, IsEmpty());
}

TEST_F(RelayName, ThatIsEmptyIsWhatADeviceWithoutOneHas) {
    EXPECT_TRUE(EnableRelaySNI(""));
    EXPECT_THAT(server.calls, IsEmpty());
}

TEST_F(RelayName, IsRefusedWhereItIsNoHostName) {
    ExpectMessage(3, "utils.cpp fail to enable tethra ddns", [] { EXPECT_FALSE(EnableRelaySNI("box 1.tethra.zz")); });
    const CapturedLog log;
    EnableRelaySNI("box1.tethra.zz\n");
    EXPECT_THAT(log.Lines(), ElementsAre("utils.cpp:320 fail to enable tethra ddns"));
    EXPECT_THAT(server.calls, testing::Not(testing::Contains("set")));
    EXPECT_EQ(ReadText(kWebSettings), "http_port=\"5000\"\n");
}

TEST_F(RelayName, IsNotRegisteredWhereThePlatformRefusesIt) {
    server.enableFails = true;
    const CapturedLog log(3);
    EXPECT_FALSE(EnableRelaySNI("box1.tethra.zz"));
    EXPECT_THAT(log.Lines(), ElementsAre("utils.cpp:320 fail to enable tethra ddns"));
    EXPECT_THAT(server.calls, ElementsAre("enable box1.tethra.zz"));
}

TEST_F(RelayName, IsNotRegisteredWhereTheSettingsCannotBeWritten) {
    std::filesystem::remove(kWebSettings);
    std::filesystem::create_directory(kWebSettings);
    ExpectMessage(3, "utils.cpp fail to set ardvw3 HOS", [] { EXPECT_FALSE(EnableRelaySNI("box1.tethra.zz")); });
    const CapturedLog log;
    EnableRelaySNI("box1.tethra.zz");
    EXPECT_THAT(log.Lines(), ElementsAre("utils.cpp:325 fail to set ardvw3 HOS"));
}

TEST_F(RelayName, IsWithdrawn) {
    ASSERT_TRUE(EnableRelaySNI("box1.tethra.zz"));
    server.calls.clear();
    const CapturedLog log;
    EXPECT_TRUE(DisableRelaySNI());
    EXPECT_EQ(ReadText(kWebSettings), "http_port=\"5000\"\nrelay_ddns=\"\"\n");
    EXPECT_TRUE(DisableRelaySNI());
    EXPECT_THAT(server.calls, ElementsAre("disable", "set", "disable", "set")) << "it is committed without a look";
    EXPECT_EQ(log.Text(), "");
}

TEST_F(RelayName, IsNotWithdrawnWhereThePlatformRefusesIt) {
    server.disableFails = true;
    ExpectMessage(3, "utils.cpp fail to disable tethra ddns", [] { EXPECT_FALSE(DisableRelaySNI()); });
    const CapturedLog log;
    DisableRelaySNI();
    EXPECT_THAT(log.Lines(), ElementsAre("utils.cpp:339 fail to disable tethra ddns"));
    EXPECT_THAT(server.calls, testing::Each("disable"));
}

TEST_F(RelayName, IsNotWithdrawnWhereTheSettingsCannotBeWritten) {
    server.setFails = true;
    ExpectMessage(3, "utils.cpp fail to set ardvw3 HOS", [] { EXPECT_FALSE(DisableRelaySNI()); });
    const CapturedLog log;
    DisableRelaySNI();
    EXPECT_THAT(log.Lines(), ElementsAre("utils.cpp:344 fail to set ardvw3 HOS"));
}

TEST_F(RelayName, IsSafeWhereverMemoryRunsOut) {
    const std::string name = "box1.tethra.zz";
    const CapturedLog log(0);
    int failures = 0;
    for (bool isShort = true; isShort; ++failures) {
        WriteText(kWebSettings, "");
        bool done = false;
        isShort = IsShortOfMemory(failures, [&] { done = EnableRelaySNI(name); });
        EXPECT_EQ(ReadText(kWebSettings), done ? "relay_ddns=\"box1.tethra.zz\"\n" : "") << failures;
    }
    EXPECT_GT(failures, 3);
}

}  // namespace

}  // namespace ARDV::Relay::Utils
