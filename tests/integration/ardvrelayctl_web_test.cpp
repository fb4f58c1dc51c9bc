// SPDX-License-Identifier: Apache-2.0
#include <filesystem>

#include "ardvrelayctl_device.h"
#include "support/nginx_server.h"

namespace ardv::test {
namespace {

using testing::HasSubstr;

constexpr const char kProbe[] = "/webman/pingpong.cgi?tethra=1";
constexpr const char kFragment[] = "/etc/ardv/nginx.d/hos.ardvrelayd.conf";
constexpr const char kIdentifierOfAbc[] = "900150983cd24fb0d6963f7d28e17f72";
constexpr const char kIdentifierOfSerial[] = "e4846df0866e679e0cb30e3eef8f2df9";

class ArdvrelayctlNetwork : public ArdvrelayctlDevice {};

TEST_F(ArdvrelayctlNetwork, ShowsNamesAndAddresses) {
    WriteText(kFactorySettings, "upnpmodelname=\"AV-220\"\nsupportddns=\"yes\"\n");
    WriteText(kDeviceSettings,
              "external_host_ip=\"nas\x1b.home.example\"\nddns_update=\"yes\"\nddns_select=\"ExampleDNS\"\n");
    WriteText("/etc/ardv/ddns/ExampleDNS.conf", "hostname=\"nas.ddns.example\"\n");
    const auto result = Run({"network", "show"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out,
              "no wired interface has an address\ngateway: (none)\ndynamic DNS name: nas.ddns.example\nexternal host "
              "name: nas?.home.example\n");
    const auto shown = RunJson({"network", "show"});
    EXPECT_EQ(shown["ddns"], "nas.ddns.example");
    EXPECT_EQ(shown["interface"], JsonOf("[]"));
    std::filesystem::remove_all("/etc/ardv/ddns");
}

class ArdvrelayctlWeb : public ArdvrelayctlDevice {
protected:
    void SetUp() override {
        if (!NginxServer::IsInstalled()) {
            GTEST_SKIP() << "nginx isn't installed";
        }
        nginx.Start();
    }

    static WebAnswer Identified(const std::string& identifier) {
        return {200, "text/plain", "*", R"({"success": true, "nuid": ")" + identifier + "\"}"};
    }

    NginxServer nginx;
    ScgiPeer program{"/run/ardv/scgi.sock"};
};

TEST_F(ArdvrelayctlWeb, SwitchesTheProbeOnAndOff) {
    const auto on = Run({"web", "probe", "on", "--seed", "abc"});
    EXPECT_EQ(on.exitCode, 0) << on.err;
    EXPECT_EQ(on.out, std::string("the web server answers the probe with ") + kIdentifierOfAbc + "\n");
    EXPECT_EQ(NginxServer::Get(kProbe), Identified(kIdentifierOfAbc));
    const auto off = Run({"web", "probe", "off"});
    EXPECT_EQ(off.exitCode, 0) << off.err;
    EXPECT_NE(NginxServer::Get(kProbe), Identified(kIdentifierOfAbc));
    EXPECT_FALSE(std::filesystem::exists(kFragment));
}

TEST_F(ArdvrelayctlWeb, TakesTheSerialNumberUnlessItIsGivenASeed) {
    EXPECT_EQ(RunJson({"web", "probe", "on"}),
              JsonOf(R"({"probe":"on","nuid":")" + std::string(kIdentifierOfSerial) + "\"}"));
    EXPECT_EQ(NginxServer::Get(kProbe), Identified(kIdentifierOfSerial));
    EXPECT_EQ(RunJson({"web", "probe", "off"}), JsonOf(R"({"probe":"off"})"));
    std::filesystem::remove(kIdentityFile);
    const auto result = Run({"web", "probe", "on"});
    EXPECT_EQ(result.exitCode, 78);
    EXPECT_THAT(result.err, HasSubstr("--seed does without one"));
    EXPECT_EQ(Run({"web", "probe", "on", "--seed", ""}).exitCode, 64);
}

TEST_F(ArdvrelayctlWeb, SaysThatTheWebServerDidNotTakeTheProbe) {
    WriteText("/etc/ardv/nginx.d/foreign.conf", "no such directive;\n");
    const auto result = Run({"web", "probe", "on", "--seed", "abc"});
    EXPECT_EQ(result.exitCode, 69);
    EXPECT_THAT(result.err, HasSubstr("the web server did not take the probe"));
    EXPECT_FALSE(std::filesystem::exists(kFragment));
    EXPECT_EQ(RunJson({"web", "probe", "on", "--seed", "abc"})["exit_code"], 69);
    std::filesystem::remove("/etc/ardv/nginx.d/foreign.conf");
}

}  // namespace
}  // namespace ardv::test
