// SPDX-License-Identifier: Apache-2.0
#include <relay/config/config.h>

#include <filesystem>
#include <functional>
#include <string>

#include <relay/common/deployment.h>

#include "support/device_test.h"
#include "support/platform_faults.h"
#include "support/scratch_folder.h"

namespace ARDV::Relay {

namespace {

namespace fs = std::filesystem;

using namespace ardv::test;
using testing::ElementsAre;
using testing::IsEmpty;

// Keys of every sort: some that a save would leave out, some that nobody knows, and one of the wrong type.
constexpr const char kOwnersFile[] =
    R"({"mine":[1,{"deep":null}],"log_level":5,"pid":7,"enable":true,"network":{},"service":"all","tethra":{"enabled":true},
        "server_control":{"protocol":"http","port":8080,"host":"old.zz","ip":"192.0.2.1","page":"Own.php","mine":1},
        "server_smartdns":{"enabled":false,"mine":2},"serverID":"old"})";

struct Edit {
    const char* name;
    std::function<bool(RelaydConf&, const std::string& path)> edit;
    const char* key;
    const char* alone;  ///< the file that it makes where there was none
};

const Edit kEdits[] = {
    {"ServerId", [](RelaydConf& conf, const std::string& path) { return conf.WriteServerId(path); }, "serverID",
     "{\n   \"serverID\" : \"7\"\n}\n"},
    {"ControlServerHost",
     [](RelaydConf& conf, const std::string& path) { return conf.WriteControlServerHost(path, "new.zz"); },
     "server_control", "{\n   \"server_control\" : {\n      \"host\" : \"new.zz\"\n   }\n}\n"},
    {"SmartDns", [](RelaydConf& conf, const std::string& path) { return conf.WriteSmartDNS(path, true); },
     "server_smartdns", "{\n   \"server_smartdns\" : {\n      \"enabled\" : true\n   }\n}\n"},
};

Json::Value Saved(const std::string& path = kConfigFile) {
    return JsonOf(ReadText(path));
}

class RelaydConfEdit : public DeviceTest {
protected:
    RelaydConfEdit() { conf_.Overwrite(JsonOf(R"({"serverID":"7"})")); }

    RelaydConf conf_{kConfigFile};
};

class EachEdit : public RelaydConfEdit, public testing::WithParamInterface<Edit> {
protected:
    bool Apply(const std::string& path = "") { return GetParam().edit(conf_, path); }
};

TEST_P(EachEdit, MakesAMissingFileWithItsKeyAlone) {
    EXPECT_TRUE(Apply());
    EXPECT_EQ(ReadText(kConfigFile), GetParam().alone);
    EXPECT_EQ(ModeOf(kConfigFile), 0644U);
}

TEST_P(EachEdit, SaysThatAFileCannotBeReadAtLevelSeven) {
    ExpectMessage(7, std::string("config.cpp invalid relayd config, ") + kConfigFile, [this] {
        fs::remove(kConfigFile);
        EXPECT_TRUE(Apply());
    });
    const ScratchFolder folder;
    ExpectMessage(7, "config.cpp invalid relayd config, " + folder.File("own"), [&] {
        fs::remove(folder.File("own"));
        EXPECT_TRUE(Apply(folder.File("own")));
    });
}

TEST_P(EachEdit, KeepsAllOtherKeysOfTheFile) {
    WriteText(kConfigFile, kOwnersFile);
    const CapturedLog log;
    EXPECT_TRUE(Apply());
    auto expected = JsonOf(kOwnersFile);
    auto saved = Saved();
    EXPECT_NE(saved[GetParam().key], expected[GetParam().key]);
    expected.removeMember(GetParam().key);
    saved.removeMember(GetParam().key);
    EXPECT_EQ(saved, expected);
    EXPECT_EQ(log.Text(), "");
}

TEST_P(EachEdit, GoesToTheNamedFileAndLeavesTheObjectsOwnAlone) {
    const ScratchFolder folder;
    WriteText(kConfigFile, kOwnersFile);
    EXPECT_TRUE(Apply(folder.File("own")));
    EXPECT_EQ(ReadText(folder.File("own")), GetParam().alone);
    EXPECT_EQ(ReadText(kConfigFile), kOwnersFile);
    EXPECT_TRUE(Apply());
    EXPECT_NE(ReadText(kConfigFile), kOwnersFile) << "the object's path is what it was";
}

TEST_P(EachEdit, OfAnInvalidObjectWritesNothing) {
    WriteText(kConfigFile, kOwnersFile);
    conf_.Overwrite(JsonOf(R"({"server_global":{"protocol":"ftp"}})"));
    const auto before = Written(conf_, true);
    const CapturedLog log(3);
    EXPECT_FALSE(Apply());
    EXPECT_THAT(log.Messages(),
                ElementsAre("config.cpp wrong global server config", "config.cpp invalid relayd config"));
    EXPECT_EQ(ReadText(kConfigFile), kOwnersFile);
    EXPECT_EQ(Written(conf_, true), before);
    EXPECT_THAT(MessagesAt(2, [this] { Apply(); }), IsEmpty());
    fs::remove(kConfigFile);
    EXPECT_FALSE(Apply());
    EXPECT_FALSE(fs::exists(kConfigFile));
}

