// SPDX-License-Identifier: Apache-2.0
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <string>
#include <thread>

#include <relay/utils/utils.h>

#include "support/device_test.h"
#include "support/platform_faults.h"
#include "support/scratch_folder.h"

namespace ARDV::Relay::Utils {

namespace {

namespace fs = std::filesystem;

using namespace ardv::test;
using testing::ElementsAre;
using testing::IsEmpty;

void MakeFile(const std::string& path, const std::string& text, unsigned mode) {
    WriteText(path, text);
    fs::permissions(path, fs::perms(mode));
}

/** A folder with a file in it: nothing can be renamed onto it. */
void MakeObstacle(const std::string& path) {
    WriteText(path + "/inner", "kept");
}

class FilesTest : public testing::Test {
protected:
    const ScratchFolder& Folder() const { return folder_; }

private:
    ScratchFolder folder_;

protected:
    const std::string source_ = folder_.File("source");
    const std::string target_ = folder_.File("target");
};

using RenameFileTest = FilesTest;
using RenameBadFileTest = FilesTest;
using WriteFileTest = FilesTest;

TEST_F(RenameFileTest, PutsTheSourceInPlaceOfTheTargetWithModeRwRR) {
    MakeFile(source_, "new", 0600);
    MakeFile(target_, "old", 0777);
    const CapturedLog log;
    EXPECT_EQ(RenameFile(source_.c_str(), target_.c_str()), 0);
    EXPECT_EQ(ReadText(target_), "new");
    EXPECT_EQ(ModeOf(target_), 0644U);
    EXPECT_THAT(Folder().Names(), ElementsAre("target"));
    EXPECT_EQ(log.Text(), "");
}

TEST_F(RenameFileTest, SetsTheModeWhateverTheMask) {
    MakeFile(source_, "new", 0600);
    const auto before = umask(077);
    RenameFile(source_.c_str(), target_.c_str());
    umask(before);
    EXPECT_EQ(ModeOf(target_), 0644U);
}

TEST_F(RenameFileTest, FlushesTheTargetsFolderAfterTheRename) {
    MakeFile(source_, "new", 0600);
    PlatformFaults faults;
    RenameFile(source_.c_str(), target_.c_str());
    EXPECT_THAT(faults.calls, ElementsAre("rename " + source_ + " " + target_, "fsync " + Folder().Path()));
    EXPECT_THAT(faults.inheritable, IsEmpty());
}

TEST_F(RenameFileTest, FlushesTheRootOrTheCurrentFolderWhereThePathNamesNoOther) {
    const auto before = fs::current_path();
    fs::current_path(Folder().Path());
    PlatformFaults faults;
    MakeFile(source_, "new", 0600);
    EXPECT_EQ(RenameFile(source_.c_str(), "bare"), 0);
    MakeFile("/rename-file-source", "new", 0600);
    EXPECT_EQ(RenameFile("/rename-file-source", "/rename-file-test"), 0);
    fs::current_path(before);
    fs::remove("/rename-file-test");
    EXPECT_THAT(faults.CallsOf("fsync"), ElementsAre("fsync " + Folder().Path(), "fsync /"));
}

TEST_F(RenameFileTest, FailedRenameDeletesTheSourceAndKeepsTheTarget) {
    MakeObstacle(target_);
    MakeFile(source_, "new", 0600);
    const CapturedLog log;
    EXPECT_EQ(RenameFile(source_.c_str(), target_.c_str()), 0) << "the result of the deletion";
    EXPECT_THAT(log.Lines(), ElementsAre("utils.cpp:51 rename " + source_ + " to " + target_ + " failed, errno: 21"));
    EXPECT_THAT(Folder().Names(), ElementsAre("target"));
    EXPECT_EQ(ReadText(target_ + "/inner"), "kept");
}

TEST_F(RenameFileTest, MissingSourceFailsWithBothMessages) {
    MakeFile(target_, "old", 0600);
    const CapturedLog log;
    EXPECT_EQ(RenameFile(source_.c_str(), target_.c_str()), -1);
    EXPECT_THAT(log.Lines(), ElementsAre("utils.cpp:47 chmod " + source_ + " failed, errno: 2",
                                         "utils.cpp:51 rename " + source_ + " to " + target_ + " failed, errno: 2"));
    EXPECT_EQ(ReadText(target_), "old");
    EXPECT_EQ(ModeOf(target_), 0600U);
}

TEST_F(RenameFileTest, NullPointerIsAFailureWithNothingDone) {
    MakeFile(source_, "new", 0600);
    const CapturedLog log;
    EXPECT_EQ(RenameFile(nullptr, target_.c_str()), -1);
    EXPECT_EQ(RenameFile(source_.c_str(), nullptr), -1);
    EXPECT_EQ(RenameFile(nullptr, nullptr), -1);
    EXPECT_EQ(log.Text(), "");
    EXPECT_THAT(Folder().Names(), ElementsAre("source"));
    EXPECT_EQ(ModeOf(source_), 0600U);
}

TEST_F(RenameFileTest, FailuresAreMessagesOfLevelThree) {
    const auto fail = [this] { RenameFile(source_.c_str(), target_.c_str()); };
    EXPECT_EQ(MessagesAt(3, fail).size(), 2U);
    EXPECT_THAT(MessagesAt(2, fail), IsEmpty());
}

TEST_F(RenameFileTest, LinkInAFolderOfEverybodyKeepsItsTargetsMode) {
    Folder().Share();
    MakeFile(Folder().File("victim"), "secret", 0600);
    fs::create_symlink(Folder().File("victim"), source_);
    const CapturedLog log;
    EXPECT_EQ(RenameFile(source_.c_str(), target_.c_str()), 0);
    EXPECT_THAT(log.Lines(), ElementsAre("utils.cpp:47 chmod " + source_ + " failed, errno: 95"));
    EXPECT_EQ(ModeOf(Folder().File("victim")), 0600U);
}

TEST_F(RenameBadFileTest, MovesTheFileAsideWithModeRwRR) {
    MakeFile(source_, "damaged", 0600);
    const CapturedLog log;
    RenameBadFile(source_.c_str());
    EXPECT_THAT(Folder().Names(), ElementsAre("source.bad"));
    EXPECT_EQ(ReadText(source_ + ".bad"), "damaged");
    EXPECT_EQ(ModeOf(source_ + ".bad"), 0644U);
    EXPECT_EQ(log.Text(), "");
}

TEST_F(RenameBadFileTest, ReplacesAnEarlierOne) {
    MakeFile(source_ + ".bad", "earlier", 0600);
    MakeFile(source_, "damaged", 0600);
    RenameBadFile(source_.c_str());
    EXPECT_THAT(Folder().Names(), ElementsAre("source.bad"));
    EXPECT_EQ(ReadText(source_ + ".bad"), "damaged");
}

TEST_F(RenameBadFileTest, NullPointerIsNoFile) {
    const CapturedLog log;
    RenameBadFile(nullptr);
    EXPECT_EQ(log.Text(), "");
}

TEST_F(RenameBadFileTest, DeletesAFileThatCannotBeMoved) {
    MakeObstacle(source_ + ".bad");
    MakeFile(source_, "damaged", 0600);
    const CapturedLog log;
    RenameBadFile(source_.c_str());
    EXPECT_THAT(log.Lines(), ElementsAre("utils.cpp:64 rename " + source_ + " to .bad failed. Is a directory"));
    EXPECT_THAT(Folder().Names(), ElementsAre("source.bad"));
    EXPECT_EQ(ReadText(source_ + ".bad/inner"), "kept");
}

TEST_F(RenameBadFileTest, MissingFileIsTwoMessagesOfLevelThree) {
    const auto fail = [this] { RenameBadFile(source_.c_str()); };
    const CapturedLog log(3);
    fail();
    EXPECT_THAT(log.Lines(),
                ElementsAre("utils.cpp:59 chmod " + source_ + " failed, errno: 2",
                            "utils.cpp:64 rename " + source_ + " to .bad failed. No such file or directory"));
    EXPECT_THAT(MessagesAt(2, fail), IsEmpty());
}

TEST_F(RenameBadFileTest, LinkInAFolderOfEverybodyKeepsItsTargetsMode) {
    Folder().Share();
    MakeFile(Folder().File("victim"), "secret", 0600);
    fs::create_symlink(Folder().File("victim"), source_);
    const CapturedLog log;
    RenameBadFile(source_.c_str());
    EXPECT_THAT(log.Lines(), ElementsAre("utils.cpp:59 chmod " + source_ + " failed, errno: 95"));
    EXPECT_EQ(ModeOf(Folder().File("victim")), 0600U);
    EXPECT_TRUE(fs::is_symlink(source_ + ".bad"));
}

class WriteFileContent : public FilesTest, public testing::WithParamInterface<std::string> {};

TEST_P(WriteFileContent, IsWrittenByteForByte) {
    const CapturedLog log;
    EXPECT_TRUE(WriteFile(target_, GetParam()));
    EXPECT_EQ(ReadText(target_), GetParam());
    EXPECT_EQ(ModeOf(target_), 0644U);
    EXPECT_THAT(Folder().Names(), ElementsAre("target"));
    EXPECT_EQ(log.Text(), "");
}

INSTANTIATE_TEST_SUITE_P(Texts, WriteFileContent,
                         testing::Values("", "text", "text\n", std::string("a\0b", 3), "\xff\xfe\r\n",
                                         std::string(300'000, 'x')));

TEST_F(WriteFileTest, ReplacesAFileWhateverItsMode) {
    for (const unsigned mode : {0U, 0400U, 0600U, 0777U}) {
        MakeFile(target_, "old content, which is longer", mode);
        EXPECT_TRUE(WriteFile(target_, "new"));
        EXPECT_EQ(ReadText(target_), "new");
        EXPECT_EQ(ModeOf(target_), 0644U);
    }
}

TEST_F(WriteFileTest, FlushesTheContentBeforeTheRenameAndTheFolderAfterIt) {
    PlatformFaults faults;
    EXPECT_TRUE(WriteFile(target_, "new"));
    EXPECT_THAT(faults.calls,
                ElementsAre("fsync " + TemporaryOf(target_), "rename " + TemporaryOf(target_) + " " + target_,
                            "fsync " + Folder().Path()));
    EXPECT_THAT(faults.inheritable, IsEmpty());
}

TEST_F(WriteFileTest, TemporaryFileHasTheProcesssDefaultModeUntilItIsRenamed) {
    PlatformFaults faults;
    faults.syncFails = true;
    const CapturedLog log(0);
    for (const mode_t mask : {0U, 022U, 077U}) {
        const auto before = umask(mask);
        EXPECT_FALSE(WriteFile(target_, "new"));
        umask(before);
        EXPECT_EQ(ModeOf(TemporaryOf(target_)), 0666U & ~mask);
        fs::remove(TemporaryOf(target_));
    }
}

TEST_F(WriteFileTest, MissingFolderIsAFailureThatNamesTheTemporaryFile) {
    const auto path = Folder().File("none/file");
    ExpectMessage(3, "utils.cpp open failed [" + TemporaryOf(path) + "]",
                  [&] { EXPECT_FALSE(WriteFile(path, "new")); });
    EXPECT_THAT(Folder().Names(), IsEmpty());
    const CapturedLog log;
    WriteFile(path, "new");
    EXPECT_THAT(log.Lines(), ElementsAre("utils.cpp:82 open failed [" + TemporaryOf(path) + "]"));
}

TEST_F(WriteFileTest, FullDiskKeepsTheOldFileAndLeavesTheTemporaryOne) {
    const MountedDisk disk(Folder().Path(), 8192);
    MakeFile(target_, "old", 0600);
    const CapturedLog log;
    EXPECT_FALSE(WriteFile(target_, std::string(100'000, 'x')));
    EXPECT_THAT(log.Lines(), ElementsAre("utils.cpp:91 write file " + TemporaryOf(target_) + " failed"));
    EXPECT_EQ(ReadText(target_), "old");
    EXPECT_EQ(ModeOf(target_), 0600U);
    EXPECT_TRUE(fs::exists(TemporaryOf(target_)));
}

TEST_F(WriteFileTest, FailureToReachTheDiskIsAFailedWrite) {
    PlatformFaults faults;
    faults.syncFails = true;
    MakeFile(target_, "old", 0600);
    ExpectMessage(3, "utils.cpp write file " + TemporaryOf(target_) + " failed",
                  [this] { EXPECT_FALSE(WriteFile(target_, "new")); });
    EXPECT_EQ(ReadText(target_), "old");
    EXPECT_EQ(ReadText(TemporaryOf(target_)), "new");
    EXPECT_THAT(faults.CallsOf("rename"), IsEmpty());
}

TEST_F(WriteFileTest, CountsAsDoneWhereOnlyTheRenameFails) {
    MakeObstacle(target_);
    const CapturedLog log;
    EXPECT_TRUE(WriteFile(target_, "new"));
    EXPECT_THAT(log.Lines(),
                ElementsAre("utils.cpp:51 rename " + TemporaryOf(target_) + " to " + target_ + " failed, errno: 21"));
    EXPECT_THAT(Folder().Names(), ElementsAre("target"));
}

TEST_F(WriteFileTest, IsCompleteAfterShortAndInterruptedWrites) {
    PlatformFaults faults;
    faults.writeAtMost = 3;
    faults.isInterrupted = true;
    EXPECT_TRUE(WriteFile(target_, "ten bytes!"));
    faults.isInterrupted = false;
    EXPECT_EQ(ReadText(target_), "ten bytes!");
}

TEST_F(WriteFileTest, LeavesNoDescriptorBehind) {
    const CapturedLog log(0);
    const auto before = OpenDescriptors();
    WriteFile(target_, "new");
    WriteFile(Folder().File("none/file"), "new");
    EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(WriteFileTest, RemainderOfAnEarlierAttemptIsReplaced) {
    MakeFile(TemporaryOf(target_), "a longer remainder", 0400);
    EXPECT_TRUE(WriteFile(target_, "new"));
    EXPECT_EQ(ReadText(target_), "new");
}

TEST_F(WriteFileTest, LinkInPlaceOfTheFileIsReplacedAndNotFollowed) {
    MakeFile(Folder().File("victim"), "of value", 0600);
    fs::create_symlink(Folder().File("victim"), target_);
    EXPECT_TRUE(WriteFile(target_, "new"));
    EXPECT_EQ(ReadText(Folder().File("victim")), "of value");
    EXPECT_FALSE(fs::is_symlink(target_));
}

TEST_F(WriteFileTest, FolderAtTheTemporaryNameIsAFailure) {
    fs::create_directory(TemporaryOf(target_));
    ExpectMessage(3, "utils.cpp open failed [" + TemporaryOf(target_) + "]",
                  [this] { EXPECT_FALSE(WriteFile(target_, "new")); });
    EXPECT_FALSE(fs::exists(target_));
}

TEST_F(WriteFileTest, ReadersSeeTheOldContentOrTheNewOneWhole) {
    const std::string contents[] = {std::string(10, 'a'), std::string(200'000, 'b')};
    WriteFile(target_, contents[0]);
    std::atomic<bool> isDone = false;
    std::atomic<int> torn = 0;
    std::thread reader([&] {
        do {
            const auto seen = ReadText(target_);
            torn += seen != contents[0] && seen != contents[1];
        } while (!isDone);
    });
    for (std::size_t i = 0; i < 300; ++i) {
        WriteFile(target_, contents[i % 2]);
    }
    isDone = true;
    reader.join();
    EXPECT_EQ(torn, 0);
}

}  // namespace

}  // namespace ARDV::Relay::Utils
