// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <functional>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <ardv/error.h>
#include <ardv/key_value_file.h>

#include "child_process.h"
#include "made_file.h"

namespace ARDV::Platform::Test {

namespace {

constexpr uid_t kOtherUser = 65534;
constexpr uid_t kStranger = 1234;
const std::set<std::string> kFileAndLock = {".a.conf.lock", "a.conf"};

int Set(const std::string& file, const std::string& key, const std::string& value) {
    return ALIBCFileSetKeyValue(file.c_str(), key.c_str(), value.c_str(), 0);
}

std::string Get(const std::string& file, const std::string& key) {
    char value[64];
    return ALIBCFileGetKeyValue(file.c_str(), key.c_str(), value, sizeof(value), 0) == 1 ? value : "(absent)";
}

struct stat StatusOf(const std::string& file) {
    struct stat status {};
    EXPECT_EQ(lstat(file.c_str(), &status), 0) << file;
    return status;
}

mode_t ModeOf(const std::string& file) {
    return StatusOf(file).st_mode & 07777;
}

void ExpectRefusedSet(const std::string& file, int code) {
    EXPECT_LT(Set(file, "k", "v"), 0) << file;
    EXPECT_EQ(ALIBCErrGet(), code) << file;
}

/// Waits on a condition, at most 20 seconds.
template <typename Condition>
bool WaitFor(Condition&& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

/// True while the process waits for a file lock that another one holds.
bool IsWaitingForALock(pid_t pid) {
    std::istringstream locks(ReadText("/proc/locks"));
    for (std::string line; std::getline(locks, line);) {
        const bool isWaiter = line.find("-> FLOCK") != std::string::npos;
        if (isWaiter && line.find(" " + std::to_string(pid) + " ") != std::string::npos) {
            return true;
        }
    }
    return false;
}

/// Runs `body` as another user. Returns its result.
int AsOtherUser(const std::function<int()>& body) {
    return ChildProcess([&body] {
               const bool switched = setgid(kOtherUser) == 0 && setuid(kOtherUser) == 0;
               return switched ? body() : 99;
           })
        .Wait();
}

/// False in a private root of an ordinary user, where no second user exists.
bool OtherUsersExist() {
    return AsOtherUser([] { return 0; }) == 0;
}

}  // namespace

class KeyValueReplacement : public testing::Test {
protected:
    /// A user's link "open/a.conf", in a folder of this mode, to the file at `victim_`. Returns its path.
    std::string MakeLinkOf(uid_t user, mode_t folderMode) const {
        const std::string open = folder_.File("open");
        const std::string link = open + "/a.conf";
        MakeFile(folder_, "victim.conf", "k=old\n");
        std::filesystem::remove_all(open);
        std::filesystem::create_directory(open);
        std::filesystem::create_symlink(victim_, link);
        EXPECT_EQ(lchown(link.c_str(), user, user), 0);
        EXPECT_EQ(chmod(open.c_str(), folderMode), 0);
        return link;
    }

