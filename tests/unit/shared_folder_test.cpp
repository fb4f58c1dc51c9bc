// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <relay/config/config.h>
#include <relay/daemon/daemon.h>
#include <relay/utils/shared_folder.h>
#include <relay/utils/utils.h>

#include "support/device_test.h"
#include "support/scratch_folder.h"

namespace ARDV::Relay {

namespace {

namespace fs = std::filesystem;

using namespace ardv::test;
using testing::ElementsAre;

constexpr uid_t kUser = 1000;
constexpr uid_t kStranger = 2000;
constexpr const char kText[] = "{\"a\":1}";

/** Acts as another user meanwhile. */
class AsUser {
public:
    explicit AsUser(uid_t user) { EXPECT_EQ(seteuid(user), 0); }
    ~AsUser() { EXPECT_EQ(seteuid(0), 0); }
    AsUser(const AsUser&) = delete;
    AsUser& operator=(const AsUser&) = delete;
};

/** A file in a folder, the temporary name by which it is replaced, and another file that an attack aims at. */
struct Places {
    ScratchFolder folder_;
    const std::string file_ = folder_.File("file");
    const std::string victim_ = folder_.File("victim");
    const std::string temporary_ = TemporaryOf(file_);
};

/** A folder that everybody may write to: as /tmp is, or without protection of what others put there. */
class SharedFolder : public testing::TestWithParam<mode_t>, protected Places {
protected:
    SharedFolder() { folder_.Share(GetParam()); }

    void MakeFile(const std::string& path, uid_t owner = 0) const {
        WriteText(path, kText);
        EXPECT_EQ(chmod(path.c_str(), 0666), 0);
        ASSERT_EQ(chown(path.c_str(), owner, 0), 0);
    }

    bool CanBeRead() const {
        const CapturedLog log;
        Json::Value value;
        const bool isRead = RelaydConf::ReadJsonFile(file_, value);
        EXPECT_EQ(value, isRead ? JsonOf(kText) : Json::Value());
        EXPECT_EQ(log.Text(), "");
        return isRead;
    }

