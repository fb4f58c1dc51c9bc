// SPDX-License-Identifier: Apache-2.0
#include <relay/utils/utils.h>

#include <filesystem>
#include <set>
#include <string>

#include "support/device_test.h"
#include "support/nginx_server.h"

namespace {

using namespace ardv::test;
using namespace ARDV::Relay;
using testing::ElementsAre;

constexpr const char* kProbe = "/webman/pingpong.cgi?tethra=1";
constexpr const char* kFragment = "/etc/ardv/nginx.d/hos.ardvrelayd.conf";
constexpr const char* kTemporary = "/tmp/hos.ardvrelayd.conf";
constexpr const char* kIdentifierOfAbc = "900150983cd24fb0d6963f7d28e17f72";

WebAnswer Identified(const std::string& identifier) {
    return {200, "text/plain", "*", R"({"success": true, "nuid": ")" + identifier + "\"}"};
}

/** The device's portal, with a program behind it. */
class Portal : public testing::Test {
protected:
    void SetUp() override {
        if (!NginxServer::IsInstalled()) {
            GTEST_SKIP() << "nginx isn't installed";
        }
        nginx.Start();
    }

    NginxServer nginx;
    ScgiPeer program{"/run/ardv/scgi.sock"};
};

TEST_F(Portal, AnswersAProbeThatCarriesTheArgument) {
    const CapturedLog log(7);
    ASSERT_TRUE(Utils::SetPingpongNginxConf("abc"));
    EXPECT_EQ(NginxServer::Get(kProbe), Identified(kIdentifierOfAbc));
    EXPECT_EQ(NginxServer::Get("/webman/pingpong.cgi?a=b&tethra=yes"), Identified(kIdentifierOfAbc));
    EXPECT_EQ(log.Text(), "");
    EXPECT_FALSE(std::filesystem::exists(kTemporary));
}

TEST_F(Portal, PassesARequestWithoutTheArgumentOnToTheProgramBehindIt) {
    ASSERT_TRUE(Utils::SetPingpongNginxConf("abc"));
    for (const char* target : {"/webman/pingpong.cgi", "/webman/pingpong.cgi?tethra=", "/webman/pingpong.cgi?tethra"}) {
        const WebAnswer passedOn = {200, "text/x-scgi", "", std::string("scgi ") + target + " /usr/ardv/ardvman"};
        EXPECT_EQ(NginxServer::Get(target), passedOn);
    }
}

TEST_F(Portal, AnswersWithTheLatestIdentifierAsSoonAsItIsRegistered) {
    for (int round = 0; round < 5; ++round) {
        const std::string seed = "device " + std::to_string(round);
        ASSERT_TRUE(Utils::SetPingpongNginxConf(seed));
        for (int request = 0; request < 100; ++request) {
            ASSERT_EQ(NginxServer::Get(kProbe), Identified(Utils::GetNuid(seed))) << round << " " << request;
        }
    }
}

TEST_F(Portal, ForgetsTheProbeAsSoonAsItIsRemoved) {
    ASSERT_TRUE(Utils::SetPingpongNginxConf("abc"));
    const CapturedLog log;
    ASSERT_TRUE(Utils::RemovePingpongNginxConf());
    for (int request = 0; request < 100; ++request) {
        ASSERT_EQ(NginxServer::Get(kProbe).status, 404);
    }
    EXPECT_FALSE(std::filesystem::exists(kFragment));
    EXPECT_EQ(log.Text(), "");
}

TEST_F(Portal, RemovesAProbeThatIsNotRegistered) {
    EXPECT_TRUE(Utils::RemovePingpongNginxConf());
}

TEST_F(Portal, KeepsTheOldAnswerWhereAnotherProgramsFragmentIsBroken) {
    ASSERT_TRUE(Utils::SetPingpongNginxConf("abc"));
    const std::string registered = ReadText(kFragment);
    WriteText("/etc/ardv/nginx.d/other.conf", "nonsense;\n");
    const CapturedLog log(3);
    EXPECT_FALSE(Utils::SetPingpongNginxConf("other"));
    EXPECT_FALSE(Utils::RemovePingpongNginxConf());
    EXPECT_THAT(log.Lines(),
                ElementsAre("utils.cpp:279 register nginx conf failed", "utils.cpp:300 unregister nginx conf failed"));
    EXPECT_EQ(ReadText(kFragment), registered);
    EXPECT_EQ(NginxServer::Get(kProbe), Identified(kIdentifierOfAbc));
    EXPECT_FALSE(std::filesystem::exists(kTemporary));
}

TEST_F(Portal, IsNotLedAstrayByALinkInThePlaceOfTheTemporaryFile) {
    WriteText("/etc/ardv/precious", "keep");
    std::filesystem::create_symlink("/etc/ardv/precious", kTemporary);
    EXPECT_TRUE(Utils::SetPingpongNginxConf("abc"));
    EXPECT_EQ(NginxServer::Get(kProbe), Identified(kIdentifierOfAbc));
    EXPECT_EQ(ReadText("/etc/ardv/precious"), "keep");
    EXPECT_FALSE(std::filesystem::is_symlink(kTemporary));
}

}  // namespace
