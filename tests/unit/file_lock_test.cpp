// SPDX-License-Identifier: Apache-2.0
#include <relay/daemon/file_lock.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "support/captured_log.h"
#include "support/device_test.h"
#include "support/file_opens.h"
#include "support/memory_faults.h"
#include "support/scratch_folder.h"
#include "unit/platform/child_process.h"

namespace ARDV::Relay {

namespace {

namespace fs = std::filesystem;

using namespace ardv::test;
using ARDV::Platform::Test::ChildProcess;
using testing::ElementsAre;

/** The descriptors by which this process has a file open. */
std::vector<int> DescriptorsOf(const std::string& path) {
    std::vector<int> found;
    for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        if (fs::read_symlink(entry.path(), gone) == path) {
            found.push_back(std::stoi(entry.path().filename()));
        }
    }
    return found;
}

/** Whether another process gets a lock on a file at once. */
bool CanBeLockedElsewhere(const std::string& path, int operation = LOCK_EX) {
    return ChildProcess([&] {
               const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
               return file >= 0 && flock(file, operation | LOCK_NB) == 0 ? 0 : 1;
           }).Wait() == 0;
}

/** A lock on a file that somebody else holds: another open file is another holder. */
class HeldElsewhere {
public:
    explicit HeldElsewhere(const std::string& path, int operation = LOCK_EX)
        : file_(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666)) {
        EXPECT_EQ(flock(file_, operation | LOCK_NB), 0);
    }
    ~HeldElsewhere() { close(file_); }
    HeldElsewhere(const HeldElsewhere&) = delete;
    HeldElsewhere& operator=(const HeldElsewhere&) = delete;

private:
    int file_;
};

class FileLock : public testing::Test {
protected:
    ~FileLock() override { EXPECT_EQ(log_.Text(), "") << "locks are silent"; }

    ScratchFolder folder_;
    const std::string a_ = folder_.File("a");
    const std::string b_ = folder_.File("b");
    const std::string c_ = folder_.File("c");
    CapturedLog log_;
};

TEST_F(FileLock, EmptySetIsLockedAlways) {
    _FileLock lock(nullptr);
    EXPECT_TRUE(lock.Lock(LOCK_EX));
    EXPECT_TRUE(lock.Unlock());
}

TEST_F(FileLock, NullIsNoFileOfTheSet) {
    _FileLock lock(a_.c_str());
    EXPECT_FALSE(lock.AddFile(nullptr));
    EXPECT_TRUE(lock.Lock(LOCK_EX));
    EXPECT_THAT(folder_.Names(), ElementsAre("a"));
}

TEST_F(FileLock, FilesAreMadeWhenTheyAreLockedAndStay) {
    {
        _FileLock lock(a_.c_str());
        EXPECT_TRUE(lock.AddFile(b_.c_str()));
        EXPECT_THAT(folder_.Names(), testing::IsEmpty());
        EXPECT_TRUE(lock.Lock(LOCK_EX));
        EXPECT_THAT(folder_.Names(), ElementsAre("a", "b"));
        EXPECT_TRUE(lock.Unlock());
    }
    EXPECT_THAT(folder_.Names(), ElementsAre("a", "b"));
    EXPECT_EQ(fs::file_size(a_), 0U);
}

TEST_F(FileLock, MadeFileIsForEverybodyAsFarAsTheMaskLets) {
    for (const mode_t mask : {0U, 022U, 077U}) {
        const auto before = umask(mask);
        _FileLock lock(a_.c_str());
        EXPECT_TRUE(lock.Lock(LOCK_EX));
        umask(before);
        EXPECT_EQ(ModeOf(a_), 0666U & ~mask);
        fs::remove(a_);
    }
}

TEST_F(FileLock, ContentAndModeOfAFileStay) {
    WriteText(a_, "text");
    fs::permissions(a_, fs::perms(0640));
    _FileLock lock(a_.c_str());
    EXPECT_TRUE(lock.Lock(LOCK_EX));
    EXPECT_TRUE(lock.Unlock());
    EXPECT_EQ(ReadText(a_), "text");
    EXPECT_EQ(ModeOf(a_), 0640U);
}

TEST_F(FileLock, ExcludesOtherProcessesUntilItIsGivenUp) {
    _FileLock lock(a_.c_str());
    lock.AddFile(b_.c_str());
    ASSERT_TRUE(lock.Lock(LOCK_EX));
    EXPECT_FALSE(CanBeLockedElsewhere(a_));
    EXPECT_FALSE(CanBeLockedElsewhere(b_));
    EXPECT_FALSE(CanBeLockedElsewhere(a_, LOCK_SH));
    EXPECT_TRUE(lock.Unlock());
    EXPECT_TRUE(CanBeLockedElsewhere(a_));
    EXPECT_TRUE(CanBeLockedElsewhere(b_));
}

TEST_F(FileLock, OfOneProcessExcludesASecondOne) {
    _FileLock first(a_.c_str());
    _FileLock second(a_.c_str());
    EXPECT_TRUE(first.Lock(LOCK_EX));
    EXPECT_FALSE(second.Lock(LOCK_EX));
    first.Unlock();
    EXPECT_TRUE(second.Lock(LOCK_EX));
}

