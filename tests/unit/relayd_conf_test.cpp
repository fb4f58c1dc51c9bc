// SPDX-License-Identifier: Apache-2.0
#include <relay/config/config.h>

#include <unistd.h>

#include <filesystem>
#include <sstream>
#include <string>

#include <relay/common/deployment.h>

#include "support/device_test.h"
#include "support/platform_faults.h"

namespace ARDV::Relay {

namespace {

using namespace ardv::test;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char kUnreadNetwork[] =
    R"({"interface":[],"gateway":"","ddns":"","mode":"","fqdn":"","ipv6_tunnel":[]})";

class RelaydConfTest : public DeviceTest {
protected:
    static Json::Value Value(const RelaydConf& conf, bool full) {
        Json::Value value;
        EXPECT_TRUE(conf.Write(value, full));
        return value;
    }

    RelaydConf conf_{nullptr};
};

TEST_F(RelaydConfTest, GivesTheDaemonItsSettings) {
    EXPECT_EQ(conf_.GetServerId(), "");
    EXPECT_EQ(conf_.GetLogFile(), "");
    EXPECT_EQ(conf_.GetLogLevel(), 4);
    EXPECT_FALSE(conf_.IsSupportChannelEnabled());
    EXPECT_FALSE(conf_.IsSmartDNSEnabled());
    EXPECT_EQ(Written(conf_.GetNetwork(), true), Written(NetworkConf(false), true));
    ASSERT_TRUE(conf_.Overwrite(JsonOf(R"({"server_control":{"host":"c.zz"},"server_waitcmd":{"host":"w.zz"},
        "serverID":"abc","log_level":6,"log_file":"/x.log","support_channel":{"enabled":true}})")));
    EXPECT_EQ(conf_.GetControlServer().GetHost(), "c.zz");
    EXPECT_EQ(conf_.GetWaitCmdServer().GetHost(), "w.zz");
    EXPECT_EQ(conf_.GetServerId(), "abc");
    EXPECT_EQ(conf_.GetLogFile(), "/x.log");
    EXPECT_EQ(conf_.GetLogLevel(), 6);
    EXPECT_TRUE(conf_.IsSupportChannelEnabled());
    EXPECT_FALSE(conf_.IsSmartDNSEnabled());
    ASSERT_TRUE(conf_.Overwrite(JsonOf(R"({"support_channel":{"enabled":false},"server_smartdns":{"enabled":true}})")));
    EXPECT_FALSE(conf_.IsSupportChannelEnabled());
    EXPECT_TRUE(conf_.IsSmartDNSEnabled());
}

TEST_F(RelaydConfTest, TakesAServerIdentifierAndSavesNothing) {
    WriteText(kConfigFile, "{}");
    RelaydConf conf(kConfigFile);
    conf.SetServerId("abc");
    EXPECT_EQ(conf.GetServerId(), "abc");
    EXPECT_EQ(Value(conf, false)["serverID"], "abc");
    EXPECT_EQ(ReadText(kConfigFile), "{}");
}

TEST_F(RelaydConfTest, StartsWithItsDefaults) {
    const std::string host = Deployment::kGlobalControlHost;
    const auto server = [&host](const char* protocol, int port) {
        auto value = JsonOf(R"({"ip":"","page":"Serv.php"})");
        value["host"] = host;
        value["protocol"] = protocol;
        value["port"] = port;
        return value;
    };
    auto expected =
        JsonOf(R"({"server_alias":{"alias":""},"support_channel":{"enabled":false},"tethra":{"enabled":false},
        "server_smartdns":{"enabled":false},"server_kova":{"account":""},"service":[],"log_level":4,"log_file":"",
        "disable_holepunch":false,"enable":false,"debug":false})");
    expected["server_global"] = server("https", 443);
    expected["server_control"] = server("https", 443);
    expected["server_waitcmd"] = server("http", 80);
    expected["pid"] = getpid();
    expected["network"] = JsonOf(kUnreadNetwork);
    EXPECT_EQ(Value(conf_, true), expected);
    EXPECT_FALSE(conf_.GetEnableConf());
    const CapturedLog log;
    EXPECT_TRUE(conf_.IsValid());
    EXPECT_EQ(log.Text(), "");
}

TEST_F(RelaydConfTest, SavedFormHasNoRunTimeMembersAndServersByTheirHostsAlone) {
    auto expected =
        JsonOf(R"({"server_alias":{"alias":""},"support_channel":{"enabled":false},"tethra":{"enabled":false},
        "server_smartdns":{"enabled":false},"server_kova":{"account":""},"service":[],"log_level":4,"log_file":"",
        "disable_holepunch":false})");
    for (const char* server : {"server_global", "server_control", "server_waitcmd"}) {
        expected[server]["host"] = Deployment::kGlobalControlHost;
    }
    EXPECT_EQ(Value(conf_, false), expected);
}

TEST_F(RelaydConfTest, ReadsNoIdentityForItself) {
    PlatformFaults faults;
    const RelaydConf conf(nullptr);
    EXPECT_THAT(faults.CallsOf("GetToken"), IsEmpty());
    EXPECT_FALSE(Value(conf, true).isMember("serial"));
}

TEST_F(RelaydConfTest, MergesEveryPartThatAValueNames) {
    const auto value = JsonOf(R"({"serverID":"7","log_level":6,"log_file":"/x","tethra":{"enabled":true},
        "disable_holepunch":true,"server_global":{"host":"g.zz","port":1},"server_control":{"host":"c.zz","ip":"10.0.0.1"},
        "server_waitcmd":{"host":"w.zz","protocol":"https"},"server_alias":{"alias":"mybox","url":"https://a.zz","poll_seconds":60},
        "support_channel":{"enabled":true},"server_smartdns":{"enabled":true},"server_kova":{"account":"owner","host":"k.zz"},
        "service":[{"id":"hos","name":"Portal","port":5000,"ext_port":80}],"enable":true,"debug":true,"pid":1,
        "network":{"gateway":"192.0.2.1","mode":"router"},"unknown":5})");
    const CapturedLog log(0);
    EXPECT_TRUE(conf_.Overwrite(value));
    auto expected = value;
    expected.removeMember("unknown");
    expected["enable"] = false;
    expected["debug"] = false;
    expected["pid"] = getpid();
    expected["network"] = JsonOf(kUnreadNetwork);
    expected["server_global"] = JsonOf(R"({"host":"g.zz","ip":"","port":1,"page":"Serv.php","protocol":"https"})");
    expected["server_control"] =
        JsonOf(R"({"host":"c.zz","ip":"10.0.0.1","port":443,"page":"Serv.php","protocol":"https"})");
    expected["server_waitcmd"] = JsonOf(R"({"host":"w.zz","ip":"","port":80,"page":"Serv.php","protocol":"https"})");
    EXPECT_EQ(Value(conf_, true), expected);
    EXPECT_TRUE(conf_.GetEnableConf());
    EXPECT_EQ(conf_.GetAliasConf().GetAliasName(), "mybox");
    EXPECT_EQ(conf_.GetGlobalServer().GetHost(), "g.zz");
}

