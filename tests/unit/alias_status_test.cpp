// SPDX-License-Identifier: Apache-2.0
#include <relay/alias/alias_status.h>

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <type_traits>

#include "support/device_test.h"
#include "support/random_json.h"
#include "support/scratch_folder.h"

namespace ARDV::Relay {

namespace {

namespace fs = std::filesystem;

using namespace ardv::test;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string kStatusFile = "/tmp/nubo_alias.status";
const std::string kReadFailure = "alias_status.cpp invalid relayd config, /tmp/nubo_alias.status";
const std::string kTemporary = TemporaryOf(kStatusFile);

/** No status file at first, and none afterwards. */
class AliasStatusTest : public testing::Test {
protected:
    AliasStatusTest() { RemoveFiles(); }
    ~AliasStatusTest() override { RemoveFiles(); }

    static void RemoveFiles() {
        for (const auto& path : {kStatusFile, kStatusFile + ".bad", kTemporary}) {
            fs::remove_all(path);
        }
    }

    /** What a look-up gives: "STATUS/EXTRA", or "no" for false with nothing set. */
    static std::string Lookup(const AliasStatus& status, const std::string& alias) {
        std::string word = "-";
        std::string extra = "-";
        const bool found = status.GetStatus(alias, word, extra);
        return found ? word + "/" + extra : (word + extra == "--" ? "no" : "changed");
    }
};

TEST_F(AliasStatusTest, HasAVirtualDestructorAndNoOtherVirtualOperation) {
    EXPECT_TRUE(std::has_virtual_destructor_v<AliasStatus>);
    EXPECT_EQ(sizeof(AliasStatus), sizeof(void*) + sizeof(Json::Value));
}

TEST_F(AliasStatusTest, IsEmptyWithoutAFile) {
    ExpectMessage(7, kReadFailure, [] { AliasStatus(); });
    const AliasStatus status;
    EXPECT_EQ(Lookup(status, "mybox"), "no");
    EXPECT_EQ(Lookup(status, ""), "-/-") << "the empty alias matches a record without a name";
    ExpectMessage(3, "alias_status.cpp status should be array", [&] { EXPECT_FALSE(status.IsValid()); });
}

TEST_F(AliasStatusTest, ReadsTheFileAtConstructionAndOnReload) {
    WriteText(kStatusFile, R"({"alias_name":"mybox","status":"success","extra":"mybox2"})");
    const CapturedLog log;
    AliasStatus status;
    EXPECT_EQ(Lookup(status, "mybox"), "success/mybox2");
    EXPECT_TRUE(status.IsValid());
    WriteText(kStatusFile, R"({"alias_name":"mybox","status":"error_auth","extra":""})");
    EXPECT_EQ(Lookup(status, "mybox"), "success/mybox2");
    EXPECT_TRUE(status.Reload());
    EXPECT_EQ(Lookup(status, "mybox"), "error_auth/");
    EXPECT_EQ(log.Text(), "");
}

TEST_F(AliasStatusTest, FailedReloadEmptiesTheRecord) {
    WriteText(kStatusFile, R"({"alias_name":"mybox","status":"success"})");
    AliasStatus status;
    fs::remove(kStatusFile);
    ExpectMessage(7, kReadFailure, [&] { EXPECT_FALSE(status.Reload()); });
    EXPECT_EQ(Lookup(status, "mybox"), "no");
}

TEST_F(AliasStatusTest, DamagedFileIsMovedAside) {
    WriteText(kStatusFile, "{\"alias_name\":\"mybox\"");
    const CapturedLog log(7);
    const AliasStatus status;
    EXPECT_THAT(log.Messages(), ElementsAre("config.cpp bad json format [" + kStatusFile + "]", kReadFailure));
    EXPECT_TRUE(fs::exists(kStatusFile + ".bad"));
    EXPECT_FALSE(fs::exists(kStatusFile));
}

struct RecordCase {
    const char* name;
    const char* json;
    const char* fault;  ///< empty: valid
};

class AliasRecord : public AliasStatusTest, public testing::WithParamInterface<RecordCase> {};

TEST_P(AliasRecord, IsValidWithANameAndAStatusWord) {
    WriteText(kStatusFile, GetParam().json);
    AliasStatus status;
    const std::string fault = GetParam().fault;
    if (fault.empty()) {
        EXPECT_THAT(MessagesAt(9, [&] { EXPECT_TRUE(status.IsValid()); }), IsEmpty());
    } else {
        ExpectMessage(3, "alias_status.cpp " + fault, [&] { EXPECT_FALSE(status.IsValid()); });
        const CapturedLog log(0);
        EXPECT_FALSE(status.DumpToFile());
        EXPECT_EQ(ReadText(kStatusFile), GetParam().json) << "left as it was";
    }
}

INSTANTIATE_TEST_SUITE_P(
    Values, AliasRecord,
    testing::Values(RecordCase{"Whole", R"({"alias_name":"a","status":"success","extra":"x"})", ""},
                    RecordCase{"NameOfAnyType", R"({"alias_name":5,"status":"success"})", ""},
                    RecordCase{"NullName", R"({"alias_name":null,"status":"success"})", ""},
                    RecordCase{"Null", "null", "status should be array"},
                    RecordCase{"Array", "[]", "status should be array"},
                    RecordCase{"Text", R"("alias_name")", "status should be array"},
                    RecordCase{"Number", "5", "status should be array"},
                    RecordCase{"NoName", R"({"status":"success"})", "alias name is not object member"},
                    RecordCase{"Nothing", "{}", "alias name is not object member"},
                    RecordCase{"NoStatus", R"({"alias_name":"a"})", "status is not object member"},
                    RecordCase{"EmptyStatus", R"({"alias_name":"a","status":""})", "status is not string or empty"},
                    RecordCase{"NumberForStatus", R"({"alias_name":"a","status":5})", "status is not string or empty"},
                    RecordCase{"NullForStatus", R"({"alias_name":"a","status":null})", "status is not string or empty"},
                    RecordCase{"ObjectForStatus", R"({"alias_name":"a","status":{}})",
                               "status is not string or empty"}),
    [](const auto& record) { return record.param.name; });

struct LookupCase {
    const char* name;
    const char* json;
    const char* alias;
    const char* found;
};

class AliasLookup : public AliasStatusTest, public testing::WithParamInterface<LookupCase> {};

TEST_P(AliasLookup, SetsWhatIsATextWhereTheNameIsTheSame) {
    WriteText(kStatusFile, GetParam().json);
    const AliasStatus status;
    EXPECT_THAT(MessagesAt(9, [&] { EXPECT_EQ(Lookup(status, GetParam().alias), GetParam().found); }), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Records, AliasLookup,
    testing::Values(LookupCase{"Same", R"({"alias_name":"a","status":"s","extra":"e"})", "a", "s/e"},
                    LookupCase{"Other", R"({"alias_name":"b","status":"s","extra":"e"})", "a", "no"},
                    LookupCase{"OtherCase", R"({"alias_name":"A","status":"s","extra":"e"})", "a", "no"},
                    LookupCase{"EmptyForNamed", R"({"alias_name":"b","status":"s","extra":"e"})", "", "no"},
                    LookupCase{"NumberForExtra", R"({"alias_name":"a","status":"s","extra":5})", "a", "s/-"},
                    LookupCase{"NoExtra", R"({"alias_name":"a","status":"s"})", "a", "s/-"},
                    LookupCase{"NumberForStatus", R"({"alias_name":"a","status":5,"extra":"e"})", "a", "-/e"},
                    LookupCase{"EmptyTexts", R"({"alias_name":"a","status":"","extra":""})", "a", "/"},
                    LookupCase{"NumberForName", R"({"alias_name":5,"status":"s"})", "5", "no"},
                    LookupCase{"NumberForNameAsEmpty", R"({"alias_name":5,"status":"s"})", "", "s/-"},
                    LookupCase{"NoName", R"({"status":"s"})", "", "s/-"},
                    LookupCase{"Array", R"([{"alias_name":"a"}])", "", "-/-"}),
    [](const auto& lookup) { return lookup.param.name; });

TEST_F(AliasStatusTest, SetChangesTheObjectAloneUnlessItIsDumped) {
    AliasStatus status;
    const CapturedLog log;
    EXPECT_TRUE(status.SetStatus("mybox", "success", "detail", false));
    EXPECT_EQ(Lookup(status, "mybox"), "success/detail");
    EXPECT_FALSE(fs::exists(kStatusFile));
    EXPECT_TRUE(status.SetStatus("mybox", "error_auth", "", true));
    EXPECT_EQ(ReadText(kStatusFile),
              "{\n   \"alias_name\" : \"mybox\",\n   \"extra\" : \"\",\n   \"status\" : \"error_auth\"\n}\n");
    EXPECT_EQ(ModeOf(kStatusFile), 0644U);
    EXPECT_EQ(log.Text(), "");
}

TEST_F(AliasStatusTest, SetKeepsTheRecordsOtherMembers) {
    WriteText(kStatusFile, R"({"alias_name":"old","status":"success","since":12})");
    AliasStatus status;
    EXPECT_TRUE(status.SetStatus("mybox", "success", "x", true));
    EXPECT_EQ(JsonOf(ReadText(kStatusFile)),
              JsonOf(R"({"alias_name":"mybox","status":"success","extra":"x","since":12})"));
}

TEST_F(AliasStatusTest, SetStartsAnewOnARecordThatIsNoObject) {
    for (const char* text : {"[1,2]", "\"text\"", "5", "true", "null"}) {
        WriteText(kStatusFile, text);
        AliasStatus status;
        EXPECT_TRUE(status.SetStatus("mybox", "success", "", true)) << text;
        EXPECT_EQ(JsonOf(ReadText(kStatusFile)), JsonOf(R"({"alias_name":"mybox","status":"success","extra":""})"));
    }
}

TEST_F(AliasStatusTest, EmptyStatusIsSetButNeverWritten) {
    WriteText(kStatusFile, R"({"alias_name":"mybox","status":"success"})");
    AliasStatus status;
    ExpectMessage(3, "alias_status.cpp status is not string or empty",
                  [&] { EXPECT_FALSE(status.SetStatus("mybox", "", "x", true)); });
    EXPECT_EQ(ReadText(kStatusFile), R"({"alias_name":"mybox","status":"success"})");
    EXPECT_TRUE(status.SetStatus("mybox", "", "x", false));
}

TEST_F(AliasStatusTest, DumpWritesTheRecord) {
    AliasStatus status;
    status.SetStatus("mybox", "success", "x", false);
    EXPECT_TRUE(status.DumpToFile());
    EXPECT_EQ(Lookup(AliasStatus(), "mybox"), "success/x");
}

TEST_F(AliasStatusTest, FailureToWriteIsTheResult) {
    AliasStatus status;
    fs::create_directory(kTemporary);
    ExpectMessage(3, "config.cpp open failed [" + kTemporary + "]",
                  [&] { EXPECT_FALSE(status.SetStatus("mybox", "success", "x", true)); });
}

TEST_F(AliasStatusTest, PlantedLinkIsNeitherReadNorWrittenThrough) {
    const ScratchFolder folder;
    const auto victim = folder.File("victim");
    WriteText(victim, R"({"alias_name":"mybox","status":"planted"})");
    fs::permissions(victim, fs::perms(0600));
    fs::create_symlink(victim, kStatusFile);
    fs::create_symlink(victim, kTemporary);
    AliasStatus status;
    EXPECT_EQ(Lookup(status, "mybox"), "no");
    EXPECT_TRUE(status.SetStatus("mybox", "success", "x", true));
    EXPECT_EQ(ReadText(victim), R"({"alias_name":"mybox","status":"planted"})");
    EXPECT_EQ(ModeOf(victim), 0600U);
    EXPECT_FALSE(fs::is_symlink(kStatusFile));
    EXPECT_EQ(Lookup(AliasStatus(), "mybox"), "success/x");
}

TEST_F(AliasStatusTest, PlantedLinkToADamagedFileIsNotMovedAside) {
    const ScratchFolder folder;
    WriteText(folder.File("victim"), "no JSON");
    fs::create_symlink(folder.File("victim"), kStatusFile);
    EXPECT_THAT(MessagesAt(7, [] { AliasStatus(); }), ElementsAre(kReadFailure));
    EXPECT_TRUE(fs::is_symlink(kStatusFile));
    EXPECT_FALSE(fs::exists(kStatusFile + ".bad"));
}

TEST_F(AliasStatusTest, PlantedPipeDoesNotHangTheReader) {
    ASSERT_EQ(mkfifo(kStatusFile.c_str(), 0666), 0);
    AliasStatus status;
    EXPECT_FALSE(status.Reload());
    EXPECT_TRUE(status.SetStatus("mybox", "success", "", true));
    EXPECT_TRUE(fs::is_regular_file(kStatusFile));
}

TEST_F(AliasStatusTest, StaysSaneWhateverTheFileHolds) {
    RandomJson random(5, {"alias_name", "status", "extra"});
    const CapturedLog log(0);
    for (int i = 0; i < 500; ++i) {
        WriteText(kStatusFile, JsonText::Styled(random.Value(3)));
        AliasStatus status;
        ASSERT_NO_THROW(status.IsValid());
        ASSERT_NO_THROW(Lookup(status, "a"));
        ASSERT_TRUE(status.SetStatus("a", "success", "x", true));
        ASSERT_EQ(Lookup(AliasStatus(), "a"), "success/x");
    }
}

}  // namespace

}  // namespace ARDV::Relay
