// SPDX-License-Identifier: Apache-2.0
#include <relay/config/auth_conf.h>

#include <filesystem>
#include <string>

#include <relay/config/config.h>

#include "support/device_test.h"
#include "support/platform_faults.h"

namespace ARDV::Relay {

namespace {

using namespace ardv::test;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char kDeviceWritten[] =
    "{\"key\":\"example-api-key\",\"mac\":\"02:00:5e:10:00:01\",\"model\":\"AV-220\",\"serial\":\"AV0000000001\","
    "\"timezone\":\"Amsterdam\",\"token\":\"0123456789abcdef0123456789abcdef\"}\n";
constexpr const char kUnreadWritten[] =
    "{\"key\":\"\",\"mac\":\"\",\"model\":\"\",\"serial\":\"\",\"timezone\":\"Amsterdam\",\"token\":\"\"}\n";

class AuthConfTest : public DeviceTest {
protected:
    static std::string Member(const AuthConf& auth, const char* key) {
        Json::Value value;
        auth.Write(value, true);
        return value[key].asString();
    }
};

TEST_F(AuthConfTest, HoldsTheTimeZoneAloneWithoutReading) {
    const AuthConf auth(false);
    EXPECT_EQ(Written(auth, true), kUnreadWritten);
    EXPECT_FALSE(auth.IsValid());
}

TEST_F(AuthConfTest, ReadsTheIdentityFromTheDevice) {
    const CapturedLog log;
    const AuthConf auth(true);
    EXPECT_EQ(Written(auth, true), kDeviceWritten);
    EXPECT_TRUE(auth.IsValid());
    EXPECT_EQ(log.Text(), "");
}

TEST_F(AuthConfTest, AsksThePlatformWithTheseSizes) {
    AuthConf auth(false);
    PlatformFaults faults;
    EXPECT_TRUE(auth.ReadConf());
    EXPECT_THAT(faults.calls,
                ElementsAre("GetToken 36 33", "GetKeyValue /etc.defaults/ardvinfo.conf upnpmodelname 1024 0",
                            "GetMacAddress 1024", "GetApiKey 0"));
}

TEST_F(AuthConfTest, TimeZoneIsReadEvenWhereTheRestIsNot) {
    PlatformFaults faults;
    const AuthConf auth(false);
    EXPECT_THAT(faults.calls, ElementsAre("GetKeyValue /etc/ardvinfo.conf timezone 256 0"));
}

TEST_F(AuthConfTest, FailedReadLeavesTheObjectAsItWas) {
    AuthConf auth(true);
    PlatformFaults faults;
    const CapturedLog log(0);
    for (const char* function : {"GetToken", "GetKeyValue"}) {
        faults.platformFails = [function](const std::string& name) { return name == function; };
        EXPECT_FALSE(auth.ReadConf()) << function;
        EXPECT_EQ(Written(auth, true), kDeviceWritten) << function;
    }
}

TEST_F(AuthConfTest, MissingIdentityIsAMessageWithThePlatformsError) {
    std::filesystem::remove(kIdentityFile);
    AuthConf auth(false);
    const CapturedLog log(3);
    EXPECT_FALSE(auth.ReadConf());
    EXPECT_THAT(log.Messages(),
                ElementsAre(testing::MatchesRegex("auth_conf.cpp ARDVCloudServiceHstokenGetToken failed: "
                                                  "\\[0x0400 [a-z_]+\\.cpp:[0-9]+\\]")));
    EXPECT_EQ(Written(auth, true), kUnreadWritten);
    EXPECT_THAT(MessagesAt(2, [&] { auth.ReadConf(); }), IsEmpty());
}

TEST_F(AuthConfTest, MissingFactorySettingsAreAMessageWithThePlatformsError) {
    std::filesystem::remove(kFactorySettings);
    AuthConf auth(false);
    const CapturedLog log(3);
    EXPECT_FALSE(auth.ReadConf());
    EXPECT_THAT(log.Messages(), ElementsAre(testing::MatchesRegex("auth_conf.cpp ALIBCFileGetKeyValue failed: "
                                                                  "\\[0x0400 [a-z_]+\\.cpp:[0-9]+\\]")));
    EXPECT_EQ(Written(auth, true), kUnreadWritten);
    EXPECT_THAT(MessagesAt(2, [&] { auth.ReadConf(); }), IsEmpty());
}

TEST_F(AuthConfTest, ResultOfTheReadIsDroppedByTheConstructor) {
    std::filesystem::remove(kIdentityFile);
    const CapturedLog log(3);
    const AuthConf auth(true);
    EXPECT_EQ(log.Messages().size(), 1U);
    EXPECT_EQ(Written(auth, true), kUnreadWritten);
}

TEST_F(AuthConfTest, DeviceWithoutAModelNameIsReadAllTheSame) {
    WriteText(kFactorySettings, "other=\"1\"\n");
    const AuthConf auth(true);
    EXPECT_EQ(Member(auth, "model"), "");
    EXPECT_TRUE(auth.IsValid());
}

TEST_F(AuthConfTest, DeviceWithoutAnApiKeyIsReadAllTheSame) {
    WriteText(kIdentityFile, "serial=\"S\"\ntoken=\"T\"\nmac=\"02:00:5e:10:00:02\"\n");
    const AuthConf auth(true);
    EXPECT_EQ(Member(auth, "key"), "");
    EXPECT_TRUE(auth.IsValid());
}

TEST_F(AuthConfTest, ApiKeyThatVanishedIsEmptyAfterTheNextRead) {
    AuthConf auth(true);
    ASSERT_EQ(Member(auth, "key"), "example-api-key");
    WriteText(kIdentityFile, "serial=\"S\"\ntoken=\"T\"\nmac=\"02:00:5e:10:00:02\"\n");
    EXPECT_TRUE(auth.ReadConf());
    EXPECT_EQ(Member(auth, "key"), "");
    EXPECT_EQ(Member(auth, "serial"), "S");
}

TEST_F(AuthConfTest, DeviceWithoutAMacAddressIsReadAllTheSame) {
    WriteText(kIdentityFile, "serial=\"S\"\ntoken=\"T\"\napi_key=\"K\"\nmac=\"none\"\n");
    AuthConf auth(false);
    const CapturedLog log(3);
    EXPECT_TRUE(auth.ReadConf());
    EXPECT_THAT(log.Messages(), ElementsAre("auth_conf.cpp invalid mac address"));
    EXPECT_EQ(Member(auth, "serial"), "S");
    EXPECT_EQ(Member(auth, "key"), "K");
    EXPECT_FALSE(auth.IsValid());
}

TEST_F(AuthConfTest, MacAddressIsTheDevicesWhicheverInterfaceIsNamed) {
    for (const char* name : {"eth0", "eth7", "", "lo"}) {
        EXPECT_EQ(AuthConf::RelaydGetMacAddressByIf(name), "02:00:5e:10:00:01") << name;
    }
    EXPECT_EQ(AuthConf::RelaydGetMacAddressByIf(nullptr), "02:00:5e:10:00:01");
    EXPECT_EQ(AuthConf::GetMacAddress(), "02:00:5e:10:00:01");
}

TEST_F(AuthConfTest, MacAddressIsEmptyAfterAFailureThatLeftTextInTheBuffer) {
    PlatformFaults faults;
    faults.platformFails = [](const std::string& name) { return name == "GetMacAddress"; };
    EXPECT_THAT(MessagesAt(9, [] { EXPECT_EQ(AuthConf::RelaydGetMacAddressByIf("eth0"), ""); }), IsEmpty());
    ExpectMessage(3, "auth_conf.cpp invalid mac address", [] { EXPECT_EQ(AuthConf::GetMacAddress(), ""); });
}

class TimeZone : public AuthConfTest, public testing::WithParamInterface<std::pair<std::string, std::string>> {};

TEST_P(TimeZone, IsTheDevicesSettingOrEmpty) {
    WriteText(kDeviceSettings, GetParam().first);
    EXPECT_EQ(RelaydConf::GetTimeZone(), GetParam().second);
    EXPECT_EQ(Member(AuthConf(false), "timezone"), GetParam().second);
}

INSTANTIATE_TEST_SUITE_P(
    Settings, TimeZone,
    testing::Values(std::pair("timezone=\"Amsterdam\"\n", "Amsterdam"), std::pair("timezone=\"\"\n", ""),
                    std::pair("other=\"x\"\n", ""), std::pair("", ""),
                    std::pair("timezone=\"" + std::string(300, 'z') + "\"\n", std::string(255, 'z'))));

TEST_F(AuthConfTest, TimeZoneIsEmptyWithoutTheFileAndAfterAFailureThatLeftTextInTheBuffer) {
    PlatformFaults faults;
    faults.platformFails = [](const std::string& name) { return name == "GetKeyValue"; };
    EXPECT_EQ(RelaydConf::GetTimeZone(), "");
    faults.platformFails = nullptr;
    std::filesystem::remove(kDeviceSettings);
    EXPECT_EQ(RelaydConf::GetTimeZone(), "");
}

TEST_F(AuthConfTest, TimeZoneIsEmptyWhereThePlatformFoundNoneAndLeftTextInTheBuffer) {
    PlatformFaults faults;
    for (const int result : {0, -1}) {
        faults.keyValueResult = result;
        EXPECT_EQ(RelaydConf::GetTimeZone(), "") << result;
    }
    faults.keyValueResult = 1;
    EXPECT_EQ(RelaydConf::GetTimeZone(), "rest");
}

TEST_F(AuthConfTest, TimeZoneCanBeReplaced) {
    AuthConf auth(false);
    auth.SetTimeZone("Taipei");
    EXPECT_EQ(Member(auth, "timezone"), "Taipei");
}

TEST_F(AuthConfTest, MergeTakesSerialWithItsTokenAndTheRestEachByItself) {
    AuthConf auth(true);
    EXPECT_TRUE(auth.Overwrite(JsonOf(R"({"serial":"S2","token":"T2","mac":"02:00:5e:10:00:02","key":"K2","model":"M2",
                                          "timezone":"Taipei"})")));
    EXPECT_EQ(Written(auth, true),
              "{\"key\":\"K2\",\"mac\":\"02:00:5e:10:00:02\",\"model\":\"M2\",\"serial\":\"S2\","
              "\"timezone\":\"Amsterdam\",\"token\":\"T2\"}\n");
    EXPECT_TRUE(auth.Overwrite(JsonOf(R"({"mac":""})")));
    EXPECT_FALSE(auth.IsValid());
}

TEST_F(AuthConfTest, MembersOfAnotherTypeLeaveTheirSettings) {
    AuthConf auth(true);
    const CapturedLog log;
    EXPECT_TRUE(auth.Overwrite(JsonOf(R"({"serial":1,"token":["T"],"mac":null,"key":{},"model":false})")));
    EXPECT_EQ(Written(auth, true), kDeviceWritten);
    EXPECT_EQ(log.Text(), "");
}

TEST_F(AuthConfTest, TokenWithoutItsSerialIsNotTaken) {
    for (const char* json : {R"({"token":"T2"})", R"({"token":"T2","serial":""})", R"({"token":"T2","serial":5})"}) {
        AuthConf auth(true);
        EXPECT_TRUE(auth.Overwrite(JsonOf(json)));
        EXPECT_EQ(Written(auth, true), kDeviceWritten) << json;
    }
}

TEST_F(AuthConfTest, SerialWithoutATokenGetsOneMadeByThePlatform) {
    for (const char* json : {R"({"serial":"S2"})", R"({"serial":"S2","token":""})", R"({"serial":"S2","token":5})"}) {
        AuthConf auth(true);
        PlatformFaults faults;
        EXPECT_TRUE(auth.Overwrite(JsonOf(json)));
        EXPECT_THAT(faults.calls, ElementsAre("GenerateToken S2 33")) << json;
        EXPECT_EQ(Member(auth, "serial"), "S2");
        EXPECT_EQ(Member(auth, "token"), "c4f949201895f84b4d82b1bd2a71e514") << "of key example-api-key";
    }
}

TEST_F(AuthConfTest, SerialWithATokenAsksForNone) {
    AuthConf auth(false);
    PlatformFaults faults;
    auth.Overwrite(JsonOf(R"({"serial":"S2","token":"T2"})"));
    EXPECT_THAT(faults.calls, IsEmpty());
}

TEST_F(AuthConfTest, TokenThatCannotBeMadeIsEmpty) {
    AuthConf auth(true);
    PlatformFaults faults;
    faults.platformFails = [](const std::string& name) { return name == "GenerateToken"; };
    ExpectMessage(3, "auth_conf.cpp gen token failed",
                  [&] { EXPECT_TRUE(auth.Overwrite(JsonOf(R"({"serial":"S2"})"))); });
    EXPECT_EQ(Member(auth, "serial"), "S2");
    EXPECT_EQ(Member(auth, "token"), "");
    EXPECT_FALSE(auth.IsValid());
}

TEST_F(AuthConfTest, TokenCannotBeMadeWithoutAnApiKey) {
    WriteText(kIdentityFile, "serial=\"S\"\ntoken=\"T\"\n");
    AuthConf auth(false);
    const CapturedLog log(3);
    auth.Overwrite(JsonOf(R"({"serial":"S2"})"));
    EXPECT_THAT(log.Messages(), ElementsAre("auth_conf.cpp gen token failed"));
    EXPECT_FALSE(auth.HasCredentials());
}

class Identity : public AuthConfTest, public testing::WithParamInterface<std::pair<const char*, bool>> {};

TEST_P(Identity, IsValidWithSerialMacAddressAndToken) {
    AuthConf auth(false);
    const CapturedLog log(0);
    PlatformFaults faults;
    faults.platformFails = [](const std::string&) { return true; };
    auth.Overwrite(JsonOf(GetParam().first));
    EXPECT_EQ(auth.IsValid(), GetParam().second);
}

INSTANTIATE_TEST_SUITE_P(Values, Identity,
                         testing::Values(std::pair(R"({"serial":"S","token":"T","mac":"M"})", true),
                                         std::pair(R"({"serial":"S","token":"T"})", false),
                                         std::pair(R"({"serial":"S","mac":"M"})", false),
                                         std::pair(R"({"token":"T","mac":"M"})", false), std::pair("{}", false)));

TEST_F(AuthConfTest, TokenIsNeverPartOfTheSavedForm) {
    const AuthConf auth(true);
    EXPECT_EQ(Written(auth, false),
              "{\"key\":\"example-api-key\",\"mac\":\"02:00:5e:10:00:01\",\"model\":\"AV-220\","
              "\"serial\":\"AV0000000001\",\"timezone\":\"Amsterdam\"}\n");
}

}  // namespace

}  // namespace ARDV::Relay
