// SPDX-License-Identifier: Apache-2.0
#include <relay/config/misc_conf.h>

#include <filesystem>
#include <string>
#include <type_traits>

#include "support/device_test.h"
#include "support/scratch_folder.h"

namespace ARDV::Relay {

namespace {

using namespace ardv::test;
using testing::ElementsAre;
using testing::IsEmpty;

static_assert(std::is_base_of_v<Config, MiscConf>);
static_assert(!std::has_virtual_destructor_v<MiscConf>, "the table of virtual operations ends with WriteConfig");
static_assert(sizeof(MiscConf) == 2 * sizeof(void*), "all settings are in a record of their own");

constexpr const char kDefaultFile[] =
    "{\n"
    "   \"relay_tunnel\" : {\n"
    "      \"relay_enabled\" : true\n"
    "   },\n"
    "   \"smartdns\" : {\n"
    "      \"support_type\" : 0\n"
    "   },\n"
    "   \"upnp\" : {\n"
    "      \"enabled\" : true\n"
    "   }\n"
    "}\n";

constexpr const char kAllChanged[] =
    R"({"relay_tunnel":{"relay_enabled":false},"upnp":{"enabled":false},"smartdns":{"support_type":2}})";

/** The three settings of the file as one text, e.g. "relay upnp 2". */
std::string Settings(const MiscConf& conf) {
    return std::string(conf.GetRelayEnabled() ? "relay " : "- ") + (conf.GetUpnpEnabled() ? "upnp " : "- ") +
           std::to_string(conf.GetSmartDNSSupportType());
}

class MiscConfTest : public testing::Test {
protected:
    /** An object whose file says something other than the defaults. */
    MiscConf Changed() const {
        WriteText(path_, kAllChanged);
        return MiscConf(path_.c_str(), false);
    }