    /** Whether the file can become the log. */
    bool CanBeTheLog(int flags = O_CREAT | O_APPEND) const {
        const CapturedLog log;
        const auto before = OpenDescriptors();
        const bool isOpen = Daemon::OpenLogFile(file_, STDERR_FILENO, flags);
        EXPECT_EQ(OpenDescriptors(), before);
        std::vector<std::string> messages;
        if (!isOpen) {
            messages.push_back("daemon.cpp open log file [" + file_ + "] failed");
        }
        EXPECT_EQ(log.Messages(), messages);
        return isOpen;
    }
};

INSTANTIATE_TEST_SUITE_P(Modes, SharedFolder, testing::Values(01777, 0777, 0702));

TEST_P(SharedFolder, OwnFileIsReadAndLoggedTo) {
    MakeFile(file_);
    EXPECT_TRUE(CanBeRead());
    EXPECT_TRUE(CanBeTheLog());
    EXPECT_EQ(ReadText(file_), kText) << "appended to";
    EXPECT_TRUE(CanBeTheLog(O_CREAT | O_TRUNC));
    EXPECT_EQ(ReadText(file_), "");
}

TEST_P(SharedFolder, LinkIsNeitherReadNorLoggedTo) {
    MakeFile(victim_);
    fs::create_symlink(victim_, file_);
    EXPECT_FALSE(CanBeRead());
    EXPECT_FALSE(CanBeTheLog(O_CREAT | O_TRUNC));
    EXPECT_EQ(ReadText(victim_), kText);
}

TEST_P(SharedFolder, FileWithASecondNameIsNeitherReadNorLoggedToNorEmptied) {
    MakeFile(victim_);
    fs::create_hard_link(victim_, file_);
    EXPECT_FALSE(CanBeRead());
    EXPECT_FALSE(CanBeTheLog());
    EXPECT_FALSE(CanBeTheLog(O_CREAT | O_TRUNC));
    EXPECT_EQ(ReadText(victim_), kText);
    fs::remove(victim_);
    EXPECT_TRUE(CanBeRead()) << "with one name again";
}

TEST_P(SharedFolder, DamagedFileWithASecondNameIsNotMoved) {
    MakeFile(victim_);
    WriteText(victim_, "{");
    fs::create_hard_link(victim_, file_);
    EXPECT_FALSE(CanBeRead());
    EXPECT_THAT(folder_.Names(), ElementsAre("file", "victim"));
}

TEST_P(SharedFolder, PipeIsNeitherReadNorLoggedTo) {
    ASSERT_EQ(mkfifo(file_.c_str(), 0666), 0);
    EXPECT_FALSE(CanBeRead());
    EXPECT_FALSE(CanBeTheLog());
    const int reader = open(file_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    EXPECT_FALSE(CanBeTheLog()) << "somebody else reads it";
    close(reader);
}

TEST_P(SharedFolder, NewLogFileIsForItsOwnerAlone) {
    EXPECT_TRUE(CanBeTheLog());
    EXPECT_EQ(ModeOf(file_), 0600U);
}

TEST_P(SharedFolder, FileIsWrittenAnewWhateverStoodUnderTheTemporaryName) {
    MakeFile(victim_);
    const std::function<void()> plants[] = {
        [&] { fs::create_symlink(victim_, temporary_); },
        [&] { fs::create_hard_link(victim_, temporary_); },
        [&] { ASSERT_EQ(mkfifo(temporary_.c_str(), 0666), 0); },
        [&] { fs::create_symlink("/dev/full", temporary_); },
        [&] { MakeFile(temporary_); },
    };
    for (const auto& plant : plants) {
        plant();
        EXPECT_TRUE(Utils::WriteFile(file_, "new"));
        EXPECT_EQ(ReadText(file_), "new");
        EXPECT_FALSE(fs::is_symlink(file_));
        EXPECT_EQ(ReadText(victim_), kText);
        EXPECT_EQ(ModeOf(victim_), 0666U);
        plant();
        EXPECT_TRUE(RelaydConf::WriteJsonFile(file_, JsonOf(kText)));
        EXPECT_TRUE(CanBeRead());
        EXPECT_EQ(ReadText(victim_), kText);
    }
}

TEST_P(SharedFolder, FileThatIsHeldOpenUnderTheTemporaryNameIsNotTheOneThatIsWritten) {
    MakeFile(temporary_);
    const int held = open(temporary_.c_str(), O_RDWR | O_CLOEXEC);
    EXPECT_TRUE(Utils::WriteFile(file_, "new"));
    struct stat status = {};
    EXPECT_EQ(fstat(held, &status), 0);
    EXPECT_EQ(status.st_nlink, 0U) << "removed, and another file made";
    EXPECT_EQ(static_cast<std::size_t>(status.st_size), std::string(kText).size()) << "as it was";
    close(held);
}

TEST_P(SharedFolder, FolderAtTheTemporaryNameIsAFailure) {
    fs::create_directory(temporary_);
    ExpectMessage(3, "utils.cpp open failed [" + temporary_ + "]",
                  [&] { EXPECT_FALSE(Utils::WriteFile(file_, "new")); });
    EXPECT_FALSE(fs::exists(file_));
}

/** With files of several users. A process whose namespace has one user only cannot make them. */
class SharedFolderOfUsers : public SharedFolder {
protected:
    void SetUp() override {
        const auto probe = folder_.File("probe");
        WriteText(probe, "");
        if (chown(probe.c_str(), kStranger, 0) != 0) {
            GTEST_SKIP() << "not run: this user namespace has one user only";
        }
        fs::remove(probe);
    }
};

INSTANTIATE_TEST_SUITE_P(Modes, SharedFolderOfUsers, testing::Values(01777, 0777, 0702));

TEST_P(SharedFolderOfUsers, FileOfAStrangerIsNeitherReadNorLoggedToNorEmptied) {
    MakeFile(file_, kStranger);
    EXPECT_FALSE(CanBeRead());
    EXPECT_FALSE(CanBeTheLog());
    EXPECT_FALSE(CanBeTheLog(O_TRUNC));
    EXPECT_EQ(ReadText(file_), kText);
}

TEST_P(SharedFolderOfUsers, UserTrustsFilesOfHisOwnAndOfRoot) {
    ASSERT_EQ(chown(folder_.Path().c_str(), kUser, 0), 0);
    for (const auto& [owner, isTrusted] :
         {std::pair(kUser, true), std::pair(uid_t{0}, true), std::pair(kStranger, false)}) {
        MakeFile(file_, owner);
        const AsUser user(kUser);
        EXPECT_EQ(CanBeRead(), isTrusted) << owner;
        EXPECT_EQ(CanBeTheLog(O_APPEND), isTrusted) << owner;
    }
}

/** A folder that only its owner writes to: what stands there is the owner's will. */
class OwnFolder : public testing::Test, protected Places {};

TEST_F(OwnFolder, FileWithASecondNameIsReadAndLoggedTo) {
    WriteText(victim_, kText);
    fs::create_hard_link(victim_, file_);
    Json::Value value;
    EXPECT_TRUE(RelaydConf::ReadJsonFile(file_, value));
    const CapturedLog log;
    EXPECT_TRUE(Daemon::OpenLogFile(file_, STDERR_FILENO, O_TRUNC));
    EXPECT_EQ(ReadText(victim_), "");
}

TEST_F(OwnFolder, WhichItsGroupMayWriteToIsNoSharedOne) {
    folder_.Share(0770);
    WriteText(victim_, kText);
    fs::create_symlink(victim_, file_);
    Json::Value value;
    EXPECT_TRUE(RelaydConf::ReadJsonFile(file_, value));
}

TEST_F(OwnFolder, FileUnderTheTemporaryNameIsTruncatedAndTaken) {
    WriteText(temporary_, "a longer remainder of an earlier attempt");
    struct stat before = {};
    struct stat after = {};
    ASSERT_EQ(stat(temporary_.c_str(), &before), 0);
    EXPECT_TRUE(Utils::WriteFile(file_, "new"));
    ASSERT_EQ(stat(file_.c_str(), &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_EQ(ReadText(file_), "new");
}

TEST_F(OwnFolder, LinkUnderTheTemporaryNameIsFollowed) {
    WriteText(victim_, "longer than what comes");
    fs::create_symlink(victim_, temporary_);
    EXPECT_TRUE(Utils::WriteFile(file_, "new"));
    EXPECT_EQ(ReadText(victim_), "new");
    EXPECT_TRUE(fs::is_symlink(file_));
}

TEST_F(OwnFolder, FullDeviceUnderTheTemporaryNameIsAFailedWrite) {
    WriteText(file_, "old");
    fs::create_symlink("/dev/full", temporary_);
    ExpectMessage(3, "utils.cpp write file " + temporary_ + " failed",
                  [&] { EXPECT_FALSE(Utils::WriteFile(file_, "new")); });
    ExpectMessage(3, "config.cpp write file " + temporary_ + " failed",
                  [&] { EXPECT_FALSE(RelaydConf::WriteJsonFile(file_, JsonOf(kText))); });
    EXPECT_EQ(ReadText(file_), "old");
    EXPECT_THAT(folder_.Names(), ElementsAre("file", TemporaryOf("file")));
}

TEST(SharedFolderOf, APathIsTheFolderThatHoldsItsLastName) {
    const std::pair<const char*, const char*> cases[] = {{"/a/b", "/a"}, {"/a", "/"},     {"a", "."},    {"a/b", "a"},
                                                         {"", "."},      {"/", "/"},      {"/a/", "/a"}, {"./a", "."},
                                                         {"//a", "/"},   {"/a//b", "/a/"}};
    for (const auto& [path, folder] : cases) {
        EXPECT_EQ(Utils::FolderOf(path), folder) << path;
    }
}

TEST(SharedFolderOf, AMissingFolderIsNoSharedOne) {
    EXPECT_EQ(Utils::NoFollowIfShared("/none/file"), 0);
    EXPECT_EQ(Utils::NoFollowIfShared("/tmp/file"), O_NOFOLLOW);
    EXPECT_EQ(Utils::NoFollowIfShared("/etc/file"), 0);
}

}  // namespace

}  // namespace ARDV::Relay
