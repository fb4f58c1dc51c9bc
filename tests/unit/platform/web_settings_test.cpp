// SPDX-License-Identifier: Apache-2.0
#include <ardvw3/hos.h>
#include <ardvw3/www_service.h>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include <ardv/error.h>

#include "made_file.h"

namespace ARDV::Platform::Test {

namespace {

using namespace std::string_literals;

constexpr const char* kFile = "/etc/ardv/web.conf";

}  // namespace

class WebSettings : public testing::Test {
protected:
    void SetUp() override {
        std::filesystem::remove_all(kFile);
        std::filesystem::create_directories("/etc/ardv");
    }

    static void Provide(const std::string& text) { WriteText(kFile, text); }

    ardvw3::Engine engine_;
    ardvw3::HOS settings_{engine_};
};

TEST_F(WebSettings, AreTheDefaultsWithoutAFile) {
    EXPECT_EQ(settings_.GetHttpPort(), 5000);
    EXPECT_EQ(settings_.GetHttpsPort(), 5001);
    EXPECT_FALSE(settings_.GetEnableSPDY());
    EXPECT_FALSE(ardvw3::WWWService(engine_).GetEnableSPDY());
    EXPECT_FALSE(settings_.GetEnableHttpsRedirect());
    EXPECT_EQ(settings_.GetRelayDDNS(), "");
}

TEST_F(WebSettings, AreThoseOfTheFile) {
    Provide("http_port=80\nhttps_port=\"443\"\nhttp2=yes\nhttps_redirect='yes'\nrelay_ddns=\"box1.tethra.zz\"\n");
    EXPECT_EQ(settings_.GetHttpPort(), 80);
    EXPECT_EQ(settings_.GetHttpsPort(), 443);
    EXPECT_TRUE(settings_.GetEnableSPDY());
    EXPECT_TRUE(settings_.GetEnableHttpsRedirect());
    EXPECT_EQ(settings_.GetRelayDDNS(), "box1.tethra.zz");
}

TEST_F(WebSettings, AreReadAnewByEachCall) {
    Provide("http_port=80\n");
    ASSERT_EQ(settings_.GetHttpPort(), 80);
    Provide("http_port=8080\n");
    EXPECT_EQ(settings_.GetHttpPort(), 8080);
}

TEST_F(WebSettings, TakeAPortThatIsNoneForTheDefault) {
    for (const char* port : {"0", "65536", "-1", "+80", "80x", "x", " ", "8 0", "99999999999999999999", ""}) {
        Provide("http_port=\""s + port + "\"\nhttps_port=\"" + port + "\"\n");
        EXPECT_EQ(settings_.GetHttpPort(), 5000) << port;
        EXPECT_EQ(settings_.GetHttpsPort(), 5001) << port;
    }
    Provide("http_port=1\nhttps_port=65535\n");
    EXPECT_EQ(settings_.GetHttpPort(), 1);
    EXPECT_EQ(settings_.GetHttpsPort(), 65535);
}

TEST_F(WebSettings, SwitchOnByYesAlone) {
    for (const char* value : {"no", "Yes", "true", "1", "", "yes "}) {
        Provide("http2=\""s + value + "\"\nwww_http2=\"" + value + "\"\nhttps_redirect=\"" + value + "\"\n");
        EXPECT_FALSE(settings_.GetEnableSPDY()) << value;
        EXPECT_FALSE(settings_.GetEnableHttpsRedirect()) << value;
        EXPECT_FALSE(ardvw3::WWWService(engine_).GetEnableSPDY()) << value;
    }
}

TEST_F(WebSettings, KeepThePortalsHttp2ApartFromTheWebServices) {
    Provide("www_http2=yes\n");
    EXPECT_TRUE(ardvw3::WWWService(engine_).GetEnableSPDY());
    EXPECT_FALSE(settings_.GetEnableSPDY());
    Provide("http2=yes\n");
    EXPECT_FALSE(ardvw3::WWWService(engine_).GetEnableSPDY());
}

TEST_F(WebSettings, ChangeWhenTheyAreCommitted) {
    Provide("# mine\nhttp_port=80\n");
    ASSERT_EQ(settings_.SetEnableRelayDDNS("box1.tethra.zz"), 0);
    EXPECT_EQ(ReadText(kFile), "# mine\nhttp_port=80\n");
    EXPECT_EQ(settings_.GetRelayDDNS(), "") << "what isn't committed doesn't show";
    EXPECT_TRUE(settings_.Set());
    EXPECT_EQ(ReadText(kFile), "# mine\nhttp_port=80\nrelay_ddns=\"box1.tethra.zz\"\n");
    EXPECT_EQ(settings_.GetRelayDDNS(), "box1.tethra.zz");
}

TEST_F(WebSettings, CommitOnlyTheLatestChangeAndOnlyOnce) {
    ASSERT_EQ(settings_.SetDisableRelayDDNS(), 0);
    ASSERT_EQ(settings_.SetEnableRelayDDNS("a.tethra.zz"), 0);
    ASSERT_EQ(settings_.SetEnableRelayDDNS("b.tethra.zz"), 0);
    ASSERT_TRUE(settings_.Set());
    EXPECT_EQ(settings_.GetRelayDDNS(), "b.tethra.zz");
    Provide("relay_ddns=\"c.tethra.zz\"\n");
    EXPECT_TRUE(settings_.Set());
    EXPECT_EQ(settings_.GetRelayDDNS(), "c.tethra.zz") << "nothing was noted";
}

TEST_F(WebSettings, WriteNothingWhereNothingIsNoted) {
    EXPECT_TRUE(settings_.Set());
    EXPECT_FALSE(std::filesystem::exists(kFile));
}

TEST_F(WebSettings, NeedTheirFolder) {
    std::filesystem::remove_all("/etc/ardv");
    ASSERT_EQ(settings_.SetEnableRelayDDNS("box1.tethra.zz"), 0);
    EXPECT_FALSE(settings_.Set());
    EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_NOT_FOUND);
}

