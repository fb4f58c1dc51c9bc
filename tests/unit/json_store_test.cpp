// SPDX-License-Identifier: Apache-2.0
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <filesystem>
#include <string>
#include <thread>

#include <json/writer.h>

#include <relay/config/config.h>

#include "support/device_test.h"
#include "support/memory_faults.h"
#include "support/platform_faults.h"
#include "support/random_json.h"
#include "support/scratch_folder.h"

namespace ARDV::Relay {

namespace {

namespace fs = std::filesystem;

using namespace ardv::test;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::string_literals;

/** A scratch folder with the path of a JSON file in it. */
class StoreTest : public testing::Test {
protected:
    /** Reads the file into a value that held something else before. */
    bool Read() {
        value_ = "something else";
        return RelaydConf::ReadJsonFile(path_, value_);
    }

    bool Write(const char* json) const { return RelaydConf::WriteJsonFile(path_, JsonOf(json)); }

    ScratchFolder folder_;
    std::string path_ = folder_.File("file.json");
    Json::Value value_;
};

using ReadJsonFileTest = StoreTest;
using WriteJsonFileTest = StoreTest;

TEST_F(ReadJsonFileTest, LeavesAGoodFileInItsPlaceForWantOfMemory) {
    WriteText(path_, R"({"serverID": "a name that is long enough to need memory of its own", "list": [1, 2, {}]})");
    int strikes = 0;
    const auto readOrThrow = [&] {
        try {
            RelaydConf::ReadJsonFile(path_, value_);
        } catch (const std::bad_alloc&) {
        }
    };
    while (IsShortOfMemory(strikes, readOrThrow)) {
        ++strikes;
        ASSERT_THAT(folder_.Names(), ElementsAre("file.json")) << "after " << strikes << " allocations";
    }
    EXPECT_GT(strikes, 5);
    EXPECT_TRUE(Read());
}

TEST_F(ReadJsonFileTest, GivesTheValueOfTheFile) {
    WriteText(path_, "// a note\n{\"a\" : [1, 2]} ");
    const CapturedLog log;
    EXPECT_TRUE(Read());
    EXPECT_EQ(value_, JsonOf(R"({"a":[1,2]})"));
    EXPECT_FALSE(value_["a"].hasComment(Json::commentBefore));
    EXPECT_EQ(log.Text(), "");
    EXPECT_THAT(folder_.Names(), ElementsAre("file.json"));
}

TEST_F(ReadJsonFileTest, TakesARootOfAnyType) {
    for (const char* text : {"[1]", "\"text\"", "5", "null", "true"}) {
        WriteText(path_, text);
        EXPECT_TRUE(Read()) << text;
        EXPECT_EQ(value_, JsonOf(text));
    }
}

TEST_F(ReadJsonFileTest, EmptyPathIsAFailureThatTouchesNothing) {
    path_.clear();
    const CapturedLog log;
    EXPECT_FALSE(Read());
    EXPECT_TRUE(value_.isNull());
    EXPECT_EQ(log.Text(), "");
    EXPECT_FALSE(fs::exists(".bad"));
}

TEST_F(ReadJsonFileTest, MissingFileIsAnOrdinaryCaseWithoutAMessage) {
    const CapturedLog log;
    EXPECT_FALSE(Read());
    EXPECT_TRUE(value_.isNull());
    EXPECT_EQ(log.Text(), "");
    EXPECT_THAT(folder_.Names(), IsEmpty());
}

TEST_F(ReadJsonFileTest, FolderOrPipeInPlaceOfTheFileIsNoFile) {
    const CapturedLog log;
    fs::create_directory(path_);
    EXPECT_FALSE(Read());
    fs::remove(path_);
    ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
    EXPECT_FALSE(Read());
    EXPECT_TRUE(value_.isNull());
    EXPECT_EQ(log.Text(), "");
    EXPECT_THAT(folder_.Names(), ElementsAre("file.json"));
}

TEST_F(ReadJsonFileTest, FileThatCannotBeReadIsNeitherTakenNorMoved) {
    WriteText(path_, "{}");
    PlatformFaults faults;
    faults.readFails = true;
    const CapturedLog log;
    EXPECT_FALSE(Read());
    EXPECT_THAT(faults.inheritable, IsEmpty());
    EXPECT_TRUE(value_.isNull());
    EXPECT_EQ(log.Text(), "");
    EXPECT_THAT(folder_.Names(), ElementsAre("file.json"));
}

TEST_F(ReadJsonFileTest, IsCompleteAfterInterruptedReads) {
    const std::string text = "[\"" + std::string(500'000, 'x') + "\"]";
    WriteText(path_, text);
    PlatformFaults faults;
    faults.isInterrupted = true;
    EXPECT_TRUE(Read());
    EXPECT_EQ(value_[0].asString().size(), 500'000U);
}

TEST_F(ReadJsonFileTest, LeavesNoDescriptorBehind) {
    const auto before = OpenDescriptors();
    const CapturedLog log(0);
    const auto withLog = OpenDescriptors();
    Read();
    WriteText(path_, "{}");
    Read();
    WriteText(path_, "{");
    Read();
    fs::create_directory(path_);
    Read();
    EXPECT_EQ(OpenDescriptors(), withLog);
    EXPECT_GT(withLog, before);
}

/** Moves a damaged file aside, and sees what became of it. */
class MovingAside : public StoreTest {
protected:
    void Expect(const std::string& text);
};

void MovingAside::Expect(const std::string& text) {
    WriteText(path_, text);
    WriteText(path_ + ".bad", "an earlier one");
    const CapturedLog log(3);
    EXPECT_FALSE(Read());
    EXPECT_TRUE(value_.isNull());
    EXPECT_THAT(log.Messages(), ElementsAre("config.cpp bad json format [" + path_ + "]"));
    EXPECT_THAT(folder_.Names(), ElementsAre("file.json.bad"));
    EXPECT_TRUE(ReadText(path_ + ".bad") == text) << "kept byte for byte";
    EXPECT_EQ(ModeOf(path_ + ".bad"), 0644U);
    EXPECT_THAT(MessagesAt(9, [this] { EXPECT_FALSE(Read()); }), IsEmpty());
}

class DamagedFile : public MovingAside, public testing::WithParamInterface<std::string> {};

TEST_P(DamagedFile, IsMovedAsideSoThatTheNextReadFindsNone) {
    Expect(GetParam());
}

// Not a parameter: each start of the program would print it.
TEST_F(MovingAside, OfAFileThatIsLargerThanAnyIsTheSame) {
    Expect(std::string(2'000'000, '['));
}

INSTANTIATE_TEST_SUITE_P(Texts, DamagedFile,
                         testing::Values("", "{", "{\"a\":1", "{\"a\":1,\"b\":}", "[1,]", "\xef\xbb\xbf{}", "\0\0\0"s,
                                         "\0{}"s, "{\"a\"\0:1}"s, "1e400",
                                         std::string(1001, '[') + std::string(1001, ']'), std::string(100'000, '['),
                                         std::string(65'536, '\xff')));

TEST_F(ReadJsonFileTest, DamageIsAMessageOfLevelThree) {
    ExpectMessage(3, "config.cpp bad json format [" + path_ + "]", [this] {
        WriteText(path_, "{");
        EXPECT_FALSE(Read());
    });
}

TEST_F(ReadJsonFileTest, DamagedFileThatCannotBeMovedIsDeleted) {
    WriteText(path_ + ".bad/inner", "in the way");
    WriteText(path_, "{");
    const CapturedLog log(3);
    EXPECT_FALSE(Read());
    EXPECT_THAT(log.Messages(), ElementsAre("config.cpp bad json format [" + path_ + "]",
                                            "utils.cpp rename " + path_ + " to .bad failed. Is a directory"));
    EXPECT_THAT(folder_.Names(), ElementsAre("file.json.bad"));
}

TEST_F(ReadJsonFileTest, ReadsDuplicateKeysNulBytesAndAThousandNestedValues) {
    WriteText(path_, "{\"a\":1,\"a\":\"x\0y\"}"s);
    EXPECT_TRUE(Read());
    EXPECT_EQ(value_["a"].asString(), "x\0y"s);
    WriteText(path_, std::string(1000, '[') + std::string(1000, ']'));
    EXPECT_TRUE(Read());
}

TEST_F(ReadJsonFileTest, FileOfTheLargestSizeIsReadAndALargerOneIsDamaged) {
    std::string text = "[\"" + std::string(kMaxJsonFileSize - 4, 'x') + "\"]";
    ASSERT_EQ(text.size(), kMaxJsonFileSize);
    WriteText(path_, text);
    const CapturedLog log;
    EXPECT_TRUE(Read());
    EXPECT_EQ(log.Text(), "");
    WriteText(path_, text + "\n");
    EXPECT_FALSE(Read());
    EXPECT_TRUE(value_.isNull());
    EXPECT_THAT(log.Messages(), ElementsAre("config.cpp bad json format [" + path_ + "]"));
    EXPECT_THAT(folder_.Names(), ElementsAre("file.json.bad"));
}

TEST_F(ReadJsonFileTest, FileOfATebibyteIsDamagedAndNeverRead) {
    WriteText(path_, "{}");
    fs::resize_file(path_, std::uintmax_t{1} << 40U);
    PlatformFaults faults;
    faults.readFails = true;
    ExpectMessage(3, "config.cpp bad json format [" + path_ + "]", [this] {
        if (!fs::exists(path_)) {
            fs::rename(path_ + ".bad", path_);
        }
        EXPECT_FALSE(Read());
        EXPECT_TRUE(value_.isNull());
    });
    EXPECT_THAT(folder_.Names(), ElementsAre("file.json.bad"));
    EXPECT_EQ(fs::file_size(path_ + ".bad"), std::uintmax_t{1} << 40U);
}

TEST_F(ReadJsonFileTest, FileThatGrowsPastTheLargestSizeWhileItIsReadIsDamaged) {
    WriteText(path_, "{}");
    PlatformFaults faults;
    faults.onRead = [this](const std::string& path) {
        if (path == path_) {
            fs::resize_file(path, 3 * kMaxJsonFileSize);
        }
    };
    const CapturedLog log(3);
    EXPECT_FALSE(Read());
    EXPECT_THAT(log.Messages(), ElementsAre("config.cpp bad json format [" + path_ + "]"));
}

TEST_F(ReadJsonFileTest, FileThatDoesNotTellItsSizeIsReadWhole) {
    std::array<char, 16> name = {};
    prctl(PR_GET_NAME, name.data());
    prctl(PR_SET_NAME, "[1234567890]");  // the kernel shows it as a file
    path_ = "/proc/thread-self/comm";
    EXPECT_TRUE(Read());
    prctl(PR_SET_NAME, name.data());
    EXPECT_EQ(fs::file_size(path_), 0U);
    EXPECT_EQ(value_, JsonOf("[1234567890]"));
}

TEST_F(ReadJsonFileTest, LinkInAFolderOfEverybodyIsNotFollowed) {
    folder_.Share();
    WriteText(folder_.File("victim"), "no JSON, a secret");
    fs::create_symlink(folder_.File("victim"), path_);
    const CapturedLog log;
    EXPECT_FALSE(Read());
    EXPECT_TRUE(value_.isNull());
    EXPECT_EQ(log.Text(), "");
    EXPECT_EQ(ReadText(folder_.File("victim")), "no JSON, a secret");
}

TEST_F(ReadJsonFileTest, LinkInTheOwnersFolderIsFollowed) {
    WriteText(folder_.File("elsewhere"), "{\"a\":1}");
    fs::create_symlink(folder_.File("elsewhere"), path_);
    EXPECT_TRUE(Read());
    EXPECT_EQ(value_, JsonOf(R"({"a":1})"));
}

TEST_F(WriteJsonFileTest, WritesTheStyledFormWithModeRwRR) {
    WriteText(path_, "an old file with a longer text");
    fs::permissions(path_, fs::perms(0600));
    const CapturedLog log;
    EXPECT_TRUE(Write(R"({"b":[1,{"c":"é"}],"a":{}})"));
    EXPECT_EQ(ReadText(path_),
              "{\n   \"a\" : {},\n   \"b\" : [\n      1,\n      {\n         \"c\" : \"\\u00e9\"\n      }\n   ]\n}\n");
    EXPECT_EQ(ModeOf(path_), 0644U);
    EXPECT_EQ(log.Text(), "");
    EXPECT_THAT(folder_.Names(), ElementsAre("file.json"));
}

TEST_F(WriteJsonFileTest, WritesWhatTheLibrarysStyledWriterWritesAndReadsItBack) {
    RandomJson random(3, {"server_alias", "list"});
    for (int i = 0; i < 100; ++i) {
        const auto value = random.Value(4);
        ASSERT_TRUE(RelaydConf::WriteJsonFile(path_, value));
        ASSERT_EQ(ReadText(path_), Json::StyledWriter().write(value));
        ASSERT_TRUE(Read());
    }
}

TEST_F(WriteJsonFileTest, TextOfTheLargestSizeIsWrittenAndALargerOneIsNot) {
    const std::string text(kMaxJsonFileSize - std::string("\"\"\n").size(), 'x');
    const CapturedLog log;
    EXPECT_TRUE(RelaydConf::WriteJsonFile(path_, Json::Value(text)));
    EXPECT_EQ(fs::file_size(path_), kMaxJsonFileSize);
    EXPECT_TRUE(Read());
    EXPECT_EQ(log.Text(), "");
    ExpectMessage(3, "config.cpp write file " + TemporaryOf(path_) + " failed",
                  [&] { EXPECT_FALSE(RelaydConf::WriteJsonFile(path_, Json::Value(text + "x"))); });
    EXPECT_EQ(fs::file_size(path_), kMaxJsonFileSize) << "as it was";
    EXPECT_THAT(folder_.Names(), ElementsAre("file.json"));
}

TEST_F(WriteJsonFileTest, FlushesTheTextBeforeTheRenameAndTheFolderAfterIt) {
    PlatformFaults faults;
    EXPECT_TRUE(Write("{}"));
    EXPECT_THAT(faults.calls, ElementsAre("fsync " + TemporaryOf(path_), "rename " + TemporaryOf(path_) + " " + path_,
                                          "fsync " + folder_.Path()));
    EXPECT_THAT(faults.inheritable, IsEmpty());
}

TEST_F(WriteJsonFileTest, MissingFolderIsAFailureThatNamesTheTemporaryFile) {
    path_ = folder_.File("none/file.json");
    ExpectMessage(3, "config.cpp open failed [" + TemporaryOf(path_) + "]", [this] { EXPECT_FALSE(Write("{}")); });
    EXPECT_THAT(folder_.Names(), IsEmpty());
}

TEST_F(WriteJsonFileTest, FullDiskKeepsTheOldFileAndLeavesTheTemporaryOne) {
    const MountedDisk disk(folder_.Path(), 8192);
    WriteText(path_, "old");
    const Json::Value large(std::string(100'000, 'x'));
    const CapturedLog log(3);
    EXPECT_FALSE(RelaydConf::WriteJsonFile(path_, large));
    EXPECT_THAT(log.Messages(), ElementsAre("config.cpp write file " + TemporaryOf(path_) + " failed"));
    EXPECT_EQ(ReadText(path_), "old");
    EXPECT_TRUE(fs::exists(TemporaryOf(path_)));
    EXPECT_THAT(MessagesAt(2, [&] { RelaydConf::WriteJsonFile(path_, large); }), IsEmpty());
}

TEST_F(WriteJsonFileTest, FailureToReachTheDiskIsAFailedWrite) {
    WriteText(path_, "old");
    PlatformFaults faults;
    faults.syncFails = true;
    ExpectMessage(3, "config.cpp write file " + TemporaryOf(path_) + " failed", [this] { EXPECT_FALSE(Write("{}")); });
    EXPECT_EQ(ReadText(path_), "old");
    EXPECT_EQ(ReadText(TemporaryOf(path_)), "{}\n");
}

TEST_F(WriteJsonFileTest, CountsAsDoneWhereOnlyTheRenameFails) {
    WriteText(path_ + "/inner", "in the way");
    ExpectMessage(3, "utils.cpp rename " + TemporaryOf(path_) + " to " + path_ + " failed, errno: 21",
                  [this] { EXPECT_TRUE(Write("{}")); });
    EXPECT_THAT(folder_.Names(), ElementsAre("file.json"));
    EXPECT_EQ(ReadText(path_ + "/inner"), "in the way");
}

TEST_F(WriteJsonFileTest, LinkAtTheTemporaryNameIsNotFollowed) {
    folder_.Share();
    WriteText(folder_.File("victim"), "of value");
    fs::permissions(folder_.File("victim"), fs::perms(0600));
    fs::create_symlink(folder_.File("victim"), TemporaryOf(path_));
    EXPECT_TRUE(Write("{}"));
    EXPECT_EQ(ReadText(folder_.File("victim")), "of value");
    EXPECT_EQ(ModeOf(folder_.File("victim")), 0600U);
    EXPECT_FALSE(fs::is_symlink(path_));
    EXPECT_EQ(ReadText(path_), "{}\n");
}

TEST_F(WriteJsonFileTest, LeavesNoDescriptorBehind) {
    const CapturedLog log(0);
    const auto before = OpenDescriptors();
    Write("{}");
    path_ = folder_.File("none/file.json");
    Write("{}");
    EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(WriteJsonFileTest, ReadersNeverSeeHalfAFile) {
    const Json::Value values[] = {JsonOf(R"({"short":1})"), Json::Value(std::string(200'000, 'x'))};
    RelaydConf::WriteJsonFile(path_, values[0]);
    std::atomic<bool> isDone = false;
    std::atomic<int> torn = 0;
    std::thread reader([&] {
        do {
            Json::Value seen;
            torn += !RelaydConf::ReadJsonFile(path_, seen) || (seen != values[0] && seen != values[1]);
        } while (!isDone);
    });
    for (std::size_t i = 0; i < 200; ++i) {
        RelaydConf::WriteJsonFile(path_, values[i % 2]);
    }
    isDone = true;
    reader.join();
    EXPECT_EQ(torn, 0);
    EXPECT_THAT(folder_.Names(), ElementsAre("file.json"));
}

}  // namespace

}  // namespace ARDV::Relay
