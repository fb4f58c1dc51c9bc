// SPDX-License-Identifier: Apache-2.0
#include <relay/alias/alias_conf.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <string>

#include <relay/common/deployment.h>
#include <relay/config/config.h>

#include "support/device_test.h"
#include "support/scratch_folder.h"

namespace ARDV::Relay {

namespace {

using namespace ardv::test;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::int32_t kWeek = 604'800;

/** Where callers built against the binary interface find the members. */
struct [[gnu::may_alias]] AliasLayout {
    void* table;
    bool changed;
    std::int32_t pollSeconds;
    std::string aliasName;
    std::string url;
};
static_assert(sizeof(AliasLayout) == sizeof(AliasConf));

/** The members of an object, to be brought into states that no operation of the library makes. */
AliasLayout& MembersOf(AliasConf& alias) {
    return *reinterpret_cast<AliasLayout*>(&alias);
}

AliasConf Alias(const char* json) {
    AliasConf alias;
    alias.Overwrite(JsonOf(json));
    return alias;
}

const std::string kDefaultWritten =
    std::string("{\"alias\":\"\",\"poll_seconds\":604800,\"url\":\"") + Deployment::kAliasUrl + "\"}\n";

TEST(AliasConf, StartsWithoutAnAliasAtTheServicesServerEverySevenDays) {
    const AliasConf alias;
    EXPECT_EQ(Written(alias, false), kDefaultWritten);
    EXPECT_EQ(alias.GetAliasName(), "");
    EXPECT_EQ(alias.GetUrl(), Deployment::kAliasUrl);
    EXPECT_THAT(alias.GetUrl(), testing::StartsWith("https://"));
    EXPECT_FALSE(alias.IsAliasEnabled());
    EXPECT_FALSE(alias.IsChanged());
    EXPECT_TRUE(alias.IsValid());
}

TEST(AliasConf, HasItsMembersInOrder) {
    auto alias = Alias(R"({"alias":"mybox","url":"https://a.zz","poll_seconds":60})");
    const auto& members = MembersOf(alias);
    EXPECT_FALSE(members.changed);
    EXPECT_EQ(members.pollSeconds, 60);
    EXPECT_EQ(members.aliasName, "mybox");
    EXPECT_EQ(members.url, "https://a.zz");
}

TEST(AliasConf, SeedsTheLibrarysGeneratorWithTheTime) {
    const auto before = std::time(nullptr);
    const AliasConf alias;
    const auto drawn = random();
    const auto after = std::time(nullptr);
    bool isSeeded = false;
    for (auto time = before; time <= after; ++time) {
        srandom(static_cast<unsigned>(time));
        isSeeded = isSeeded || random() == drawn;
    }
    EXPECT_TRUE(isSeeded);
}

struct MergeCase {
    const char* name;
    const char* json;
    const char* alias;
    const char* url;
    int pollSeconds;
    bool isLogged;
};

class AliasMerge : public testing::TestWithParam<MergeCase> {};

TEST_P(AliasMerge, TakesTheAliasAlwaysAndTheRestWhereItMakesSense) {
    const auto& expected = GetParam();
    auto alias = Alias(R"({"alias":"old","url":"https://old.zz","poll_seconds":60})");
    const auto messages = MessagesAt(7, [&] { EXPECT_TRUE(alias.Overwrite(JsonOf(expected.json))); });
    EXPECT_EQ(alias.GetAliasName(), expected.alias);
    EXPECT_EQ(alias.GetUrl(), expected.url);
    EXPECT_EQ(MembersOf(alias).pollSeconds, expected.pollSeconds);
    EXPECT_EQ(messages, std::vector<std::string>(expected.isLogged ? 1 : 0, "alias_conf.cpp alias config changed"));
    EXPECT_FALSE(alias.IsChanged());
}

INSTANTIATE_TEST_SUITE_P(
    Values, AliasMerge,
    testing::Values(
        MergeCase{"Same", R"({"alias":"old","url":"https://old.zz","poll_seconds":60})", "old", "https://old.zz", 60,
                  false},
        MergeCase{"OtherAlias", R"({"alias":"new"})", "new", "https://old.zz", 60, true},
        MergeCase{"NoAlias", "{}", "", "https://old.zz", 60, true},
        MergeCase{"EmptyAlias", R"({"alias":""})", "", "https://old.zz", 60, true},
        MergeCase{"NumberForAlias", R"({"alias":5})", "", "https://old.zz", 60, true},
        MergeCase{"Null", "null", "", "https://old.zz", 60, true},
        MergeCase{"Array", R"([{"alias":"new"}])", "", "https://old.zz", 60, true},
        MergeCase{"Text", R"("alias")", "", "https://old.zz", 60, true},
        MergeCase{"OtherUrl", R"({"alias":"old","url":"https://new.zz"})", "old", "https://new.zz", 60, true},
        MergeCase{"EmptyUrl", R"({"alias":"old","url":""})", "old", "https://old.zz", 60, false},
        MergeCase{"NumberForUrl", R"({"alias":"old","url":5})", "old", "https://old.zz", 60, false},
        MergeCase{"OtherInterval", R"({"alias":"old","poll_seconds":1})", "old", "https://old.zz", 1, true},
        MergeCase{"NoInterval", R"({"alias":"old","poll_seconds":0})", "old", "https://old.zz", 60, false},
        MergeCase{"NegativeInterval", R"({"alias":"old","poll_seconds":-5})", "old", "https://old.zz", 60, false},
        MergeCase{"TextForInterval", R"({"alias":"old","poll_seconds":"5"})", "old", "https://old.zz", 60, false},
        MergeCase{"LargestInterval", R"({"alias":"old","poll_seconds":2147483647})", "old", "https://old.zz",
                  2147483647, true},
        MergeCase{"IntervalOutOfRange", R"({"alias":"old","poll_seconds":2147483648})", "old", "https://old.zz", 60,
                  false}),
    [](const auto& merge) { return merge.param.name; });

TEST(AliasConf, ChangeIsAMessageOfLevelSeven) {
    AliasConf alias;
    int count = 0;
    ExpectMessage(7, "alias_conf.cpp alias config changed", [&] {
        Json::Value value;
        value["alias"] = "box" + std::to_string(++count);
        alias.Overwrite(value);
    });
}

TEST(AliasConf, ClearingWithoutAnAliasBeforeIsNoChange) {
    AliasConf alias;
    EXPECT_THAT(MessagesAt(9, [&] { alias.Overwrite(JsonOf("{}")); }), IsEmpty());
}

TEST(AliasConf, IsNotValidWithoutAUrlOrAnInterval) {
    AliasConf alias;
    MembersOf(alias).pollSeconds = 0;
    ExpectMessage(3, "alias_conf.cpp Polling second is empty", [&] { EXPECT_FALSE(alias.IsValid()); });
    MembersOf(alias).url.clear();
    ExpectMessage(3, "alias_conf.cpp URL is empty", [&] { EXPECT_FALSE(alias.IsValid()); });
    MembersOf(alias).pollSeconds = -1;
    MembersOf(alias).url = "x";
    EXPECT_THAT(MessagesAt(9, [&] { EXPECT_TRUE(alias.IsValid()); }), IsEmpty());
}

TEST(AliasConf, SparseFormHasWhatDiffersFromTheDefaults) {
    EXPECT_EQ(Written(AliasConf(), true), "{\"alias\":\"\"}\n");
    EXPECT_EQ(Written(Alias(R"({"alias":"mybox","url":"https://a.zz"})"), true),
              "{\"alias\":\"mybox\",\"url\":\"https://a.zz\"}\n");
    EXPECT_EQ(Written(Alias(R"({"alias":"mybox","poll_seconds":60})"), true),
              "{\"alias\":\"mybox\",\"poll_seconds\":60}\n");
}

TEST(AliasConf, SparseFormLeavesAMemberThatIsAlreadyThere) {
    auto value = JsonOf(R"({"alias":"old","url":"https://old.zz","poll_seconds":60})");
    AliasConf().Write(value, true);
    EXPECT_EQ(value, JsonOf(R"({"alias":"","url":"https://old.zz","poll_seconds":60})"));
    AliasConf().Write(value, false);
    EXPECT_EQ(ARDV::Relay::JsonText::Compact(value), kDefaultWritten);
}

TEST(AliasConf, AliasIsKeptExactlyWhereOneIsSet) {
    AliasConf alias;
    const CapturedLog log;
    EXPECT_TRUE(alias.SetAliasName("mybox"));
    EXPECT_TRUE(alias.IsAliasEnabled());
    EXPECT_EQ(alias.GetAliasName(), "mybox");
    EXPECT_TRUE(alias.SetAliasName(""));
    EXPECT_FALSE(alias.IsAliasEnabled());
    EXPECT_FALSE(alias.IsChanged());
    EXPECT_EQ(log.Text(), "");
}

TEST(AliasConf, ChangeFlagIsReadAndCleared) {
    AliasConf alias;
    MembersOf(alias).changed = true;
    EXPECT_TRUE(alias.IsChanged());
    alias.CommitChange();
    EXPECT_FALSE(alias.IsChanged());
}

/** The kernel's random bytes are these meanwhile. */
class AliasPolling : public testing::Test {
protected:
    static int PollingTime(std::int32_t interval, std::uint32_t drawn) {
        const ScratchFolder folder;
        std::string bytes(sizeof drawn, '\0');
        std::memcpy(bytes.data(), &drawn, sizeof drawn);
        WriteText(folder.File("bytes"), bytes);
        const MountedFile device(folder.File("bytes"), "/dev/urandom");
        AliasConf alias;
        MembersOf(alias).pollSeconds = interval;
        return alias.GetPollingTime();
    }
};

TEST_F(AliasPolling, IsTheIntervalAndASpreadOfUpToTwoDays) {
    EXPECT_EQ(PollingTime(kWeek, 0), kWeek);
    EXPECT_EQ(PollingTime(kWeek, 172'799), 777'599);
    EXPECT_EQ(PollingTime(kWeek, 172'800), kWeek);
    EXPECT_EQ(PollingTime(1, 0), 1);
    EXPECT_EQ(PollingTime(1, 172'799), 172'800);
    EXPECT_EQ(PollingTime(0, 0xffffffffU), static_cast<int>(0xffffffffU % 172'800U));
}

TEST_F(AliasPolling, IgnoresTheSignOfTheInterval) {
    EXPECT_EQ(PollingTime(-2147483647, 5), 1 + 5);
    EXPECT_EQ(PollingTime(-1, 0), 2147483647);
}

TEST_F(AliasPolling, WrapsAroundAsUnsignedNumbersDo) {
    EXPECT_EQ(PollingTime(2147483647, 1), -2147483647 - 1);
}

TEST_F(AliasPolling, IsDrawnAnewEachTime) {
    const AliasConf alias;
    std::set<int> drawn;
    for (int i = 0; i < 50; ++i) {
        const int seconds = alias.GetPollingTime();
        EXPECT_GE(seconds, kWeek);
        EXPECT_LE(seconds, 777'599);
        drawn.insert(seconds);
    }
    EXPECT_GT(drawn.size(), 1U);
}

using AliasFile = DeviceTest;

TEST_F(AliasFile, SavesItsMemberAndKeepsTheOthers) {
    WriteText(kConfigFile, R"({"serverID":"7","server_alias":{"alias":"old","poll_seconds":60,"note":1},"mine":[1]})");
    const CapturedLog log;
    EXPECT_TRUE(Alias(R"({"alias":"mybox","url":"https://a.zz"})").WriteConfig());
    EXPECT_EQ(
        JsonOf(ReadText(kConfigFile)),
        JsonOf(R"({"serverID":"7","server_alias":{"alias":"mybox","poll_seconds":60,"note":1,"url":"https://a.zz"},
                         "mine":[1]})"));
    EXPECT_THAT(log.Messages(), ElementsAre("alias_conf.cpp alias config changed"));
    EXPECT_EQ(ModeOf(kConfigFile), 0644U);
}

TEST_F(AliasFile, MissingFileBecomesOneWithThisMemberAlone) {
    ExpectMessage(7, "alias_conf.cpp invalid relayd config, /usr/ardv/etc/ardvrelayd/ardvrelayd.conf", [] {
        std::filesystem::remove(kConfigFile);
        EXPECT_TRUE(AliasConf().WriteConfig());
    });
    EXPECT_EQ(ReadText(kConfigFile), "{\n   \"server_alias\" : {\n      \"alias\" : \"\"\n   }\n}\n");
}

TEST_F(AliasFile, FileOfAnotherShapeBecomesOneWithThisMemberAlone) {
    for (const char* text : {"[1,2]", "\"text\"", "5", "null", R"({"server_alias":[1]})", R"({"server_alias":"x"})"}) {
        WriteText(kConfigFile, text);
        EXPECT_THAT(MessagesAt(9, [] { EXPECT_TRUE(AliasConf().WriteConfig()); }), IsEmpty());
        EXPECT_EQ(JsonOf(ReadText(kConfigFile)), JsonOf(R"({"server_alias":{"alias":""}})")) << text;
    }
}

TEST_F(AliasFile, DamagedFileIsMovedAsideAndReplaced) {
    WriteText(kConfigFile, "{");
    const CapturedLog log(7);
    EXPECT_TRUE(AliasConf().WriteConfig());
    EXPECT_THAT(log.Messages(), ElementsAre("config.cpp bad json format [" + std::string(kConfigFile) + "]",
                                            "alias_conf.cpp invalid relayd config, " + std::string(kConfigFile)));
    EXPECT_EQ(ReadText(std::string(kConfigFile) + ".bad"), "{");
    EXPECT_EQ(JsonOf(ReadText(kConfigFile)), JsonOf(R"({"server_alias":{"alias":""}})"));
}

TEST_F(AliasFile, InvalidSettingsAreNotSaved) {
    WriteText(kConfigFile, "{}");
    AliasConf alias;
    MembersOf(alias).pollSeconds = 0;
    const CapturedLog log(3);
    EXPECT_FALSE(alias.WriteConfig());
    EXPECT_THAT(log.Messages(),
                ElementsAre("alias_conf.cpp Polling second is empty", "alias_conf.cpp invalid relayd config"));
    EXPECT_EQ(ReadText(kConfigFile), "{}");
    EXPECT_THAT(MessagesAt(2, [&] { alias.WriteConfig(); }), IsEmpty());
}

TEST_F(AliasFile, FailureToWriteIsTheResult) {
    std::filesystem::remove_all(kConfigFolder);
    const CapturedLog log(3);
    EXPECT_FALSE(AliasConf().WriteConfig());
    EXPECT_EQ(log.Messages().size(), 1U);
}

}  // namespace

}  // namespace ARDV::Relay