TEST_F(FileLock, SharedLocksGoTogetherAndExcludeAnExclusiveOne) {
    _FileLock lock(a_.c_str());
    ASSERT_TRUE(lock.Lock(LOCK_SH));
    EXPECT_TRUE(CanBeLockedElsewhere(a_, LOCK_SH));
    EXPECT_FALSE(CanBeLockedElsewhere(a_, LOCK_EX));
}

TEST_F(FileLock, WhatIsLockedElsewhereFailsAtOnceAndLeavesNothingOpen) {
    const HeldElsewhere holder(a_);
    const auto before = OpenDescriptors();
    _FileLock lock(a_.c_str());
    EXPECT_FALSE(lock.Lock(LOCK_EX));
    EXPECT_FALSE(lock.Lock(LOCK_SH));
    EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(FileLock, IsAllOrNothing) {
    const std::optional<HeldElsewhere> holder(std::in_place, b_);
    _FileLock lock(a_.c_str());
    lock.AddFile(b_.c_str());
    lock.AddFile(c_.c_str());
    EXPECT_FALSE(lock.Lock(LOCK_EX));
    EXPECT_THAT(DescriptorsOf(a_), testing::IsEmpty());
    EXPECT_TRUE(CanBeLockedElsewhere(a_));
    EXPECT_FALSE(fs::exists(c_)) << "not reached";
}

TEST_F(FileLock, FailureGivesUpWhatAnEarlierCallHadLocked) {
    const HeldElsewhere holder(b_);
    _FileLock lock(a_.c_str());
    ASSERT_TRUE(lock.Lock(LOCK_EX));
    lock.AddFile(b_.c_str());
    EXPECT_FALSE(lock.Lock(LOCK_EX));
    EXPECT_THAT(DescriptorsOf(a_), testing::IsEmpty());
    EXPECT_TRUE(CanBeLockedElsewhere(a_));
}

TEST_F(FileLock, FileThatCannotBeOpenedFailsTheSet) {
    for (const auto& bad : {folder_.File("none/x"), folder_.Path(), std::string()}) {
        _FileLock lock(a_.c_str());
        EXPECT_TRUE(lock.AddFile(bad.c_str())) << "not looked at yet";
        EXPECT_FALSE(lock.Lock(LOCK_EX)) << bad;
        EXPECT_THAT(DescriptorsOf(a_), testing::IsEmpty());
    }
}

TEST_F(FileLock, CanBeTakenAfterAFailure) {
    std::optional<HeldElsewhere> holder(std::in_place, b_);
    _FileLock lock(a_.c_str());
    lock.AddFile(b_.c_str());
    EXPECT_FALSE(lock.Lock(LOCK_EX));
    holder.reset();
    EXPECT_TRUE(lock.Lock(LOCK_EX));
    EXPECT_FALSE(CanBeLockedElsewhere(a_));
    EXPECT_FALSE(CanBeLockedElsewhere(b_));
}

TEST_F(FileLock, SecondCallOpensNothingAgain) {
    _FileLock lock(a_.c_str());
    ASSERT_TRUE(lock.Lock(LOCK_EX));
    const auto opened = DescriptorsOf(a_);
    const FileOpens opens;
    EXPECT_TRUE(lock.Lock(LOCK_EX));
    EXPECT_EQ(opens.CountOf(a_), 0U);
    EXPECT_EQ(DescriptorsOf(a_), opened);
}

TEST_F(FileLock, SecondCallLocksWhatWasAddedMeanwhile) {
    _FileLock lock(a_.c_str());
    ASSERT_TRUE(lock.Lock(LOCK_EX));
    lock.AddFile(b_.c_str());
    EXPECT_TRUE(CanBeLockedElsewhere(b_));
    EXPECT_TRUE(lock.Lock(LOCK_EX));
    EXPECT_FALSE(CanBeLockedElsewhere(b_));
}

TEST_F(FileLock, FilesCannotBeRemovedFromTheSet) {
    _FileLock lock(a_.c_str());
    lock.AddFile(b_.c_str());
    EXPECT_FALSE(lock.RemoveFile(a_.c_str()));
    EXPECT_FALSE(lock.RemoveFile(nullptr));
    ASSERT_TRUE(lock.Lock(LOCK_EX));
    EXPECT_FALSE(lock.RemoveFile(a_.c_str()));
    EXPECT_FALSE(CanBeLockedElsewhere(a_));
    EXPECT_FALSE(CanBeLockedElsewhere(b_));
}

TEST_F(FileLock, FileThatIsThereTwiceCanOnlyBeShared) {
    _FileLock lock(a_.c_str());
    EXPECT_TRUE(lock.AddFile(a_.c_str()));
    EXPECT_FALSE(lock.Lock(LOCK_EX));
    EXPECT_TRUE(lock.Lock(LOCK_SH));
    EXPECT_EQ(DescriptorsOf(a_).size(), 2U);
}

TEST_F(FileLock, UnlockingClosesAndCanBeRepeated) {
    _FileLock lock(a_.c_str());
    EXPECT_TRUE(lock.Unlock()) << "nothing was locked";
    ASSERT_TRUE(lock.Lock(LOCK_EX));
    EXPECT_TRUE(lock.Unlock());
    EXPECT_THAT(DescriptorsOf(a_), testing::IsEmpty());
    EXPECT_TRUE(lock.Unlock());
    EXPECT_TRUE(lock.Lock(LOCK_SH));
}

TEST_F(FileLock, UnlockingFreesTheFileAlsoWhileAChildHasItOpen) {
    _FileLock lock(a_.c_str());
    ASSERT_TRUE(lock.Lock(LOCK_EX));
    const ChildProcess child([] { return pause(); });
    EXPECT_TRUE(lock.Unlock());
    EXPECT_TRUE(CanBeLockedElsewhere(a_));
}

TEST_F(FileLock, IsGivenUpAtTheEndOfItsLife) {
    const auto before = OpenDescriptors();
    {
        _FileLock lock(a_.c_str());
        lock.AddFile(b_.c_str());
        ASSERT_TRUE(lock.Lock(LOCK_EX));
        EXPECT_EQ(OpenDescriptors(), before + 2);
    }
    EXPECT_EQ(OpenDescriptors(), before);
    EXPECT_TRUE(CanBeLockedElsewhere(a_));
}

TEST_F(FileLock, ProgramsThatAreStartedMeanwhileDoNotGetTheFile) {
    _FileLock lock(a_.c_str());
    ASSERT_TRUE(lock.Lock(LOCK_EX));
    const auto opened = DescriptorsOf(a_);
    ASSERT_EQ(opened.size(), 1U);
    EXPECT_EQ(fcntl(opened.front(), F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(fcntl(opened.front(), F_GETFL) & O_ACCMODE, O_RDWR);
}

TEST_F(FileLock, PipeIsNotWaitedFor) {
    ASSERT_EQ(mkfifo(a_.c_str(), 0600), 0);
    _FileLock lock(a_.c_str());
    EXPECT_TRUE(lock.Lock(LOCK_EX));
}

TEST_F(FileLock, LinkInTheOwnersFolderIsFollowed) {
    fs::create_symlink(b_, a_);
    _FileLock lock(a_.c_str());
    EXPECT_TRUE(lock.Lock(LOCK_EX));
    EXPECT_FALSE(CanBeLockedElsewhere(b_));
}

TEST_F(FileLock, SetStaysAsItWasWhereMemoryRunsOut) {
    bool isShort = true;
    for (int after = 0; isShort; ++after) {
        _FileLock lock(a_.c_str());
        isShort = IsShortOfMemory(after, [&] {
            try {
                lock.AddFile((folder_.Path() + "/a-name-that-is-too-long-to-be-kept-without-memory").c_str());
            } catch (const std::bad_alloc&) {
            }
        });
        EXPECT_TRUE(lock.Lock(LOCK_EX));
        EXPECT_FALSE(CanBeLockedElsewhere(a_));
        EXPECT_TRUE(lock.Unlock());
    }
}

class SharedFolderLock : public FileLock {
protected:
    SharedFolderLock() { folder_.Share(); }

    bool CanBeLocked() const {
        const auto before = OpenDescriptors();
        bool isLocked = false;
        {
            _FileLock lock(a_.c_str());
            isLocked = lock.Lock(LOCK_EX);
        }
        EXPECT_EQ(OpenDescriptors(), before);
        return isLocked;
    }
};

TEST_F(SharedFolderLock, NewFileAndOwnFileAreLocked) {
    EXPECT_TRUE(CanBeLocked());
    EXPECT_TRUE(CanBeLocked());
}

TEST_F(SharedFolderLock, LinkIsNotFollowed) {
    fs::create_symlink(b_, a_);
    EXPECT_FALSE(CanBeLocked());
    EXPECT_FALSE(fs::exists(b_));
    WriteText(b_, "");
    EXPECT_FALSE(CanBeLocked());
}

TEST_F(SharedFolderLock, FileWithASecondNameIsRefused) {
    WriteText(b_, "");
    fs::create_hard_link(b_, a_);
    EXPECT_FALSE(CanBeLocked());
}

TEST_F(SharedFolderLock, PipeIsRefused) {
    ASSERT_EQ(mkfifo(a_.c_str(), 0666), 0);
    EXPECT_FALSE(CanBeLocked());
}

TEST_F(SharedFolderLock, FileOfAnotherUserIsRefused) {
    WriteText(a_, "");
    if (chown(a_.c_str(), 2000, 2000) != 0) {
        GTEST_SKIP() << "this machine gives a file to nobody else";
    }
    EXPECT_FALSE(CanBeLocked());
}

TEST_F(SharedFolderLock, FileThatItsHolderDeletedMeanwhileIsNoLock) {
    FileOpens opens;
    opens.onOpen = [this](const std::string& path) {
        if (path == a_) {
            fs::remove(a_);
        }
    };
    EXPECT_FALSE(CanBeLocked());
}

}  // namespace

}  // namespace ARDV::Relay