    ScratchFolder folder_;
    const std::string file_ = folder_.File("a.conf");
    const std::string victim_ = folder_.File("victim.conf");
};

TEST_F(KeyValueReplacement, CreatesAMissingFileThatEverybodyMayRead) {
    const mode_t mask = umask(077);
    EXPECT_EQ(Set(file_, "k", "v"), 0);
    umask(mask);
    EXPECT_EQ(ReadText(file_), "k=\"v\"\n");
    EXPECT_EQ(ModeOf(file_), 0644U);
    EXPECT_EQ(folder_.Names(), kFileAndLock);
}

TEST_F(KeyValueReplacement, KeepsTheLockFilePrivate) {
    const mode_t mask = umask(0);
    EXPECT_EQ(Set(file_, "k", "v"), 0);
    umask(mask);
    EXPECT_EQ(ModeOf(folder_.File(".a.conf.lock")), 0600U);
    EXPECT_EQ(ModeOf(file_), 0644U);
}

TEST_F(KeyValueReplacement, FailsInAFolderThatIsNotThere) {
    ExpectRefusedSet(folder_.File("none/a.conf"), ARDV_ERR_NOT_FOUND);
    EXPECT_TRUE(folder_.Names().empty());
}

TEST_F(KeyValueReplacement, RefusesWhatIsNoRegularFile) {
    ASSERT_EQ(mkfifo(folder_.File("pipe").c_str(), 0600), 0);
    std::filesystem::create_directory(folder_.File("folder"));
    ExpectRefusedSet(folder_.File("pipe"), ARDV_ERR_NOT_REGULAR);
    ExpectRefusedSet(folder_.File("folder"), ARDV_ERR_NOT_REGULAR);
    ExpectRefusedSet(folder_.File("folder/"), ARDV_ERR_INVALID_ARGUMENT);
    ExpectRefusedSet(folder_.File("folder/.."), ARDV_ERR_NOT_REGULAR);
    EXPECT_EQ(folder_.Names(), (std::set<std::string>{"folder", "pipe"}));
}

TEST_F(KeyValueReplacement, KeepsModeAndOwner) {
    if (!OtherUsersExist()) {
        GTEST_SKIP() << "needs root";
    }
    MakeFile(folder_, "a.conf", "k=old\n");
    ASSERT_EQ(chown(file_.c_str(), 1234, 4321), 0);
    ASSERT_EQ(chmod(file_.c_str(), 02750), 0);
    ASSERT_EQ(Set(file_, "k", "new"), 0);
    const struct stat status = StatusOf(file_);
    EXPECT_EQ(status.st_uid, 1234U);
    EXPECT_EQ(status.st_gid, 4321U);
    EXPECT_EQ(ModeOf(file_), 02750U);
}

TEST_F(KeyValueReplacement, FailsRatherThanChangeTheOwner) {
    if (!OtherUsersExist()) {
        GTEST_SKIP() << "needs root";
    }
    MakeFile(folder_, "a.conf", "k=old\n");
    ASSERT_EQ(chmod(folder_.Path().c_str(), 0777), 0);
    EXPECT_EQ(AsOtherUser([this] {
                  const bool failed = Set(file_, "k", "new") < 0;
                  return failed && ALIBCErrGet() == ARDV_ERR_ACCESS_DENIED ? 0 : 1;
              }),
              0);
    EXPECT_EQ(ReadText(file_), "k=old\n");
    EXPECT_EQ(StatusOf(file_).st_uid, geteuid());
    EXPECT_EQ(folder_.Names(), kFileAndLock);
}

TEST_F(KeyValueReplacement, FailsWhereTheCallerMayNotWrite) {
    if (!OtherUsersExist()) {
        GTEST_SKIP() << "needs root";
    }
    MakeFile(folder_, "a.conf", "k=old\n");
    ASSERT_EQ(chmod(folder_.Path().c_str(), 0755), 0);
    EXPECT_EQ(
        AsOtherUser([this] { return Set(file_, "k", "new") < 0 && ALIBCErrGet() == ARDV_ERR_ACCESS_DENIED ? 0 : 1; }),
        0);
    EXPECT_EQ(folder_.Names(), std::set<std::string>{"a.conf"});
}

TEST_F(KeyValueReplacement, KeepsASymbolicLinkAndReplacesItsTarget) {
    std::filesystem::create_directory(folder_.File("real"));
    MakeFile(folder_, "real/b.conf", "k=old\n");
    std::filesystem::create_symlink("real/b.conf", folder_.File("link"));
    std::filesystem::create_symlink(folder_.File("link"), file_);
    ASSERT_EQ(Set(file_, "k", "new"), 0);
    EXPECT_EQ(ReadText(folder_.File("real/b.conf")), "k=\"new\"\n");
    EXPECT_TRUE(S_ISLNK(StatusOf(file_).st_mode));
    EXPECT_TRUE(S_ISLNK(StatusOf(folder_.File("link")).st_mode));
    EXPECT_TRUE(std::filesystem::exists(folder_.File("real/.b.conf.lock")));
}

TEST_F(KeyValueReplacement, CreatesTheMissingTargetOfALink) {
    std::filesystem::create_symlink("b.conf", file_);
    ASSERT_EQ(Set(file_, "k", "v"), 0);
    EXPECT_EQ(ReadText(folder_.File("b.conf")), "k=\"v\"\n");
}

TEST_F(KeyValueReplacement, FailsOnLinksThatGoInACircle) {
    std::filesystem::create_symlink("b.conf", file_);
    std::filesystem::create_symlink("a.conf", folder_.File("b.conf"));
    ExpectRefusedSet(file_, ARDV_ERR_ACCESS_DENIED);
}

TEST_F(KeyValueReplacement, RefusesAStrangersLinkInAFolderOpenToAll) {
    if (!OtherUsersExist()) {
        GTEST_SKIP() << "needs root";
    }
    for (const mode_t mode : {01777U, 0777U, 0702U}) {
        const std::string link = MakeLinkOf(kStranger, mode);
        ExpectRefusedSet(link, ARDV_ERR_ACCESS_DENIED);
        EXPECT_EQ(ReadText(victim_), "k=old\n");
        EXPECT_EQ(folder_.Names(), (std::set<std::string>{"open", "victim.conf"})) << "no lock beside the target";

        ASSERT_EQ(lchown(link.c_str(), geteuid(), getegid()), 0);
        EXPECT_EQ(Set(link, "k", "new"), 0);
        EXPECT_EQ(ReadText(victim_), "k=\"new\"\n");
        std::filesystem::remove(folder_.File(".victim.conf.lock"));
    }
}

TEST_F(KeyValueReplacement, FollowsAStrangersLinkWhereOnlyTheOwnerCouldHavePutIt) {
    if (!OtherUsersExist()) {
        GTEST_SKIP() << "needs root";
    }
    EXPECT_EQ(Set(MakeLinkOf(kStranger, 0755), "k", "new"), 0);
    EXPECT_EQ(ReadText(victim_), "k=\"new\"\n");
}

TEST_F(KeyValueReplacement, FollowsALinkOfTheFoldersOwner) {
    if (!OtherUsersExist()) {
        GTEST_SKIP() << "needs root";
    }
    const std::string link = MakeLinkOf(kStranger, 0777);
    ASSERT_EQ(chown(folder_.File("open").c_str(), kStranger, kStranger), 0);
    EXPECT_EQ(Set(link, "k", "new"), 0);
    EXPECT_EQ(ReadText(victim_), "k=\"new\"\n");
}

TEST_F(KeyValueReplacement, NeverFollowsALinkInPlaceOfTheLock) {
    std::filesystem::create_symlink("elsewhere", folder_.File(".a.conf.lock"));
    ExpectRefusedSet(file_, ARDV_ERR_ACCESS_DENIED);
    EXPECT_FALSE(std::filesystem::exists(folder_.File("elsewhere")));
}

TEST_F(KeyValueReplacement, LeavesTheOldFileWhenTheDiskIsFull) {
    const MountedDisk tiny(folder_.Path(), 65536);
    const std::string old = "k=old\n# " + std::string(40'000, 'x') + "\n";
    MakeFile(folder_, "a.conf", old);
    ExpectRefusedSet(file_, ARDV_ERR_NO_SPACE);
    EXPECT_EQ(ReadText(file_), old);
    EXPECT_EQ(folder_.Names(), kFileAndLock);
}

TEST_F(KeyValueReplacement, LeavesTheOldFileAtTheLimitOfFileSize) {
    MakeFile(folder_, "a.conf", "k=old\n");
    ChildProcess child([this] {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{4, 4};
        setrlimit(RLIMIT_FSIZE, &limit);
        return Set(file_, "k", "new") < 0 && ALIBCErrGet() == ARDV_ERR_NO_SPACE ? 0 : 1;
    });
    EXPECT_EQ(child.Wait(), 0);
    EXPECT_EQ(ReadText(file_), "k=old\n");
    EXPECT_EQ(folder_.Names(), kFileAndLock);
}

TEST_F(KeyValueReplacement, RefusesToGrowAFileBeyondTheBound) {
    MakeFile(folder_, "a.conf", "k=1\n");
    ASSERT_EQ(truncate(file_.c_str(), ARDV_KEY_VALUE_FILE_MAX), 0);
    EXPECT_LT(Set(file_, "k", "a value that is longer"), 0);
    EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_TOO_LARGE);
    EXPECT_EQ(Get(file_, "k"), "1");
}

TEST_F(KeyValueReplacement, NeverReplacesAFileThatItCannotRead) {
    MakeFile(folder_, "a.conf", "k=1\n");
    ASSERT_EQ(truncate(file_.c_str(), ARDV_KEY_VALUE_FILE_MAX + 1), 0);
    ExpectRefusedSet(file_, ARDV_ERR_TOO_LARGE);
    EXPECT_EQ(StatusOf(file_).st_size, ARDV_KEY_VALUE_FILE_MAX + 1);
}

TEST_F(KeyValueReplacement, LeavesTheFileOfOthersWhoHoldItOpen) {
    MakeFile(folder_, "a.conf", "k=old\n");
    std::filesystem::create_hard_link(file_, folder_.File("old.conf"));
    ASSERT_EQ(Set(file_, "k", "new"), 0);
    EXPECT_EQ(ReadText(folder_.File("old.conf")), "k=old\n");
}

TEST_F(KeyValueReplacement, WaitsWhileAnotherProcessHoldsTheLock) {
    MakeFile(folder_, "a.conf", "k=old\n");
    const int lock = open(folder_.File(".a.conf.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_EQ(flock(lock, LOCK_EX), 0);
    ChildProcess writer([this, lock] {
        close(lock);
        return Set(file_, "k", "new") == 0 ? 0 : 1;
    });
    EXPECT_TRUE(WaitFor([&writer] { return IsWaitingForALock(writer.Pid()); }));
    EXPECT_EQ(ReadText(file_), "k=old\n");
    close(lock);
    EXPECT_EQ(writer.Wait(), 0);
    EXPECT_EQ(ReadText(file_), "k=\"new\"\n");
}

TEST_F(KeyValueReplacement, LosesNothingBetweenWritingProcesses) {
    constexpr int kWriters = 8;
    constexpr int kRounds = 50;
    MakeFile(folder_, "a.conf", "# shared\n");
    std::vector<ChildProcess> writers;
    writers.reserve(kWriters);
    for (int writer = 0; writer < kWriters; ++writer) {
        writers.emplace_back([this, writer] {
            int failures = 0;
            for (int round = 1; round <= kRounds; ++round) {
                const std::string key = "writer" + std::to_string(writer);
                failures += Set(file_, key, std::to_string(round)) != 0;
                failures += Get(file_, key) != std::to_string(round);
            }
            return failures;
        });
    }
    for (ChildProcess& writer : writers) {
        EXPECT_EQ(writer.Wait(), 0);
    }
    for (int writer = 0; writer < kWriters; ++writer) {
        EXPECT_EQ(Get(file_, "writer" + std::to_string(writer)), std::to_string(kRounds));
    }
    EXPECT_EQ(folder_.Names(), kFileAndLock);
}

TEST_F(KeyValueReplacement, LosesNothingBetweenWritingThreads) {
    std::vector<std::thread> writers;
    writers.reserve(4);
    for (int writer = 0; writer < 4; ++writer) {
        writers.emplace_back([this, writer] {
            for (int round = 1; round <= 25; ++round) {
                EXPECT_EQ(Set(file_, "writer" + std::to_string(writer), std::to_string(round)), 0);
            }
        });
    }
    for (std::thread& writer : writers) {
        writer.join();
    }
    for (int writer = 0; writer < 4; ++writer) {
        EXPECT_EQ(Get(file_, "writer" + std::to_string(writer)), "25");
    }
}

TEST_F(KeyValueReplacement, LeavesNoDescriptorOpen) {
    ASSERT_EQ(Set(file_, "k", "first"), 0);
    const std::size_t before = OpenDescriptors();
    for (int round = 0; round < 20; ++round) {
        Set(file_, "k", std::to_string(round));
        Set(folder_.Path(), "k", "v");
        Get(folder_.File("absent"), "k");
    }
    EXPECT_EQ(OpenDescriptors(), before);
}

}  // namespace ARDV::Platform::Test