TEST_F(RelaydConfTest, LaterMergeChangesOnlyWhatItNames) {
    conf_.Overwrite(
        JsonOf(R"({"serverID":"7","server_control":{"host":"c.zz"},"log_level":6,"server_alias":{"alias":"a"}})"));
    const auto before = Value(conf_, true);
    EXPECT_TRUE(conf_.Overwrite(JsonOf("{}")));
    EXPECT_EQ(Value(conf_, true), before);
    EXPECT_TRUE(conf_.Overwrite(JsonOf(R"({"server_control":{"port":8443}})")));
    auto expected = before;
    expected["server_control"]["port"] = 8443;
    EXPECT_EQ(Value(conf_, true), expected);
}

TEST_F(RelaydConfTest, MembersOfAnotherTypeLeaveTheirSettings) {
    const CapturedLog log(0);
    conf_.Overwrite(JsonOf(R"({"serverID":"7","tethra":{"enabled":true},"service":[{"id":"hos","port":5000}],
                               "server_kova":{"account":"o"}})"));
    ASSERT_EQ(conf_.GetServices().size(), 1U);
    const auto before = Value(conf_, true);
    EXPECT_TRUE(
        conf_.Overwrite(JsonOf(R"({"serverID":7,"log_level":"6","log_file":null,"tethra":true,"disable_holepunch":1,
        "server_global":"g.zz","server_control":[1],"server_waitcmd":5,"support_channel":true,"server_smartdns":null,
        "server_kova":"owner","service":"hos"})")));
    EXPECT_TRUE(conf_.Overwrite(JsonOf(R"({"tethra":{"enabled":"yes"},"server_global":{"port":"443"}})")));
    EXPECT_EQ(Value(conf_, true), before);
}

TEST_F(RelaydConfTest, AliasSettingsOfAnyTypeThatNameNoAliasClearIt) {
    for (const char* text : {"{}", R"({"alias":5})", "null", "\"mybox\"", "[]", "5"}) {
        conf_.Overwrite(JsonOf(R"({"server_alias":{"alias":"mybox"}})"));
        EXPECT_TRUE(conf_.Overwrite(JsonOf(std::string(R"({"server_alias":)") + text + "}")));
        EXPECT_EQ(conf_.GetAliasConf().GetAliasName(), "") << text;
    }
    conf_.Overwrite(JsonOf(R"({"server_alias":{"alias":"mybox"}})"));
    EXPECT_TRUE(conf_.Overwrite(JsonOf("{}")));
    EXPECT_EQ(conf_.GetAliasConf().GetAliasName(), "mybox") << "not named, not changed";
}

TEST_F(RelaydConfTest, SwitchOfTheFileIsNotTheOneAtConstruction) {
    WriteText(kConfigFile, R"({"tethra":{"enabled":true},"enable":true,"debug":true})");
    const RelaydConf conf(kConfigFile);
    EXPECT_TRUE(conf.GetEnableConf());
    EXPECT_EQ(Value(conf, true)["enable"], Json::Value(false));
    EXPECT_EQ(Value(conf, true)["debug"], Json::Value(false));
}

TEST_F(RelaydConfTest, ValueThatIsNoObjectIsRefusedAndChangesNothing) {
    const auto before = Value(conf_, true);
    for (const char* text : {"null", R"([{"serverID":"7"}])", "\"text\"", "5", "true"}) {
        EXPECT_FALSE(conf_.Overwrite(JsonOf(text))) << text;
        EXPECT_EQ(Value(conf_, true), before) << text;
    }
}

TEST_F(RelaydConfTest, UnifiedAccountIsNeitherReadNorWritten) {
    conf_.Overwrite(JsonOf(R"({"server_kova":{"account":"owner"}})"));
    WriteText(kDeviceSettings, "kova_unified=\"yes\"\n");
    conf_.Overwrite(JsonOf(R"({"server_kova":{"account":"another"}})"));
    EXPECT_FALSE(Value(conf_, true).isMember("server_kova"));
    EXPECT_FALSE(Value(conf_, false).isMember("server_kova"));
    WriteText(kDeviceSettings, "kova_unified=\"no\"\n");
    EXPECT_EQ(Value(conf_, false)["server_kova"], JsonOf(R"({"account":"owner"})"));
}

TEST_F(RelaydConfTest, AccountIsAlwaysWrittenInFull) {
    conf_.Overwrite(JsonOf(R"({"server_kova":{"account":"owner","host":"k.zz"}})"));
    EXPECT_EQ(Value(conf_, false)["server_kova"], JsonOf(R"({"account":"owner","host":"k.zz"})"));
}

TEST_F(RelaydConfTest, AliasSettingsAreAlwaysWrittenSparsely) {
    for (const bool full : {false, true}) {
        EXPECT_EQ(Value(conf_, full)["server_alias"], JsonOf(R"({"alias":""})"));
    }
}

TEST_F(RelaydConfTest, ServerIdIsWrittenWhereThereIsOne) {
    EXPECT_FALSE(Value(conf_, true).isMember("serverID"));
    conf_.Overwrite(JsonOf(R"({"serverID":"7"})"));
    EXPECT_EQ(Value(conf_, false)["serverID"], Json::Value("7"));
}

TEST_F(RelaydConfTest, WithoutAServerIdWritingLeavesTheOneThatAValueHas) {
    for (const bool full : {false, true}) {
        auto value = JsonOf(R"({"serverID":"7"})");
        EXPECT_TRUE(conf_.Write(value, full));
        EXPECT_EQ(value["serverID"], Json::Value("7"));
        EXPECT_TRUE(value.isMember("server_global"));
    }
}

TEST_F(RelaydConfTest, WritesIntoNestedMembersAndReplacesThoseThatAreNoObject) {
    auto value = JsonOf(R"({"server_global":{"note":1},"server_control":"x","tethra":[1],"server_alias":5,"mine":2})");
    EXPECT_TRUE(conf_.Write(value, false));
    EXPECT_EQ(value["server_global"]["note"], Json::Value(1));
    EXPECT_EQ(value["server_control"]["host"], Json::Value(Deployment::kGlobalControlHost));
    EXPECT_EQ(value["tethra"], JsonOf(R"({"enabled":false})"));
    EXPECT_EQ(value["server_alias"], JsonOf(R"({"alias":""})"));
    EXPECT_EQ(value["mine"], Json::Value(2));
}

struct FaultyPart {
    const char* name;
    const char* json;
    const char* message;
};

class RelaydConfFault : public RelaydConfTest, public testing::WithParamInterface<FaultyPart> {};

TEST_P(RelaydConfFault, IsTheFirstInAFixedOrderAndAMessageOfLevelThree) {
    conf_.Overwrite(JsonOf(GetParam().json));
    ExpectMessage(3, std::string("config.cpp ") + GetParam().message, [this] { EXPECT_FALSE(conf_.IsValid()); });
}

INSTANTIATE_TEST_SUITE_P(
    Parts, RelaydConfFault,
    testing::Values(
        FaultyPart{"Global", R"({"server_global":{"protocol":"ftp"}})", "wrong global server config"},
        FaultyPart{"Control", R"({"server_control":{"port":-1}})", "wrong control server config"},
        FaultyPart{"WaitCommand", R"({"server_waitcmd":{"host":""}})", "wrong wait cmd server config"},
        FaultyPart{"GlobalFirst",
                   R"({"server_global":{"port":-1},"server_control":{"port":-1},"server_waitcmd":{"port":-1}})",
                   "wrong global server config"},
        FaultyPart{"ControlBeforeWaitCommand", R"({"server_control":{"port":-1},"server_waitcmd":{"port":-1}})",
                   "wrong control server config"}),
    [](const auto& part) { return part.param.name; });

/** Makes settings without a URL, which no operation of the library does. */
void BreakAlias(const AliasConf& alias) {
    auto* bytes = const_cast<char*>(reinterpret_cast<const char*>(&alias));
    auto& url = *reinterpret_cast<std::string*>(bytes + sizeof(AliasConf) - sizeof(std::string));
    ASSERT_EQ(url, alias.GetUrl()) << "the URL is no longer the last member";
    ASSERT_NE(url, alias.GetAliasName()) << "nothing tells the URL from the alias";
    url.clear();
}

TEST_F(RelaydConfTest, FaultyAliasSettingsComeAfterTheServers) {
    ASSERT_NO_FATAL_FAILURE(BreakAlias(conf_.GetAliasConf()));
    const CapturedLog log(3);
    EXPECT_FALSE(conf_.IsValid());
    EXPECT_THAT(log.Messages(), ElementsAre("alias_conf.cpp URL is empty", "config.cpp wrong alias cmd server config"));
    conf_.Overwrite(JsonOf(R"({"server_waitcmd":{"port":-1}})"));
    EXPECT_THAT(MessagesAt(3, [this] { conf_.IsValid(); }), ElementsAre("config.cpp wrong wait cmd server config"));
}

TEST_F(RelaydConfTest, SwitchOfTheServiceIsSetAndRead) {
    EXPECT_TRUE(conf_.SetEnableConf(true));
    EXPECT_TRUE(conf_.GetEnableConf());
    EXPECT_EQ(Value(conf_, false)["tethra"], JsonOf(R"({"enabled":true})"));
    EXPECT_EQ(Value(conf_, true)["enable"], Json::Value(false)) << "as it was at construction";
    EXPECT_TRUE(conf_.SetEnableConf(false));
    EXPECT_FALSE(conf_.GetEnableConf());
}

struct LogLevelCase {
    const char* settings;
    const char* file;
    int level;
};

class RelaydConfLogLevel : public RelaydConfTest, public testing::WithParamInterface<LogLevelCase> {};

TEST_P(RelaydConfLogLevel, IsThatOfTheFileOrMoreWhereTheKernelLogsAll) {
    WriteText(kDeviceSettings, GetParam().settings);
    WriteText(kConfigFile, GetParam().file);
    EXPECT_EQ(Value(RelaydConf(kConfigFile), true)["log_level"], Json::Value(GetParam().level));
}

INSTANTIATE_TEST_SUITE_P(Settings, RelaydConfLogLevel,
                         testing::Values(LogLevelCase{"", "{}", 4}, LogLevelCase{"", R"({"log_level":3})", 3},
                                         LogLevelCase{"kern_log_max=\"yes\"", "{}", 7},
                                         LogLevelCase{"kern_log_max=\"yes\"", R"({"log_level":3})", 7},
                                         LogLevelCase{"kern_log_max=\"yes\"", R"({"log_level":-5})", 7},
                                         LogLevelCase{"kern_log_max=\"yes\"", R"({"log_level":7})", 7},
                                         LogLevelCase{"kern_log_max=\"yes\"", R"({"log_level":9})", 9},
                                         LogLevelCase{"kern_log_max=\"no\"", R"({"log_level":3})", 3},
                                         LogLevelCase{"kern_log_max=\"Yes\"", R"({"log_level":3})", 3}));

TEST_F(RelaydConfTest, LogLevelIsRaisedWithoutAFileToo) {
    WriteText(kDeviceSettings, "kern_log_max=\"yes\"");
    EXPECT_EQ(Value(RelaydConf(nullptr), true)["log_level"], Json::Value(7));
    conf_.Overwrite(JsonOf(R"({"log_level":3})"));
    EXPECT_EQ(Value(conf_, true)["log_level"], Json::Value(3)) << "only at construction";
}

constexpr const char kDeviceData[] =
    R"({"alias":"mybox","url":"https://a.zz","poll_seconds":604800,"serial":"AV0000000001",
    "token":"0123456789abcdef0123456789abcdef","mac":"02:00:5e:10:00:01","key":"example-api-key","model":"AV-220",
    "timezone":"Amsterdam","id":"7"})";