TEST_P(EachEdit, OfAnInvalidObjectDoesNotEvenReadTheFile) {
    WriteText(kConfigFile, "{");
    conf_.Overwrite(JsonOf(R"({"server_global":{"protocol":"ftp"}})"));
    const CapturedLog log(0);
    EXPECT_FALSE(Apply());
    EXPECT_EQ(ReadText(kConfigFile), "{");
}

TEST_P(EachEdit, ReplacesADamagedFileAndKeepsItAside) {
    WriteText(kConfigFile, "{");
    const CapturedLog log(3);
    EXPECT_TRUE(Apply());
    EXPECT_THAT(log.Messages(), ElementsAre(std::string("config.cpp bad json format [") + kConfigFile + "]"));
    EXPECT_EQ(ReadText(kConfigFile), GetParam().alone);
    EXPECT_EQ(ReadText(std::string(kConfigFile) + ".bad"), "{");
}

TEST_P(EachEdit, ReplacesAFileThatHoldsNoObject) {
    for (const char* text : {"[1]", "\"text\"", "5", "null", "true"}) {
        WriteText(kConfigFile, text);
        EXPECT_TRUE(Apply()) << text;
        EXPECT_EQ(ReadText(kConfigFile), GetParam().alone) << text;
    }
}

TEST_P(EachEdit, ReplacesAMemberOfAnotherType) {
    for (const char* member : {"[1]", "\"text\"", "5", "null", "true"}) {
        WriteText(kConfigFile, std::string("{\"") + GetParam().key + "\":" + member + "}");
        EXPECT_TRUE(Apply()) << member;
        EXPECT_EQ(ReadText(kConfigFile), GetParam().alone) << member;
    }
}

TEST_P(EachEdit, FailsWhereTheFileCannotBeWritten) {
    const CapturedLog log(3);
    EXPECT_FALSE(Apply("/none/own"));
    EXPECT_THAT(log.Messages(), ElementsAre("config.cpp open failed [" + TemporaryOf("/none/own") + "]"));
}

INSTANTIATE_TEST_SUITE_P(Edits, EachEdit, testing::ValuesIn(kEdits),
                         [](const auto& edit) { return std::string(edit.param.name); });

TEST_F(RelaydConfEdit, ServerIdIsThatOfTheObject) {
    WriteText(kConfigFile, kOwnersFile);
    EXPECT_TRUE(conf_.WriteServerId(""));
    EXPECT_EQ(Saved()["serverID"], Json::Value("7"));
    conf_.Overwrite(JsonOf(R"({"serverID":""})"));
    EXPECT_TRUE(conf_.WriteServerId(""));
    EXPECT_EQ(Saved()["serverID"], Json::Value("")) << "an empty one, too";
}

TEST_F(RelaydConfEdit, ControlServerKeepsItsOtherSettingsInTheFile) {
    WriteText(kConfigFile, kOwnersFile);
    EXPECT_TRUE(conf_.WriteControlServerHost("", "new.zz"));
    EXPECT_EQ(Saved()["server_control"], JsonOf(R"({"protocol":"http","port":8080,"host":"new.zz","ip":"192.0.2.1",
                                                    "page":"Own.php","mine":1})"));
}

TEST_F(RelaydConfEdit, ControlServerWithoutAHostHasTheAddressOfTheObject) {
    WriteText(kConfigFile, kOwnersFile);
    conf_.Overwrite(JsonOf(R"({"server_control":{"ip":"192.0.2.9"}})"));
    EXPECT_TRUE(conf_.WriteControlServerHost("", ""));
    EXPECT_EQ(Saved()["server_control"], JsonOf(R"({"protocol":"http","port":8080,"host":"","ip":"192.0.2.9",
                                                    "page":"Own.php","mine":1})"));
}

TEST_F(RelaydConfEdit, ControlServerHostChangesInTheObject) {
    Json::Value before;
    conf_.Write(before, true);
    EXPECT_TRUE(conf_.WriteControlServerHost("", "new.zz"));
    Json::Value after;
    conf_.Write(after, true);
    before["server_control"]["host"] = "new.zz";
    EXPECT_EQ(after, before);
}

TEST_F(RelaydConfEdit, ControlServerHostIsTakenOnceTheObjectWasValidAndJudgedByTheNextEdit) {
    EXPECT_TRUE(conf_.WriteControlServerHost("", ""));
    const CapturedLog log(3);
    EXPECT_FALSE(conf_.WriteControlServerHost("", "new.zz"));
    EXPECT_THAT(log.Messages(),
                ElementsAre("config.cpp wrong control server config", "config.cpp invalid relayd config"));
}

