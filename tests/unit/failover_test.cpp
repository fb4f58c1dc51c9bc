// SPDX-License-Identifier: Apache-2.0
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <relay/common/deployment.h>
#include <relay/config/config.h>
#include <relay/request/request.h>

#include "support/curl_faults.h"
#include "support/device_test.h"
#include "support/http_server.h"
#include "support/platform_faults.h"
#include "support/system_log.h"

namespace ARDV::Relay {

namespace {

using namespace ardv::test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* kBundle = "/etc/ssl/certs/ca-certificates.crt";
constexpr const char* kPath = "/geo/country";
constexpr const char* kLock = "/etc/.ardvinfo.conf.lock";  // that of a writer of the device's settings
constexpr int kHttpsPort = 443;
const std::string kIPv4 = Deployment::kAddressCheckHostIPv4;
const std::string kIPv6 = Deployment::kAddressCheckHostIPv6;

/** A device whose address-check servers are one server on loopback, which tells them apart by the host asked for. */
class AddressCheck : public DeviceTest {
protected:
    static void SetUpTestSuite() {
        certificates_ = MakeCertificates({kIPv4, kIPv6});
        bundle_ = ReadText(kBundle);
    }

    AddressCheck() {
        WriteHosts("127.0.0.1", {kIPv4, kIPv6});
        WriteText(kBundle, bundle_ + ReadText(certificates_ + "/ca.pem"));
        Request::CleanDnsCache();
    }

    ~AddressCheck() override {
        WriteText(kBundle, bundle_);
        Request::CleanDnsCache();
    }

    void Serve(const std::string& certificate = "valid") {
        server_.reset();
        server_ = std::make_unique<HttpServer>(
            Certificate{certificates_ + "/" + certificate + ".pem", certificates_ + "/" + certificate + ".key"},
            kHttpsPort);
        server_->On(kPath, [this](const auto& request, auto& response) {
            response.status = status_;
            response.set_content(request.get_header_value("Host") == kIPv4 ? overIPv4_ : overIPv6_, "text/plain");
        });
    }

    /** The hosts that were asked, in order. */
    std::vector<std::string> Asked() const {
        std::vector<std::string> hosts;
        for (const auto& request : server_->Seen()) {
            hosts.push_back(request.get_header_value("Host"));
        }
        return hosts;
    }