TEST_F(WebSettings, ForgetWhatIsNotCommitted) {
    {
        ardvw3::HOS others(engine_);
        ASSERT_EQ(others.SetEnableRelayDDNS("a.tethra.zz"), 0);
    }
    EXPECT_TRUE(settings_.Set());
    EXPECT_FALSE(std::filesystem::exists(kFile));
}

TEST_F(WebSettings, DropTheNameByAnEmptyValue) {
    Provide("relay_ddns=\"box1.tethra.zz\"\n");
    ASSERT_EQ(settings_.SetDisableRelayDDNS(), 0);
    EXPECT_TRUE(settings_.Set());
    EXPECT_EQ(ReadText(kFile), "relay_ddns=\"\"\n");
    EXPECT_EQ(settings_.GetRelayDDNS(), "");
}

TEST_F(WebSettings, AreLeftAloneWhereThereIsNoNameToDrop) {
    for (const char* text : {"", "http_port=80\n", "relay_ddns=\n", "relay_ddns=''\n"}) {
        Provide(text);
        ASSERT_EQ(settings_.SetDisableRelayDDNS(), 0);
        EXPECT_TRUE(settings_.Set());
        EXPECT_EQ(ReadText(kFile), text);
    }
    std::filesystem::remove(kFile);
    ASSERT_EQ(settings_.SetDisableRelayDDNS(), 0);
    EXPECT_TRUE(settings_.Set());
    EXPECT_FALSE(std::filesystem::exists(kFile));
}

TEST_F(WebSettings, RefuseWhatIsNoHostName) {
    const std::string longest(253, 'a');
    for (const std::string& name :
         {""s, " "s, "a b"s, "a\n"s, "a\"b"s, "a_b"s, "a/b"s, "\xc3\xa9.zz"s, "a\0b"s, longest + "a"}) {
        EXPECT_LT(settings_.SetEnableRelayDDNS(name), 0) << name;
        EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_INVALID_ARGUMENT);
        EXPECT_STREQ(ALIBCErrorGetFile(), "web_settings.cpp");
    }
    EXPECT_TRUE(settings_.Set());
    EXPECT_FALSE(std::filesystem::exists(kFile)) << "nothing was noted";
    EXPECT_EQ(settings_.SetEnableRelayDDNS(longest), 0);
    EXPECT_TRUE(settings_.Set());
    EXPECT_EQ(settings_.GetRelayDDNS(), longest);
}

TEST_F(WebSettings, StayNotedWhereTheyCannotBeWritten) {
    std::filesystem::create_directory(kFile);
    ASSERT_EQ(settings_.SetEnableRelayDDNS("box1.tethra.zz"), 0);
    EXPECT_FALSE(settings_.Set());
    EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_NOT_REGULAR);
    std::filesystem::remove(kFile);
    EXPECT_TRUE(settings_.Set());
    EXPECT_EQ(settings_.GetRelayDDNS(), "box1.tethra.zz");
}

TEST_F(WebSettings, CannotDropANameThatTheyCannotSee) {
    std::filesystem::create_directory(kFile);
    ASSERT_EQ(settings_.SetDisableRelayDDNS(), 0);
    EXPECT_FALSE(settings_.Set());
}

TEST_F(WebSettings, ShowTheStartOfANameOfAnyLength) {
    Provide("relay_ddns=" + std::string(5000, 'a') + "\n");
    EXPECT_EQ(settings_.GetRelayDDNS(), std::string(1023, 'a'));
}

}  // namespace ARDV::Platform::Test