TEST_F(RelaydConfEdit, SmartDnsChangesInTheObjectAndInTheFile) {
    for (const bool enabled : {true, false}) {
        WriteText(kConfigFile, kOwnersFile);
        EXPECT_TRUE(conf_.WriteSmartDNS("", enabled));
        auto expected = JsonOf(R"({"enabled":false,"mine":2})");
        expected["enabled"] = enabled;
        EXPECT_EQ(Saved()["server_smartdns"], expected);
        Json::Value value;
        conf_.Write(value, true);
        EXPECT_EQ(value["server_smartdns"]["enabled"], Json::Value(enabled));
    }
}

TEST_F(RelaydConfEdit, ObjectFollowsEvenIfTheFileCannotBeWritten) {
    const CapturedLog log(0);
    EXPECT_FALSE(conf_.WriteSmartDNS("/none/own", true));
    EXPECT_FALSE(conf_.WriteControlServerHost("/none/own", "new.zz"));
    Json::Value value;
    conf_.Write(value, false);
    EXPECT_EQ(value["server_smartdns"]["enabled"], Json::Value(true));
    EXPECT_EQ(value["server_control"]["host"], Json::Value("new.zz"));
}

TEST_F(RelaydConfEdit, WithoutAnyPathNothingIsLeftBehind) {
    RelaydConf conf(nullptr);
    const ScratchFolder folder;
    const auto before = fs::current_path();
    fs::current_path(folder.Path());
    const CapturedLog log(0);
    EXPECT_TRUE(conf.WriteServerId("")) << "the rename's result does not count";
    fs::current_path(before);
    EXPECT_THAT(folder.Names(), IsEmpty());
}

/** Is valid and writes itself as it is told. */
class JudgedConf : public RelaydConf {
public:
    explicit JudgedConf(bool isValid) : RelaydConf(kConfigFile), isValid_(isValid) {}
    bool IsValid() const override { return isValid_; }

private:
    bool isValid_;
};

TEST_F(RelaydConfEdit, SubclassIsAskedWhetherItIsValid) {
    EXPECT_TRUE(JudgedConf(true).WriteServerId(""));
    const CapturedLog log(0);
    EXPECT_FALSE(JudgedConf(false).WriteServerId(""));
}

TEST_F(RelaydConfEdit, AliasRequestCarriesAliasIdentityAndServerId) {
    conf_.Overwrite(JsonOf(R"({"server_alias":{"alias":"mybox"}})"));
    Json::Value value;
    conf_.DumpDataForAliasReq(value);
    auto expected = JsonOf(R"({"alias":"mybox","poll_seconds":604800,"id":"7","key":"example-api-key",
        "mac":"02:00:5e:10:00:01","model":"AV-220","serial":"AV0000000001","timezone":"Amsterdam",
        "token":"0123456789abcdef0123456789abcdef"})");
    expected["url"] = Deployment::kAliasUrl;
    EXPECT_EQ(value, expected);
}

TEST_F(RelaydConfEdit, AliasRequestKeepsWhatItIsGivenBesideItsOwn) {
    auto value = JsonOf(R"({"mine":1,"id":"old","token":"old"})");
    conf_.DumpDataForAliasReq(value);
    EXPECT_EQ(value["mine"], Json::Value(1));
    EXPECT_EQ(value["id"], Json::Value("7"));
    EXPECT_EQ(value["token"], Json::Value("0123456789abcdef0123456789abcdef"));
}

TEST_F(RelaydConfEdit, AliasRequestWithoutAServerIdHasAnEmptyOne) {
    RelaydConf conf(nullptr);
    Json::Value value;
    conf.DumpDataForAliasReq(value);
    EXPECT_EQ(value["id"], Json::Value(""));
}

TEST_F(RelaydConfEdit, IdentityIsReadFromTheDeviceOnce) {
    PlatformFaults faults;
    Json::Value first;
    conf_.DumpDataForAliasReq(first);
    EXPECT_EQ(faults.CallsOf("GetToken").size(), 1U);
    fs::remove(kIdentityFile);
    Json::Value second;
    conf_.DumpDataForAliasReq(second);
    EXPECT_EQ(faults.CallsOf("GetToken").size(), 1U);
    EXPECT_EQ(second, first);
}

TEST_F(RelaydConfEdit, IdentityIsAskedForAgainWhileThereIsNone) {
    fs::remove(kIdentityFile);
    PlatformFaults faults;
    const CapturedLog log(0);
    for (const std::size_t count : {1U, 2U}) {
        Json::Value value;
        conf_.DumpDataForAliasReq(value);
        EXPECT_EQ(faults.CallsOf("GetToken").size(), count);
        EXPECT_EQ(value["serial"], Json::Value(""));
        EXPECT_EQ(value["token"], Json::Value(""));
        EXPECT_EQ(value["id"], Json::Value("7"));
    }
    MakeDevice();
    Json::Value value;
    conf_.DumpDataForAliasReq(value);
    EXPECT_EQ(value["serial"], Json::Value("AV0000000001"));
}

}  // namespace

}  // namespace ARDV::Relay
