// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include <relay/daemon/daemon.h>

#include "support/device_test.h"
#include "support/scratch_folder.h"

namespace ARDV::Relay {

namespace {

using namespace ardv::test;
using testing::ElementsAre;
using testing::EndsWith;

constexpr const char kDefaultLogFile[] = "/var/log/ardvrelayd.log";

/** Restores what the log keeps for the whole process. Descriptor 2 and the threshold are the captured log's. */
class LogFileTest : public testing::Test {
protected:
    ~LogFileTest() override {
        Daemon::_isForked = false;
        Daemon::_strLogFile.clear();
    }

    std::string File() const { return folder_.File("relay.log"); }

    ScratchFolder folder_;
    CapturedLog log_{4};
};

TEST_F(LogFileTest, BeforeTheForkOnlyThresholdAndPathAreKept) {
    EXPECT_TRUE(Daemon::SetLogFile(File(), 7));
    EXPECT_EQ(Daemon::_logLevel, 7);
    EXPECT_EQ(Daemon::_strLogFile, File());
    Daemon::Log(7, "to descriptor 2");
    EXPECT_THAT(log_.Lines(), ElementsAre("to descriptor 2"));
    EXPECT_FALSE(std::filesystem::exists(File()));
}

TEST_F(LogFileTest, BeforeTheForkAnEmptyPathOpensNoFile) {
    Daemon::SetLogFile(File(), 4);
    EXPECT_TRUE(Daemon::SetLogFile("", 7));
    EXPECT_EQ(Daemon::_strLogFile, "");
    Daemon::Log(7, "text");
    EXPECT_THAT(log_.Lines(), ElementsAre("text"));
    EXPECT_FALSE(std::filesystem::exists(kDefaultLogFile));
}

TEST_F(LogFileTest, NegativeLevelKeepsTheThreshold) {
    Daemon::_logLevel = 6;
    EXPECT_TRUE(Daemon::SetLogFile(File(), -1));
    EXPECT_EQ(Daemon::_logLevel, 6);
    EXPECT_EQ(Daemon::_strLogFile, File());
}

TEST_F(LogFileTest, LevelZeroAndLevelNineAreTakenAsTheyAre) {
    Daemon::SetLogFile("", 0);
    EXPECT_EQ(Daemon::_logLevel, 0);
    Daemon::SetLogFile("", 9);
    EXPECT_EQ(Daemon::_logLevel, 9);
}

TEST_F(LogFileTest, AfterTheForkTheFileIsAppendedTo) {
    Daemon::_isForked = true;
    WriteText(File(), "earlier\n");
    EXPECT_TRUE(Daemon::SetLogFile(File(), 5));
    Daemon::Log(5, "later");
    EXPECT_THAT(ReadText(File()), testing::StartsWith("earlier\n"));
    EXPECT_THAT(ReadText(File()), EndsWith(" later\n"));
    EXPECT_EQ(log_.Text(), "");
}

TEST_F(LogFileTest, AfterTheForkWhatAnotherProcessAppendsIsNotOverwritten) {
    Daemon::_isForked = true;
    Daemon::SetLogFile(File(), 5);
    WriteText(File(), "someone else's longer line\n");
    Daemon::Log(5, "ours");
    EXPECT_THAT(ReadText(File()), testing::StartsWith("someone else's longer line\n"));
}

TEST_F(LogFileTest, AfterTheForkAnEmptyPathIsTheDefaultFile) {
    const MountedDisk logs("/var/log", 65'536);
    Daemon::_isForked = true;
    WriteText(kDefaultLogFile, "earlier\n");
    EXPECT_TRUE(Daemon::SetLogFile("", 7));
    EXPECT_EQ(Daemon::_strLogFile, "");
    Daemon::Log(7, "later");
    EXPECT_THAT(ReadText(kDefaultLogFile), testing::AllOf(testing::StartsWith("earlier\n"), EndsWith(" later\n")));
}

TEST_F(LogFileTest, AfterTheForkAFileThatCannotBeOpenedLeavesTheLogWhereItWas) {
    Daemon::_isForked = true;
    EXPECT_TRUE(Daemon::SetLogFile(folder_.File("none/relay.log"), 3));
    EXPECT_THAT(log_.Messages(),
                ElementsAre("daemon.cpp open log file [" + folder_.File("none/relay.log") + "] failed"));
    EXPECT_EQ(Daemon::_logLevel, 3);
    EXPECT_EQ(Daemon::_strLogFile, folder_.File("none/relay.log"));
}

TEST_F(LogFileTest, FailureToOpenIsAMessageOfLevelThree) {
    ExpectMessage(3, "daemon.cpp open log file [/none/x] failed",
                  [] { EXPECT_FALSE(Daemon::OpenLogFile("/none/x", STDERR_FILENO, O_CREAT)); });
}

TEST_F(LogFileTest, NewFileIsForItsOwnerAloneWhateverTheMask) {
    for (const mode_t mask : {0U, 022U, 077U}) {
        const auto before = umask(mask);
        EXPECT_TRUE(Daemon::OpenLogFile(File(), STDERR_FILENO, O_CREAT | O_TRUNC));
        umask(before);
        EXPECT_EQ(ModeOf(File()), 0600U) << mask;
        std::filesystem::remove(File());
    }
}

TEST_F(LogFileTest, ModeOfAnExistingFileStays) {
    WriteText(File(), "");
    std::filesystem::permissions(File(), std::filesystem::perms(0640));
    EXPECT_TRUE(Daemon::OpenLogFile(File(), STDERR_FILENO, O_CREAT | O_APPEND));
    EXPECT_EQ(ModeOf(File()), 0640U);
}

TEST_F(LogFileTest, MissingFileIsNotMadeUnlessAskedFor) {
    EXPECT_FALSE(Daemon::OpenLogFile(File(), STDERR_FILENO, O_APPEND));
    EXPECT_FALSE(std::filesystem::exists(File()));
}

TEST_F(LogFileTest, TruncationEmptiesTheFile) {
    WriteText(File(), "earlier\n");
    EXPECT_TRUE(Daemon::OpenLogFile(File(), STDERR_FILENO, O_CREAT | O_TRUNC));
    EXPECT_EQ(ReadText(File()), "");
}

TEST_F(LogFileTest, IsOpenedWriteOnlyOntoTheDescriptorWhichProgramsStartedLaterInherit) {
    EXPECT_TRUE(Daemon::OpenLogFile(File(), STDERR_FILENO, O_CREAT));
    EXPECT_EQ(fcntl(STDERR_FILENO, F_GETFL) & O_ACCMODE, O_WRONLY);
    EXPECT_EQ(fcntl(STDERR_FILENO, F_GETFD), 0);
}

TEST_F(LogFileTest, NoDescriptorIsLeftBehind) {
    const auto before = OpenDescriptors();
    EXPECT_TRUE(Daemon::OpenLogFile(File(), STDERR_FILENO, O_CREAT));
    EXPECT_FALSE(Daemon::OpenLogFile(File(), -1, O_CREAT));
    EXPECT_FALSE(Daemon::OpenLogFile("/none/x", STDERR_FILENO, O_CREAT));
    EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(LogFileTest, DescriptorThatCannotBeReplacedIsAMessageOfLevelThree) {
    ExpectMessage(3, "daemon.cpp dup fd failed", [this] { EXPECT_FALSE(Daemon::OpenLogFile(File(), -1, O_CREAT)); });
}

TEST_F(LogFileTest, FileThatLandsOnTheClosedDescriptorIsKeptThere) {
    const auto before = OpenDescriptors();
    close(STDERR_FILENO);
    EXPECT_TRUE(Daemon::OpenLogFile(File(), STDERR_FILENO, O_CREAT));
    EXPECT_EQ(OpenDescriptors(), before);
    EXPECT_EQ(fcntl(STDERR_FILENO, F_GETFD), 0);
    Daemon::Log(3, "text");
    EXPECT_THAT(ReadText(File()), EndsWith(" text\n"));
}

TEST_F(LogFileTest, FileThatLandsOnDescriptorZeroServesAsAnyOther) {
    const int input = dup(STDIN_FILENO);
    close(STDIN_FILENO);
    EXPECT_TRUE(Daemon::OpenLogFile(File(), STDERR_FILENO, O_CREAT));
    EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1) << "closed again";
    dup2(input, STDIN_FILENO);
    close(input);
    EXPECT_EQ(log_.Text(), "");
}

TEST_F(LogFileTest, DescriptorZeroCanBeReplacedAsAnyOther) {
    const int input = dup(STDIN_FILENO);
    EXPECT_TRUE(Daemon::OpenLogFile(File(), STDIN_FILENO, O_CREAT));
    EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFL) & O_ACCMODE, O_WRONLY);
    dup2(input, STDIN_FILENO);
    close(input);
    EXPECT_EQ(log_.Text(), "");
}

TEST_F(LogFileTest, PipeWithoutAReaderIsRefusedRatherThanWaitedFor) {
    ASSERT_EQ(mkfifo(File().c_str(), 0600), 0);
    EXPECT_FALSE(Daemon::OpenLogFile(File(), STDERR_FILENO, O_CREAT));
    EXPECT_THAT(log_.Messages(), ElementsAre("daemon.cpp open log file [" + File() + "] failed"));
}

TEST_F(LogFileTest, PipeWithAReaderServesAndIsWrittenToAsUsual) {
    ASSERT_EQ(mkfifo(File().c_str(), 0600), 0);
    const int reader = open(File().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    EXPECT_TRUE(Daemon::OpenLogFile(File(), STDERR_FILENO, O_CREAT | O_TRUNC));
    EXPECT_EQ(fcntl(STDERR_FILENO, F_GETFL) & O_NONBLOCK, 0);
    Daemon::Log(3, "text");
    std::string line(64, '\0');
    EXPECT_EQ(read(reader, line.data(), line.size()), 26);
    EXPECT_THAT(line, testing::HasSubstr(" text\n"));
    close(reader);
}

TEST_F(LogFileTest, LinkInTheOwnersFolderIsFollowed) {
    std::filesystem::create_symlink(folder_.File("target"), File());
    EXPECT_TRUE(Daemon::OpenLogFile(File(), STDERR_FILENO, O_CREAT | O_TRUNC));
    EXPECT_TRUE(std::filesystem::is_regular_file(folder_.File("target")));
}

}  // namespace

}  // namespace ARDV::Relay