    std::string overIPv4_ = "CN";
    std::string overIPv6_ = "NL";
    int status_ = 200;
    std::unique_ptr<HttpServer> server_;

private:
    static inline std::string certificates_;
    static inline std::string bundle_;
};

using Country = AddressCheck;
using Failover = AddressCheck;

TEST_F(Country, IsTheAnswerOverIPv4) {
    Serve();
    const CapturedLog log;
    EXPECT_EQ(RelaydConf::GetIPCountry(), "CN");
    EXPECT_THAT(Asked(), ElementsAre(kIPv4));
    EXPECT_EQ(log.Text(), "");
}

TEST_F(Country, IsAskedForByAGetWithoutData) {
    Serve();
    RelaydConf::GetIPCountry();
    const auto request = server_->Seen().at(0);
    EXPECT_EQ(request.method, "GET");
    EXPECT_EQ(request.target, std::string(kPath) + "?") << "with an empty query";
    EXPECT_EQ(request.body, "");
}

TEST_F(Country, MustBeAnsweredWithAConnectionWithinFiveSeconds) {
    Serve();
    const CurlFaults curl;
    RelaydConf::GetIPCountry();
    ASSERT_NE(curl.Last(CURLOPT_CONNECTTIMEOUT), nullptr);
    EXPECT_EQ(curl.Last(CURLOPT_CONNECTTIMEOUT)->number, 5);
}

TEST_F(Country, IsAskedForOverIPv6WhereTheFirstAnswerIsEmpty) {
    Serve();
    overIPv4_.clear();
    EXPECT_EQ(RelaydConf::GetIPCountry(), "NL");
    EXPECT_THAT(Asked(), ElementsAre(kIPv4, kIPv6));
    EXPECT_EQ(server_->Seen().at(1).path, kPath);
}

TEST_F(Country, IsEmptyWhereBothAnswersAre) {
    Serve();
    overIPv4_.clear();
    overIPv6_.clear();
    EXPECT_EQ(RelaydConf::GetIPCountry(), "");
    EXPECT_THAT(Asked(), ElementsAre(kIPv4, kIPv6));
}

TEST_F(Country, IsTheTextAsItCameWhateverItSays) {
    Serve();
    for (const char* text : {" ", "CN\n", "<html>sorry</html>", "cn", "0"}) {
        overIPv4_ = text;
        EXPECT_EQ(RelaydConf::GetIPCountry(), text);
    }
    EXPECT_THAT(Asked(), testing::Each(kIPv4));
}

TEST_F(Country, IsNotTakenFromAnAnswerThatIsNoSuccess) {
    Serve();
    for (const int status : {204, 404, 500}) {
        status_ = status;
        EXPECT_THAT(MessagesAt(7, [] { EXPECT_EQ(RelaydConf::GetIPCountry(), ""); }),
                    ElementsAre("config.cpp curl request failed", "config.cpp curl request failed"))
            << status;
    }
    EXPECT_THAT(Asked(), ElementsAre(kIPv4, kIPv6, kIPv4, kIPv6, kIPv4, kIPv6));
}

TEST_F(Country, IsEmptyWithAMessageForEachServerThatCannotBeReached) {
    const auto requestFailures = [](int level) {
        std::vector<std::string> messages;
        for (const auto& message : MessagesAt(level, [] { EXPECT_EQ(RelaydConf::GetIPCountry(), ""); })) {
            if (message.starts_with("config.cpp ")) {
                messages.push_back(message);
            }
        }
        return messages;
    };
    EXPECT_THAT(requestFailures(7), ElementsAre("config.cpp curl request failed", "config.cpp curl request failed"));
    EXPECT_THAT(requestFailures(6), IsEmpty());
}

TEST_F(Country, IsNotTakenFromAServerThatProvesNoName) {
    Serve("self-signed");
    const CapturedLog log(0);
    EXPECT_EQ(RelaydConf::GetIPCountry(), "");
    EXPECT_THAT(Asked(), IsEmpty());
}

TEST_F(Country, IsAskedForOverIPv6WhereTheFirstServerHasNoAddress) {
    Serve();
    WriteHosts("127.0.0.1", {kIPv6});
    const CapturedLog log(0);
    EXPECT_EQ(RelaydConf::GetIPCountry(), "NL");
    EXPECT_THAT(Asked(), ElementsAre(kIPv6));
}

TEST_F(Country, IsEmptyWithAMessageWhereARequestCannotBeSetUp) {
    Serve();
    CurlFaults curl;
    curl.noHandle = true;
    for (const int level : {7, 6}) {
        const auto messages = MessagesAt(level, [] { EXPECT_EQ(RelaydConf::GetIPCountry(), ""); });
        EXPECT_EQ(std::count(messages.begin(), messages.end(), "config.cpp curl init failed"), level == 7 ? 2 : 0);
    }
    EXPECT_THAT(Asked(), IsEmpty());
}

TEST_F(Country, IsNotAskedForWhereTheTimeLimitCannotBeSet) {
    Serve();
    for (const int level : {7, 6}) {
        CurlFaults curl;
        curl.Refuse(CURLOPT_CONNECTTIMEOUT, 2);  // the first one is part of the request's set-up
        const auto messages = MessagesAt(level, [] { EXPECT_EQ(RelaydConf::GetIPCountry(), "NL"); });
        EXPECT_EQ(std::count(messages.begin(), messages.end(), "config.cpp curl set timeout failed"),
                  level == 7 ? 1 : 0);
    }
    EXPECT_THAT(Asked(), ElementsAre(kIPv6, kIPv6));
}

TEST_F(Failover, IsOnOnlyIfTheSettingIsExactlyTrue) {
    Serve();
    for (const char* value : {"true", "false", "yes", "TRUE", "true ", "1", ""}) {
        const auto text = std::string("timezone=\"Amsterdam\"\ntethra_enable_failover=\"") + value + "\"\n";
        WriteText(kDeviceSettings, text);
        EXPECT_EQ(RelaydConf::SetTethraFailover(), std::string(value) == "true") << value;
        EXPECT_EQ(ReadText(kDeviceSettings), text);
    }
    EXPECT_THAT(Asked(), IsEmpty()) << "the country does not matter once the setting is there";
}

TEST_F(Failover, SettingIsReadIntoABufferOf64Bytes) {
    WriteText(kDeviceSettings, "tethra_enable_failover=\"false\"\n");
    PlatformFaults faults;
    EXPECT_FALSE(RelaydConf::SetTethraFailover());
    EXPECT_THAT(faults.calls, ElementsAre("GetKeyValue /etc/ardvinfo.conf tethra_enable_failover 64 0"));
}

TEST_F(Failover, IsSwitchedOnInOneCountryAndAskedForOnlyOnce) {
    Serve();
    EXPECT_TRUE(RelaydConf::SetTethraFailover());
    EXPECT_EQ(ReadText(kDeviceSettings), "timezone=\"Amsterdam\"\ntethra_enable_failover=\"true\"\n");
    EXPECT_TRUE(RelaydConf::SetTethraFailover());
    EXPECT_THAT(Asked(), ElementsAre(kIPv4));
}

TEST_F(Failover, CountryMayAlsoComeOverIPv6) {
    Serve();
    overIPv4_.clear();
    overIPv6_ = "CN";
    EXPECT_TRUE(RelaydConf::SetTethraFailover());
    EXPECT_THAT(ReadText(kDeviceSettings), HasSubstr("tethra_enable_failover=\"true\"\n"));
}

TEST_F(Failover, StaysOffInAnyOtherCountryAndIsAskedForAgain) {
    Serve();
    const auto before = ReadText(kDeviceSettings);
    std::size_t calls = 0;
    for (const char* country : {"NL", "cn", "CN\n", " CN", "CNX", "C", "<html>CN</html>"}) {
        overIPv4_ = country;
        EXPECT_FALSE(RelaydConf::SetTethraFailover()) << country;
        EXPECT_EQ(Asked().size(), ++calls) << country;
    }
    EXPECT_EQ(ReadText(kDeviceSettings), before);
}

TEST_F(Failover, StaysOffWhereNobodyKnowsTheCountry) {
    const auto before = ReadText(kDeviceSettings);
    const CapturedLog log(0);
    EXPECT_EQ(SystemLogOf([] { RelaydConf::SetTethraFailover(); }), "") << "it is no failure";
    EXPECT_FALSE(RelaydConf::SetTethraFailover());
    EXPECT_EQ(ReadText(kDeviceSettings), before);
}

// The system log is read in a child, which must begin before the server's thread does.
TEST_F(Failover, SettingThatCannotBeReadGoesToTheSystemLogAndAsksNobody) {
    std::filesystem::remove(kDeviceSettings);
    const CapturedLog log;
    EXPECT_THAT(SystemLogOf([] { RelaydConf::SetTethraFailover(); }),
                testing::MatchesRegex("<11>.*config\\.cpp:[0-9]+ Fail to get failover enable setting"));
    Serve();
    EXPECT_FALSE(RelaydConf::SetTethraFailover());
    EXPECT_EQ(log.Text(), "") << "the process's own log has no part in it";
    EXPECT_THAT(Asked(), IsEmpty());
    EXPECT_FALSE(std::filesystem::exists(kDeviceSettings));
}

TEST_F(Failover, SettingThatCannotBeWrittenGoesToTheSystemLogAndIsOff) {
    std::filesystem::remove(kLock);
    std::filesystem::create_directory(kLock);
    const CapturedLog log;
    const auto systemLog = SystemLogOf([this] {
        Serve();
        RelaydConf::SetTethraFailover();
        server_.reset();
    });
    EXPECT_THAT(systemLog, testing::MatchesRegex(
                               "<11>.*config\\.cpp:[0-9]+ ALIBCFileSetKeyValue \\[/etc/ardvinfo\\.conf\\] failed"));
    Serve();
    EXPECT_FALSE(RelaydConf::SetTethraFailover());
    EXPECT_EQ(log.Text(), "");
    EXPECT_EQ(ReadText(kDeviceSettings), "timezone=\"Amsterdam\"\n");
    std::filesystem::remove(kLock);
}

}  // namespace

}  // namespace ARDV::Relay
