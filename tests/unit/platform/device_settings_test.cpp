// SPDX-License-Identifier: Apache-2.0
// What single settings of the device say: its features, its dynamic DNS, its web server's default.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <filesystem>
#include <string>

#include <ardv/device_features.h>
#include <ardv/dynamic_dns.h>
#include <ardv/error.h>
#include <ardv/web_service.h>

#include "error_mark.h"
#include "made_file.h"

namespace ARDV::Platform::Test {

namespace {

using namespace std::string_literals;

constexpr const char* kFactorySettings = "/etc.defaults/ardvinfo.conf";
constexpr const char* kWebSettings = "/etc/ardv/web.conf";
const std::string kProviders = "/etc/ardv/ddns/";

/// The host name, or the code of the failure.
std::string HostName(const char* provider) {
    ARDV_DDNS_CONFIG config;
    std::memset(&config, 'x', sizeof(config));
    const int result = ARDVDDNSConfigGet(provider, &config);
    EXPECT_EQ(result == 0, config.hostname[0] != '\0');
    return result == 0 ? config.hostname : std::to_string(ALIBCErrGet());
}

std::string HostNameOf(const std::string& settings) {
    WriteText(kProviders + "ExampleDNS.conf", settings);
    return HostName("ExampleDNS");
}

const std::string kBadArgument = std::to_string(ARDV_ERR_INVALID_ARGUMENT);
const std::string kNoValue = std::to_string(ARDV_ERR_NO_VALUE);
const std::string kBadValue = std::to_string(ARDV_ERR_BAD_VALUE);

}  // namespace

TEST(DeviceFeature, IsThereWhenTheFactoryDefaultsSayYes) {
    WriteText(kFactorySettings, "supportddns=\"yes\"\nsupportfax=no\nsupportempty=\nsupportloud=YES\n");
    const ErrorMark mark;
    EXPECT_EQ(ALIBCSupportGet("supportddns"), 1);
    for (const char* feature : {"supportfax", "supportempty", "supportloud", "supportother"}) {
        EXPECT_EQ(ALIBCSupportGet(feature), 0) << feature;
    }
    EXPECT_TRUE(mark.IsThere());
}

TEST(DeviceFeature, IsMissingWithAReasonWhereNothingCanBeRead) {
    std::filesystem::remove_all(kFactorySettings);
    EXPECT_EQ(ALIBCSupportGet("supportddns"), 0);
    EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_NOT_FOUND);
    EXPECT_EQ(ALIBCSupportGet(nullptr), 0);
    EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(ALIBCSupportGet(""), 0);
}

TEST(DynamicDns, HasTheHostNameOfTheProvider) {
    EXPECT_EQ(HostNameOf("username=u\nhostname=\"nas.home.example\"\n"), "nas.home.example");
    EXPECT_EQ(HostNameOf("hostname=A_1-b.Example.\n"), "A_1-b.Example.");
    WriteText(kProviders + "USER Own DNS.conf", "hostname=own.example\n");
    EXPECT_EQ(HostName("USER Own DNS"), "own.example");
}

TEST(DynamicDns, FailsWithoutAHostName) {
    EXPECT_EQ(HostNameOf("username=u\n"), kNoValue);
    EXPECT_EQ(HostNameOf("hostname=\"\"\n"), kNoValue);
    EXPECT_EQ(HostName("NobodyDNS"), std::to_string(ARDV_ERR_NOT_FOUND));
    std::filesystem::create_directories(kProviders + "FolderDNS.conf");
    EXPECT_EQ(HostName("FolderDNS"), std::to_string(ARDV_ERR_NOT_REGULAR));
}

TEST(DynamicDns, FailsForWhatIsNoHostName) {
    for (const auto& name :
         {"nas home"s, "nas.example/x"s, "nas\x01.example"s, "n\xc3\xa4s.example"s, "a\0b"s, "a:80"s}) {
        EXPECT_EQ(HostNameOf("hostname=\"" + name + "\"\n"), kBadValue) << name;
    }
    EXPECT_EQ(HostNameOf("hostname=" + std::string(253, 'a') + "\n"), std::string(253, 'a'));
    EXPECT_EQ(HostNameOf("hostname=" + std::string(254, 'a') + "\n"), kBadValue);
}

TEST(DynamicDns, NeverLeavesItsFolder) {
    WriteText("/etc/ardv/stray.conf", "hostname=stray.example\n");
    WriteText(kProviders + "sub/inner.conf", "hostname=stray.example\n");
    WriteText(kProviders + ".hidden.conf", "hostname=stray.example\n");
    for (const char* provider :
         {"../stray", "sub/inner", "/etc/ardv/stray", ".hidden", ".", "..", "", "a\nb", "a\x7f"}) {
        EXPECT_EQ(HostName(provider), kBadArgument) << provider;
    }
}

TEST(DynamicDns, RefusesBadArguments) {
    EXPECT_EQ(HostName(nullptr), kBadArgument);
    EXPECT_EQ(HostName(std::string(129, 'p').c_str()), kBadArgument);
    EXPECT_EQ(HostName(std::string(128, 'p').c_str()), std::to_string(ARDV_ERR_NOT_FOUND));
    EXPECT_LT(ARDVDDNSConfigGet("ExampleDNS", nullptr), 0);
    EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_INVALID_ARGUMENT);
}

TEST(WebServersDefault, IsWhatTheWebSettingsSay) {
    WriteText(kWebSettings, "http_default_conf=\"yes\"\n");
    const ErrorMark mark;
    EXPECT_EQ(ARDVServiceIsHttpDefaultConf(), 1);
    for (const char* text : {"http_default_conf=no\n", "http_default_conf=Yes\n", "http_default_conf=\n", ""}) {
        WriteText(kWebSettings, text);
        EXPECT_EQ(ARDVServiceIsHttpDefaultConf(), 0) << text;
    }
    std::filesystem::remove_all(kWebSettings);
    EXPECT_EQ(ARDVServiceIsHttpDefaultConf(), 0);
    EXPECT_TRUE(mark.IsThere());
}

TEST(WebServersDefault, IsUnknownWhereTheSettingsCannotBeRead) {
    std::filesystem::remove_all(kWebSettings);
    std::filesystem::create_directories(kWebSettings);
    EXPECT_LT(ARDVServiceIsHttpDefaultConf(), 0);
    EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_NOT_REGULAR);
    std::filesystem::remove_all(kWebSettings);
}

}  // namespace ARDV::Platform::Test
