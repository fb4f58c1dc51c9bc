// SPDX-License-Identifier: Apache-2.0
#include <relay/config/config.h>

#include <filesystem>
#include <string>

#include "support/device_test.h"
#include "support/scratch_folder.h"

namespace ARDV::Relay {

namespace {

using namespace ardv::test;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string kReadFailure = std::string("config.cpp invalid relayd config, ") + kConfigFile;

class RelaydConfFile : public DeviceTest {
protected:
    static Json::Value Saved() { return JsonOf(ReadText(kConfigFile)); }

    RelaydConf conf_{nullptr};
};

TEST_F(RelaydConfFile, IsMergedOverTheObjectsSettings) {
    WriteText(kConfigFile, R"({"serverID":"7","server_global":{"host":"g.zz"}})");
    conf_.Overwrite(JsonOf(R"({"log_file":"/x","serverID":"1"})"));
    const CapturedLog log;
    EXPECT_TRUE(conf_.ReadConfigFile(kConfigFile));
    EXPECT_EQ(log.Text(), "");
    Json::Value value;
    conf_.Write(value, true);
    EXPECT_EQ(value["serverID"], Json::Value("7"));
    EXPECT_EQ(value["log_file"], Json::Value("/x"));
    EXPECT_EQ(conf_.GetGlobalServer().GetUrl(nullptr), "https://g.zz:443/Serv.php");
}

TEST_F(RelaydConfFile, MissingOneIsAMessageOfLevelSevenAndChangesNothing) {
    const auto before = Written(conf_, true);
    ExpectMessage(7, kReadFailure, [this] { EXPECT_FALSE(conf_.ReadConfigFile(kConfigFile)); });
    EXPECT_EQ(Written(conf_, true), before);
}

TEST_F(RelaydConfFile, MissingOneLeavesThePathAsItWas) {
    const ScratchFolder folder;
    WriteText(folder.File("first"), "{}");
    EXPECT_TRUE(conf_.ReadConfigFile(folder.File("first")));
    EXPECT_FALSE(conf_.ReadConfigFile(folder.File("second")));
    EXPECT_TRUE(conf_.WriteConfig());
    EXPECT_THAT(folder.Names(), ElementsAre("first"));
    EXPECT_TRUE(JsonOf(ReadText(folder.File("first"))).isMember("service"));
}

TEST_F(RelaydConfFile, RootThatIsNoObjectIsRefusedWithThePathKept) {
    for (const char* text : {"[1]", "\"text\"", "5", "null"}) {
        WriteText(kConfigFile, text);
        const auto before = Written(conf_, true);
        ExpectMessage(3, "config.cpp invalid relayd config: can not overwrite default",
                      [this] { EXPECT_FALSE(conf_.ReadConfigFile(kConfigFile)); });
        EXPECT_EQ(Written(conf_, true), before) << text;
        EXPECT_TRUE(conf_.WriteConfig());
        EXPECT_TRUE(Saved().isMember("service")) << text;
    }
}

TEST_F(RelaydConfFile, FileThatIsNotValidIsMergedAllTheSameWithThePathKept) {
    WriteText(kConfigFile, R"({"serverID":"7","server_global":{"protocol":"ftp"}})");
    const CapturedLog log(3);
    EXPECT_FALSE(conf_.ReadConfigFile(kConfigFile));
    EXPECT_THAT(log.Messages(),
                ElementsAre("config.cpp wrong global server config", "config.cpp invalid relayd config"));
    EXPECT_THAT(Written(conf_, true), testing::HasSubstr("\"protocol\":\"ftp\""));
    EXPECT_THAT(MessagesAt(2, [this] { conf_.ReadConfigFile(kConfigFile); }), IsEmpty());
    conf_.Overwrite(JsonOf(R"({"server_global":{"protocol":"https"}})"));
    EXPECT_TRUE(conf_.WriteConfig());
    EXPECT_EQ(Saved()["serverID"], Json::Value("7"));
}

TEST_F(RelaydConfFile, DamagedOneIsMovedAside) {
    WriteText(kConfigFile, "{");
    const CapturedLog log(7);
    EXPECT_FALSE(conf_.ReadConfigFile(kConfigFile));
    EXPECT_THAT(log.Messages(),
                ElementsAre("config.cpp bad json format [" + std::string(kConfigFile) + "]", kReadFailure));
    EXPECT_EQ(ReadText(std::string(kConfigFile) + ".bad"), "{");
}

TEST_F(RelaydConfFile, ConstructorLoadsItAndDropsTheResult) {
    WriteText(kConfigFile, R"({"serverID":"7","server_global":{"protocol":"ftp"}})");
    const CapturedLog log(3);
    const RelaydConf invalid(kConfigFile);
    EXPECT_EQ(log.Messages().size(), 2U);
    EXPECT_THAT(Written(invalid, true), testing::HasSubstr("\"serverID\":\"7\""));
}

TEST_F(RelaydConfFile, ConstructorKeepsThePathOfAMissingOne) {
    const CapturedLog log(3);
    RelaydConf conf(kConfigFile);
    EXPECT_EQ(log.Text(), "");
    EXPECT_EQ(Written(conf, true), Written(conf_, true));
    EXPECT_TRUE(conf.WriteConfig());
    EXPECT_TRUE(std::filesystem::exists(kConfigFile));
}

/** Refuses its settings, one way or the other. */
class RefusingConf : public RelaydConf {
public:
    RefusingConf(bool takes, bool writes) : RelaydConf(nullptr), takes_(takes), writes_(writes) {}
    bool Overwrite(const Json::Value&) override { return takes_; }
    bool IsValid() const override { return writes_; }
    bool Write(Json::Value&, bool) const override { return false; }

private:
    bool takes_;
    bool writes_;
};

TEST_F(RelaydConfFile, LoadingAsksTheSubclass) {
    WriteText(kConfigFile, "{}");
    ExpectMessage(3, "config.cpp invalid relayd config: can not overwrite default",
                  [] { EXPECT_FALSE(RefusingConf(false, true).ReadConfigFile(kConfigFile)); });
    ExpectMessage(3, "config.cpp invalid relayd config",
                  [] { EXPECT_FALSE(RefusingConf(true, false).ReadConfigFile(kConfigFile)); });
    EXPECT_TRUE(RefusingConf(true, true).ReadConfigFile(kConfigFile));
}

TEST_F(RelaydConfFile, SavingAsksTheSubclass) {
    WriteText(kConfigFile, "{}");
    RefusingConf conf(true, true);
    conf.ReadConfigFile(kConfigFile);
    EXPECT_THAT(MessagesAt(9, [&] { EXPECT_FALSE(conf.WriteConfig()); }), IsEmpty());
    EXPECT_EQ(ReadText(kConfigFile), "{}");
}

TEST_F(RelaydConfFile, InvalidSettingsAreNotSaved) {
    WriteText(kConfigFile, R"({"mine":1})");
    conf_.ReadConfigFile(kConfigFile);
    conf_.Overwrite(JsonOf(R"({"server_control":{"port":-1}})"));
    const CapturedLog log(3);
    EXPECT_FALSE(conf_.WriteConfig());
    EXPECT_THAT(log.Messages(),
                ElementsAre("config.cpp wrong control server config", "config.cpp invalid relayd config"));
    EXPECT_EQ(ReadText(kConfigFile), R"({"mine":1})");
    EXPECT_THAT(MessagesAt(2, [this] { conf_.WriteConfig(); }), IsEmpty());
}

TEST_F(RelaydConfFile, SavedAnewHasNoneOfTheSettingsThatAreMadeByHand) {
    RelaydConf conf(kConfigFile);
    conf.Overwrite(JsonOf(R"({"serverID":"7","log_level":6,"log_file":"/x","disable_holepunch":true,
                              "server_global":{"host":"g.zz"},"server_waitcmd":{"host":"w.zz"}})"));
    ExpectMessage(7, kReadFailure, [&] {
        std::filesystem::remove(kConfigFile);
        EXPECT_TRUE(conf.WriteConfig());
    });
    EXPECT_EQ(Saved().getMemberNames(),
              (std::vector<std::string>{"serverID", "server_alias", "server_control", "server_kova", "server_smartdns",
                                        "service", "support_channel", "tethra"}));
}

class HandMadeSetting : public RelaydConfFile,
                        public testing::WithParamInterface<std::pair<const char*, const char*>> {};

TEST_P(HandMadeSetting, StaysInTheFileWithTheObjectsValueAndNoOtherComes) {
    const auto& [key, written] = GetParam();
    WriteText(kConfigFile, std::string("{\"") + key + "\":null}");
    RelaydConf conf(kConfigFile);
    conf.Overwrite(JsonOf(R"({"log_level":6,"log_file":"/x","disable_holepunch":true,"server_global":{"host":"g.zz"},
                              "server_waitcmd":{"host":"w.zz"}})"));
    const CapturedLog log;
    EXPECT_TRUE(conf.WriteConfig());
    EXPECT_EQ(log.Text(), "");
    const auto saved = Saved();
    EXPECT_EQ(saved[key], JsonOf(written));
    EXPECT_EQ(saved.size(), 8U) << "seven members that are always there, and " << key;
}

INSTANTIATE_TEST_SUITE_P(Keys, HandMadeSetting,
                         testing::Values(std::pair("log_level", "6"), std::pair("log_file", "\"/x\""),
                                         std::pair("server_global", R"({"host":"g.zz"})"),
                                         std::pair("server_waitcmd", R"({"host":"w.zz"})"),
                                         std::pair("disable_holepunch", "true")),
                         [](const auto& setting) { return setting.param.first; });

TEST_F(RelaydConfFile, SavedOneNeverHasRunTimeMembersAndLosesUnknownOnes) {
    WriteText(kConfigFile, R"({"pid":1,"enable":true,"debug":true,"network":{},"mine":1,"log_level":5})");
    RelaydConf conf(kConfigFile);
    EXPECT_TRUE(conf.WriteConfig());
    for (const char* key : {"pid", "enable", "debug", "network", "mine"}) {
        EXPECT_FALSE(Saved().isMember(key)) << key;
    }
    EXPECT_EQ(ModeOf(kConfigFile), 0644U);
}

TEST_F(RelaydConfFile, FileThatIsNoObjectAnyMoreIsReplaced) {
    for (const char* text : {"[\"log_level\"]", "\"log_level\"", "5", "null"}) {
        RelaydConf conf(kConfigFile);
        WriteText(kConfigFile, text);
        EXPECT_THAT(MessagesAt(9, [&] { EXPECT_TRUE(conf.WriteConfig()); }), IsEmpty()) << text;
        EXPECT_EQ(Saved().size(), 7U) << text;
    }
}

TEST_F(RelaydConfFile, ServicesSurviveLoadingAndSavingByTheirIdentifiers) {
    WriteText(kConfigFile, R"({"service":[{"id":"hos","port":5000,"mine":1},{"id":"other","name":"Other","port":1}]})");
    const CapturedLog log(0);
    RelaydConf conf(kConfigFile);
    EXPECT_TRUE(conf.WriteConfig());
    EXPECT_EQ(Saved()["service"], JsonOf(R"([{"id":"hos"},{"id":"other"}])"));
}

TEST_F(RelaydConfFile, FailureToSaveIsTheResult) {
    RelaydConf conf("/none/relay.conf");
    const CapturedLog log(3);
    EXPECT_FALSE(conf.WriteConfig());
    EXPECT_EQ(log.Messages().size(), 1U);
}

TEST_F(RelaydConfFile, WithoutAPathNothingIsLeftBehind) {
    const ScratchFolder folder;
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(folder.Path());
    const CapturedLog log(0);
    EXPECT_TRUE(conf_.WriteConfig()) << "the rename's result does not count";
    std::filesystem::current_path(before);
    EXPECT_THAT(folder.Names(), IsEmpty());
}

}  // namespace

}  // namespace ARDV::Relay