TEST_F(RelaydConfTest, DataForAliasRequestsIsAliasSettingsIdentityAndServerId) {
    conf_.Overwrite(JsonOf(R"({"serverID":"7","server_alias":{"alias":"mybox","url":"https://a.zz"}})"));
    auto value = JsonOf(R"({"force":"yes"})");
    conf_.DumpDataForAliasReq(value);
    auto expected = JsonOf(kDeviceData);
    expected["force"] = "yes";
    EXPECT_EQ(value, expected);
}

TEST_F(RelaydConfTest, DataForAliasRequestsReadsTheIdentityUntilItIsComplete) {
    std::filesystem::remove(kIdentityFile);
    PlatformFaults faults;
    const auto readsOfADump = [&] {
        faults.calls.clear();
        Json::Value value;
        conf_.DumpDataForAliasReq(value);
        return faults.CallsOf("GetToken").size();
    };
    const CapturedLog log(0);
    EXPECT_EQ(readsOfADump(), 1U);
    EXPECT_EQ(readsOfADump(), 1U) << "not read yet";
    MakeDevice();
    EXPECT_EQ(readsOfADump(), 1U);
    EXPECT_EQ(readsOfADump(), 0U);
}

TEST_F(RelaydConfTest, DataForAliasRequestsDoesNotReadAgainForWantOfAMacAddress) {
    WriteText(kIdentityFile, "serial=\"S\"\ntoken=\"T\"\napi_key=\"K\"\nmac=\"none\"\n");
    const CapturedLog log(0);
    Json::Value value;
    conf_.DumpDataForAliasReq(value);
    ASSERT_EQ(value["serial"], Json::Value("S"));
    ASSERT_EQ(value["mac"], Json::Value(""));
    const PlatformFaults faults;
    conf_.DumpDataForAliasReq(value);
    EXPECT_THAT(faults.CallsOf("GetToken"), IsEmpty());
}

TEST_F(RelaydConfTest, KernelLogSwitchCountsForNoOtherAnswerThanOne) {
    PlatformFaults faults;
    for (const auto& [result, level] : {std::pair(-1, 4), std::pair(0, 4), std::pair(2, 4), std::pair(1, 7)}) {
        faults.keyValueResult = result;
        EXPECT_EQ(Value(RelaydConf(nullptr), true)["log_level"], Json::Value(level)) << result;
    }
}

TEST_F(RelaydConfTest, DataForAliasRequestsOfADeviceWithoutAnIdentityHasEmptyTexts) {
    std::filesystem::remove(kIdentityFile);
    const CapturedLog log(0);
    Json::Value value("no object");
    conf_.DumpDataForAliasReq(value);
    EXPECT_EQ(value["serial"], Json::Value(""));
    EXPECT_EQ(value["token"], Json::Value(""));
    EXPECT_EQ(value["id"], Json::Value(""));
}

TEST_F(RelaydConfTest, CopiesAreOfTheirOwn) {
    conf_.Overwrite(JsonOf(R"({"serverID":"7"})"));
    RelaydConf copy(conf_);
    copy.Overwrite(JsonOf(R"({"serverID":"8"})"));
    EXPECT_EQ(Value(conf_, true)["serverID"], Json::Value("7"));
    conf_ = copy;
    EXPECT_EQ(Value(conf_, true)["serverID"], Json::Value("8"));
}

}  // namespace

}  // namespace ARDV::Relay