    ScratchFolder folder_;
    std::string path_ = folder_.File("misc.conf");
};

TEST_F(MiscConfTest, StartsWithItsDefaultsAndWritesNothingUnlessAsked) {
    const CapturedLog log(3);
    const MiscConf conf(path_.c_str(), false);
    EXPECT_EQ(Settings(conf), "relay upnp 0");
    EXPECT_TRUE(conf.NeedRegisterConfig());
    EXPECT_EQ(conf.GetConfName(), path_);
    EXPECT_TRUE(conf.IsValid());
    EXPECT_THAT(log.Messages(), ElementsAre("misc_conf.cpp ignore"));
    EXPECT_THAT(folder_.Names(), IsEmpty());
}

TEST_F(MiscConfTest, WritesAMissingFileWithTheDefaultsWhenAsked) {
    const CapturedLog log(3);
    const MiscConf conf(path_.c_str(), true);
    EXPECT_THAT(log.Messages(), ElementsAre("misc_conf.cpp write"));
    EXPECT_EQ(ReadText(path_), kDefaultFile);
    EXPECT_EQ(ModeOf(path_), 0644U);
    EXPECT_THAT(folder_.Names(), ElementsAre("misc.conf"));
}

TEST_F(MiscConfTest, BothWordsAreMessagesOfLevelThree) {
    ExpectMessage(3, "misc_conf.cpp ignore", [this] { const MiscConf conf(path_.c_str(), false); });
    ExpectMessage(3, "misc_conf.cpp write", [this] {
        std::filesystem::remove(path_);
        const MiscConf conf(path_.c_str(), true);
    });
}

TEST_F(MiscConfTest, ReadsItsFileAndLeavesItAlone) {
    WriteText(path_, kAllChanged);
    const CapturedLog log;
    for (const bool init : {false, true}) {
        const MiscConf conf(path_.c_str(), init);
        EXPECT_EQ(Settings(conf), "- - 2");
        EXPECT_TRUE(conf.NeedRegisterConfig());
    }
    EXPECT_EQ(log.Text(), "");
    EXPECT_EQ(ReadText(path_), kAllChanged);
}

TEST_F(MiscConfTest, FileWithOneSwitchAloneGivesThatOverTheDefaults) {
    WriteText(path_, R"({"relay_tunnel":{"relay_enabled":false}})");
    EXPECT_EQ(Settings(MiscConf(path_.c_str(), true)), "- upnp 0");
    WriteText(path_, R"({"upnp":{"enabled":false}})");
    EXPECT_EQ(Settings(MiscConf(path_.c_str(), true)), "relay - 0");
    WriteText(path_, R"({"smartdns":{"support_type":5}})");
    EXPECT_EQ(Settings(MiscConf(path_.c_str(), true)), "relay upnp 5");
}

TEST_F(MiscConfTest, DamagedFileIsMovedAsideAndWrittenAnewWhenAsked) {
    WriteText(path_, "{");
    const CapturedLog log(3);
    const MiscConf conf(path_.c_str(), true);
    EXPECT_THAT(log.Messages(), ElementsAre("config.cpp bad json format [" + path_ + "]", "misc_conf.cpp write"));
    EXPECT_EQ(ReadText(path_), kDefaultFile);
    EXPECT_EQ(ReadText(path_ + ".bad"), "{");
}

TEST_F(MiscConfTest, DamagedFileIsMovedAsideAndNotWrittenUnlessAsked) {
    WriteText(path_, "{");
    const CapturedLog log(3);
    EXPECT_EQ(Settings(MiscConf(path_.c_str(), false)), "relay upnp 0");
    EXPECT_THAT(log.Messages(), ElementsAre("config.cpp bad json format [" + path_ + "]", "misc_conf.cpp ignore"));
    EXPECT_THAT(folder_.Names(), ElementsAre("misc.conf.bad"));
}

TEST_F(MiscConfTest, FileThatIsNoObjectIsReadAndLeftAlone) {
    for (const char* text : {"[true]", "5", "\"upnp\"", "null"}) {
        auto conf = Changed();
        WriteText(path_, text);
        const CapturedLog log;
        EXPECT_TRUE(conf.Reload(true)) << text;
        EXPECT_EQ(Settings(conf), "- - 0") << text;
        EXPECT_EQ(Settings(MiscConf(path_.c_str(), true)), "relay upnp 0") << text;
        EXPECT_EQ(ReadText(path_), text);
        EXPECT_EQ(log.Text(), "");
    }
    EXPECT_THAT(folder_.Names(), ElementsAre("misc.conf"));
}

TEST_F(MiscConfTest, FolderInThePlaceOfTheFileStaysThere) {
    std::filesystem::create_directory(path_);
    const CapturedLog log(3);
    MiscConf conf(path_.c_str(), true);
    const auto failure = "utils.cpp rename " + TemporaryOf(path_) + " to " + path_ + " failed, errno: 21";
    EXPECT_THAT(log.Messages(), ElementsAre("misc_conf.cpp write", failure));
    EXPECT_EQ(Settings(conf), "relay upnp 0");
    EXPECT_TRUE(conf.Reload(true)) << "the file was written, whatever became of its rename";
    EXPECT_TRUE(conf.Reload(false));
    EXPECT_TRUE(std::filesystem::is_empty(path_));
    EXPECT_THAT(folder_.Names(), ElementsAre("misc.conf"));
}

TEST_F(MiscConfTest, WithoutAPathNothingIsReadOrWritten) {
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(folder_.Path());
    const CapturedLog log(0);
    for (const char* path : {"", static_cast<const char*>(nullptr)}) {
        const MiscConf conf(path, true);
        EXPECT_EQ(conf.GetConfName(), "");
        EXPECT_EQ(Settings(conf), "relay upnp 0");
    }
    std::filesystem::current_path(before);
    EXPECT_THAT(folder_.Names(), IsEmpty());
}

TEST_F(MiscConfTest, ReloadTakesTheFileOverTheSettings) {
    auto conf = Changed();
    WriteText(path_, R"({"upnp":{"enabled":true},"smartdns":{"support_type":3}})");
    const CapturedLog log;
    EXPECT_TRUE(conf.Reload(false));
    EXPECT_EQ(Settings(conf), "- upnp 3") << "a switch that the file does not name stays";
    EXPECT_EQ(log.Text(), "");
}

TEST_F(MiscConfTest, ReloadWithoutAFileKeepsTheSettings) {
    auto conf = Changed();
    std::filesystem::remove(path_);
    ExpectMessage(3, "misc_conf.cpp ignore", [&] { EXPECT_TRUE(conf.Reload(false)); });
    EXPECT_EQ(Settings(conf), "- - 2");
    EXPECT_THAT(folder_.Names(), IsEmpty());
}

TEST_F(MiscConfTest, ReloadWithoutAFileWritesTheCurrentSettingsWhenAsked) {
    auto conf = Changed();
    std::filesystem::remove(path_);
    ExpectMessage(3, "misc_conf.cpp write", [&] {
        std::filesystem::remove(path_);
        EXPECT_TRUE(conf.Reload(true));
    });
    EXPECT_EQ(Settings(conf), "- - 2");
    EXPECT_EQ(JsonOf(ReadText(path_)), JsonOf(kAllChanged));
}

TEST_F(MiscConfTest, ReloadFailsWhereTheFileCannotBeWritten) {
    MiscConf conf("/none/misc.conf", false);
    const CapturedLog log(3);
    EXPECT_FALSE(conf.Reload(true));
    EXPECT_THAT(log.Messages(),
                ElementsAre("misc_conf.cpp write", "config.cpp open failed [" + TemporaryOf("/none/misc.conf") + "]"));
    EXPECT_TRUE(conf.Reload(false));
}

TEST_F(MiscConfTest, InitializeWritesOrDoesNot) {
    MiscConf conf = Changed();
    ExpectMessage(3, "misc_conf.cpp ignore", [&] { EXPECT_TRUE(conf.Initialize(false)); });
    EXPECT_EQ(ReadText(path_), kAllChanged);
    std::filesystem::remove(path_);
    ExpectMessage(3, "misc_conf.cpp write", [&] { EXPECT_TRUE(conf.Initialize(true)); });
    EXPECT_EQ(JsonOf(ReadText(path_)), JsonOf(kAllChanged));
    const CapturedLog log(0);
    EXPECT_FALSE(MiscConf("/none/misc.conf", false).Initialize(true));
    EXPECT_TRUE(MiscConf("/none/misc.conf", false).Initialize(false));
}

struct Merge {
    const char* json;
    const char* settings;
};

// Each is merged over an object that begins with "- - 2".
constexpr Merge kMerges[] = {
    {R"({"relay_tunnel":{"relay_enabled":true},"upnp":{"enabled":true},"smartdns":{"support_type":7}})",
     "relay upnp 7"},
    {R"({"relay_tunnel":{"relay_enabled":true},"smartdns":{"support_type":2}})", "relay - 2"},
    {R"({"upnp":{"enabled":true},"smartdns":{"support_type":-1}})", "- upnp -1"},
    {R"({"smartdns":{"support_type":2147483647}})", "- - 2147483647"},
    {R"({"smartdns":{"support_type":2147483648}})", "- - 0"},
    {R"({"smartdns":{"support_type":1.5}})", "- - 0"},
    {R"({"smartdns":{"support_type":"1"}})", "- - 0"},
    {R"({"smartdns":{"support_type":true}})", "- - 0"},
    {R"({"smartdns":{"support_type":null}})", "- - 0"},
    {R"({"smartdns":{}})", "- - 0"},
    {R"({"smartdns":2})", "- - 0"},
    {R"({"smartdns":[2]})", "- - 0"},
    {R"({"support_type":3,"relay_enabled":true,"enabled":true})", "- - 0"},
    {"{}", "- - 0"},
    {R"({"relay_tunnel":{"enabled":true},"upnp":{"relay_enabled":true}})", "- - 0"},
    {R"({"relay_tunnel":{"relay_enabled":1},"upnp":{"enabled":"true"}})", "- - 0"},
    {R"({"relay_tunnel":true,"upnp":[true]})", "- - 0"},
    {R"({"relay_tunnel":null,"upnp":"enabled"})", "- - 0"},
    {"null", "- - 0"},
    {"[true]", "- - 0"},
    {"5", "- - 0"},
    {"\"upnp\"", "- - 0"},
};

TEST_F(MiscConfTest, MergeTakesWhatIsThereAndForgetsAMissingSupportType) {
    for (const auto& [json, settings] : kMerges) {
        auto conf = Changed();
        const CapturedLog log;
        EXPECT_TRUE(conf.Overwrite(JsonOf(json)));
        EXPECT_EQ(Settings(conf), settings) << json;
        EXPECT_EQ(log.Text(), "");
    }
}

struct ItemMerge {
    const char* name;
    const char* json;
    const char* settings;
};

// Each is merged over an object that begins with "- - 2".
constexpr ItemMerge kItemMerges[] = {
    {"relay_tunnel", R"({"relay_enabled":true,"enabled":true,"support_type":3})", "relay - 2"},
    {"relay_tunnel", R"({"relay_enabled":1})", "- - 2"},
    {"relay_tunnel", R"({"enabled":true})", "- - 2"},
    {"relay_tunnel", R"({"relay_tunnel":{"relay_enabled":true}})", "- - 2"},
    {"relay_tunnel", "true", "- - 2"},
    {"upnp", R"({"relay_enabled":true,"enabled":true,"support_type":3})", "- upnp 2"},
    {"upnp", R"({"enabled":"yes"})", "- - 2"},
    {"upnp", "null", "- - 2"},
    {"smartdns", R"({"relay_enabled":true,"enabled":true,"support_type":3})", "- - 3"},
    {"smartdns", R"({"support_type":"3"})", "- - 0"},
    {"smartdns", "{}", "- - 0"},
    {"smartdns", "3", "- - 0"},
    {"smartdns", "[]", "- - 0"},
    {"smartdns", "null", "- - 0"},
    {"", R"({"relay_enabled":true,"enabled":true,"support_type":3})", "- - 2"},
    {"UPNP", R"({"enabled":true})", "- - 2"},
    {"smartdns ", R"({"support_type":3})", "- - 2"},
    {"support_type", R"({"support_type":3})", "- - 2"},
};

TEST_F(MiscConfTest, MergeOfAnItemChangesTheNamedSettingAlone) {
    for (const auto& [name, json, settings] : kItemMerges) {
        auto conf = Changed();
        const CapturedLog log;
        EXPECT_TRUE(conf.OverwriteItem(name, JsonOf(json)));
        EXPECT_EQ(Settings(conf), settings) << name << " " << json;
        EXPECT_EQ(log.Text(), "");
    }
}

TEST_F(MiscConfTest, WritesTheSameInBothModes) {
    auto conf = Changed();
    conf.SetRegisterFlag(false);
    for (const bool full : {false, true}) {
        EXPECT_EQ(Written(conf, full),
                  "{\"relay_tunnel\":{\"relay_enabled\":false},\"smartdns\":{\"support_type\":2},"
                  "\"upnp\":{\"enabled\":false}}\n");
    }
}

TEST_F(MiscConfTest, WritesBesideWhatAValueHas) {
    const auto conf = Changed();
    for (const bool full : {false, true}) {
        auto value = JsonOf(R"({"mine":1,"upnp":"old","smartdns":{"support_type":9}})");
        EXPECT_TRUE(conf.Write(value, full));
        EXPECT_EQ(value, JsonOf(R"({"mine":1,"relay_tunnel":{"relay_enabled":false},"upnp":{"enabled":false},
                                    "smartdns":{"support_type":2}})"));
    }
}

TEST_F(MiscConfTest, SavesItselfWholeAndLosesWhatItDoesNotKnow) {
    WriteText(path_, R"({"mine":1,"upnp":{"enabled":false}})");
    MiscConf conf(path_.c_str(), false);
    const CapturedLog log;
    EXPECT_TRUE(conf.WriteConfig());
    EXPECT_EQ(
        JsonOf(ReadText(path_)),
        JsonOf(R"({"relay_tunnel":{"relay_enabled":true},"upnp":{"enabled":false},"smartdns":{"support_type":0}})"));
    EXPECT_EQ(log.Text(), "");
}

TEST_F(MiscConfTest, FailureToSaveIsTheResult) {
    MiscConf conf("/none/misc.conf", false);
    ExpectMessage(3, "config.cpp open failed [" + TemporaryOf("/none/misc.conf") + "]",
                  [&] { EXPECT_FALSE(conf.WriteConfig()); });
}

TEST_F(MiscConfTest, SavesThroughItsBaseClass) {
    auto conf = Changed();
    conf.OverwriteItem("upnp", JsonOf(R"({"enabled":true})"));
    Config& base = conf;
    EXPECT_TRUE(base.WriteConfig());
    EXPECT_EQ(JsonOf(ReadText(path_))["upnp"], JsonOf(R"({"enabled":true})"));
}

TEST_F(MiscConfTest, RegistrationIsKeptInMemoryAndSurvivesAReload) {
    auto conf = Changed();
    conf.SetRegisterFlag(false);
    EXPECT_FALSE(conf.NeedRegisterConfig());
    EXPECT_TRUE(conf.WriteConfig());
    EXPECT_TRUE(conf.Reload(true));
    EXPECT_FALSE(conf.NeedRegisterConfig());
    EXPECT_TRUE(MiscConf(path_.c_str(), false).NeedRegisterConfig());
    conf.SetRegisterFlag(true);
    EXPECT_TRUE(conf.NeedRegisterConfig());
}

TEST_F(MiscConfTest, CopiesAreIndependentOfEachOther) {
    auto original = Changed();
    original.SetRegisterFlag(false);
    MiscConf copy(original);
    EXPECT_EQ(Settings(copy), "- - 2");
    EXPECT_EQ(copy.GetConfName(), path_);
    EXPECT_FALSE(copy.NeedRegisterConfig());
    original.Overwrite(JsonOf(R"({"upnp":{"enabled":true}})"));
    original.SetRegisterFlag(true);
    EXPECT_EQ(Settings(copy), "- - 2");
    EXPECT_FALSE(copy.NeedRegisterConfig());
    copy.Overwrite(JsonOf(R"({"relay_tunnel":{"relay_enabled":true}})"));
    EXPECT_EQ(Settings(original), "- upnp 0");
}

TEST_F(MiscConfTest, CopyOutlivesItsOriginal) {
    const auto copy = [this] {
        const auto original = Changed();
        return MiscConf(original);  // NOLINT(performance-no-automatic-move): it is the copy that is tried
    }();
    EXPECT_EQ(Settings(copy), "- - 2");
}

TEST_F(MiscConfTest, AssignmentCopiesAsWell) {
    auto original = Changed();
    const CapturedLog log(0);
    MiscConf other(folder_.File("other.conf").c_str(), false);
    other = original;
    original.Overwrite(JsonOf(R"({"upnp":{"enabled":true}})"));
    EXPECT_EQ(Settings(other), "- - 2");
    EXPECT_EQ(other.GetConfName(), path_);
    const auto& same = other;
    other = same;
    EXPECT_EQ(Settings(other), "- - 2");
}

TEST_F(MiscConfTest, EqualsInItsTwoSwitchesAlone) {
    const auto base = Changed();
    const auto with = [&base](const char* name, const char* json) {
        MiscConf conf(base);
        conf.OverwriteItem(name, JsonOf(json));
        return conf;
    };
    const auto expectEqual = [&base](const MiscConf& other, bool equal) {
        EXPECT_EQ(base == other, equal);
        EXPECT_EQ(base != other, !equal);
        EXPECT_EQ(other == base, equal);
    };
    expectEqual(base, true);
    expectEqual(with("smartdns", R"({"support_type":1})"), true);
    expectEqual(with("relay_tunnel", R"({"relay_enabled":true})"), false);
    expectEqual(with("upnp", R"({"enabled":true})"), false);
    MiscConf registered(base);
    registered.SetRegisterFlag(false);
    expectEqual(registered, true);
    const CapturedLog log(0);
    MiscConf elsewhere(folder_.File("other.conf").c_str(), false);
    expectEqual(elsewhere, false);
    elsewhere.Overwrite(JsonOf(kAllChanged));
    expectEqual(elsewhere, true);
}

}  // namespace

}  // namespace ARDV::Relay
