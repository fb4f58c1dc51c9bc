// SPDX-License-Identifier: Apache-2.0
// Settings files are parsed once, and yet every change of them is seen at once.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <ardv/error.h>
#include <ardv/key_value_file.h>
#include <ardv/web_service.h>

#include "child_process.h"
#include "made_file.h"
#include "support/file_opens.h"

namespace ARDV::Platform::Test {

namespace {

using ardv::test::FileOpens;

constexpr int kServices = 23;

std::string Get(const std::string& file, const char* key = "k") {
    char value[64] = "";
    const int result = ALIBCFileGetKeyValue(file.c_str(), key, value, sizeof(value), 0);
    return result == 1 ? value : "(" + std::to_string(result) + ")";
}

/// Waits until the file clock has moved so far on that a file's times tell it from any later state.
void WaitForTheFileClock() {
    const auto now = std::chrono::steady_clock::now();
    std::this_thread::sleep_until(now + std::chrono::milliseconds(60));
}

/// A file system in a folder's place that stamps files by the coarse clock. Those that are made for disks have a finer
/// one in newer kernels.
class CoarseDisk {
public:
    explicit CoarseDisk(std::string folder)
        : folder_(std::move(folder)), isMounted_(mount("ramfs", folder_.c_str(), "ramfs", 0, nullptr) == 0) {}
    CoarseDisk(const CoarseDisk&) = delete;
    CoarseDisk& operator=(const CoarseDisk&) = delete;
    ~CoarseDisk() {
        if (isMounted_) {
            umount2(folder_.c_str(), MNT_DETACH);
        }
    }

    bool IsMounted() const { return isMounted_; }

private:
    std::string folder_;
    bool isMounted_;
};

/// A file system in a folder's place that stamps files with whole seconds.
class DiskOfSeconds {
public:
    explicit DiskOfSeconds(std::string folder) : folder_(std::move(folder)) {
        const std::string image = folder_ + ".image";
        WriteText(image, "");
        std::filesystem::resize_file(image, kBytes);
        isMounted_ = Run({"mkfs.ext4", "-q", "-F", "-O", "^has_journal", "-I", "128", image}) == 0 &&
                     Run({"mount", "-o", "loop", image, folder_}) == 0;
    }
    DiskOfSeconds(const DiskOfSeconds&) = delete;
    DiskOfSeconds& operator=(const DiskOfSeconds&) = delete;
    ~DiskOfSeconds() {
        if (isMounted_) {
            umount2(folder_.c_str(), MNT_DETACH);
        }
    }

    bool IsMounted() const { return isMounted_; }

private:
    static constexpr std::uintmax_t kBytes = 1048576;

    std::string folder_;
    bool isMounted_ = false;
};

/// Waits, if need be, until the second isn't half over: what follows happens within it.
void WaitForTheFirstHalfOfASecond() {
    const auto now = std::chrono::system_clock::now();
    const auto second = std::chrono::floor<std::chrono::seconds>(now);
    if (now - second > std::chrono::milliseconds(500)) {
        std::this_thread::sleep_until(second + std::chrono::seconds(1));
    }
}

/// A file that has been read, and is old enough to be known by its times.
class SettingsCache : public testing::Test {
protected:
    SettingsCache() : file_(MakeFile(folder_, "settings.conf", "k=first\nother=\"o\"\n")) {
        WaitForTheFileClock();
        EXPECT_EQ(Get(file_), "first");
    }

    std::size_t OpensOf(const std::function<void()>& calls) const {
        const FileOpens opens;
        calls();
        return opens.CountOf(file_);
    }

    ScratchFolder folder_;
    std::string file_;
};

}  // namespace

TEST_F(SettingsCache, ReadsAFileOnceForManyLookups) {
    const auto opens = OpensOf([this] {
        for (int service = 0; service < kServices; ++service) {
            EXPECT_EQ(Get(file_), "first");
            EXPECT_EQ(Get(file_, "absent"), "(0)");
            EXPECT_EQ(ALIBCFileCheckKeyValue(file_.c_str(), "other", "o", 0), 1);
        }
    });
    EXPECT_EQ(opens, 0U) << "it was read before";
}

TEST_F(SettingsCache, ServesTheWebSettingsToo) {
    WriteText("/etc/ardv/web.conf", "http_default_conf=yes\n");
    WaitForTheFileClock();
    const FileOpens opens;
    for (int service = 0; service < kServices; ++service) {
        EXPECT_EQ(ARDVServiceIsHttpDefaultConf(), 1);
    }
    EXPECT_EQ(opens.CountOf("/etc/ardv/web.conf"), 1U);
}

TEST_F(SettingsCache, SeesAFileRewrittenInPlaceWithTheSameSize) {
    WriteText(file_, "k=other\nother=\"o\"\n");
    EXPECT_EQ(Get(file_), "other");
}

TEST_F(SettingsCache, SeesAChangeHiddenBySettingTheTimesBack) {
    struct stat before {};
    ASSERT_EQ(stat(file_.c_str(), &before), 0);
    WriteText(file_, "k=other\nother=\"o\"\n");
    const timespec times[2] = {before.st_atim, before.st_mtim};
    ASSERT_EQ(utimensat(AT_FDCWD, file_.c_str(), times, 0), 0);
    EXPECT_EQ(Get(file_), "other");
}

TEST_F(SettingsCache, SeesAnotherFileRenamedIntoItsPlace) {
    const std::string next = MakeFile(folder_, "next.conf", "k=other\nother=\"o\"\n");
    WaitForTheFileClock();
    ASSERT_EQ(std::rename(next.c_str(), file_.c_str()), 0);
    EXPECT_EQ(Get(file_), "other");
}

TEST_F(SettingsCache, SeesAnotherFileBehindALink) {
    const std::string link = folder_.File("link.conf");
    const std::string next = MakeFile(folder_, "next.conf", "k=other\nother=\"o\"\n");
    ASSERT_EQ(symlink("settings.conf", link.c_str()), 0);
    WaitForTheFileClock();
    EXPECT_EQ(Get(link), "first");
    ASSERT_EQ(unlink(link.c_str()), 0);
    ASSERT_EQ(symlink("next.conf", link.c_str()), 0);
    EXPECT_EQ(Get(link), "other");
}

TEST_F(SettingsCache, SeesItsOwnProcessSetAValue) {
    for (const char* value : {"second", "third", "fourth"}) {
        ASSERT_EQ(ALIBCFileSetKeyValue(file_.c_str(), "k", value, 0), 0);
        EXPECT_EQ(Get(file_), value);
    }
}

TEST_F(SettingsCache, SeesManyChangesWithinOneTickOfTheFileClock) {
    const CoarseDisk disk(folder_.Path());
    if (!disk.IsMounted()) {
        GTEST_SKIP() << "needs the right to mount";
    }
    for (int round = 0; round < 2000; ++round) {
        const std::string value = std::to_string(10000 + round);
        WriteText(file_, "k=" + value + "\n");
        ASSERT_EQ(Get(file_), value);
    }
}

TEST_F(SettingsCache, SeesTwoChangesWithinOneSecondOnADiskOfWholeSeconds) {
    const DiskOfSeconds disk(folder_.Path());
    if (!disk.IsMounted()) {
        GTEST_SKIP() << "needs mkfs.ext4, a kernel with ext4 and loop devices, and the right to mount";
    }
    WaitForTheFirstHalfOfASecond();
    WriteText(file_, "k=second\n");
    WaitForTheFileClock();
    EXPECT_EQ(Get(file_), "second");
    WriteText(file_, "k=third!\n");
    EXPECT_EQ(Get(file_), "third!");
}

TEST_F(SettingsCache, KeepsAFileWhoseWholeSecondIsLongPast) {
    const timespec times[2] = {{1'000'000'000, 0}, {1'000'000'000, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, file_.c_str(), times, 0), 0);
    WaitForTheFileClock();
    EXPECT_EQ(Get(file_), "first");
    EXPECT_EQ(OpensOf([this] { EXPECT_EQ(Get(file_), "first"); }), 0U);
}

TEST_F(SettingsCache, SeesAChangeMadeWhileTheFileWasBeingRead) {
    WriteText(file_, "k=second\n");
    WaitForTheFileClock();
    {
        FileOpens opens;
        opens.onOpen = [this, &opens](const std::string& path) {
            if (path == file_) {
                opens.onOpen = nullptr;
                const std::string next = MakeFile(folder_, "next.conf", "k=third!\n");
                std::rename(next.c_str(), file_.c_str());
            }
        };
        EXPECT_EQ(Get(file_), "second") << "the file that was opened";
    }
    EXPECT_EQ(Get(file_), "third!");
}

TEST_F(SettingsCache, SeesAFileGoAndComeBack) {
    ASSERT_EQ(unlink(file_.c_str()), 0);
    EXPECT_EQ(Get(file_), "(-1)");
    EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_NOT_FOUND);
    ASSERT_EQ(mkdir(file_.c_str(), 0700), 0);
    EXPECT_EQ(Get(file_), "(-1)");
    EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_NOT_REGULAR);
    ASSERT_EQ(rmdir(file_.c_str()), 0);
    WriteText(file_, "k=back\n");
    EXPECT_EQ(Get(file_), "back");
}

TEST_F(SettingsCache, GivesNothingToAReaderWithoutTheRight) {
    constexpr uid_t kUser = 1234;
    ASSERT_EQ(chmod(folder_.Path().c_str(), 0755), 0);
    ASSERT_EQ(chmod(file_.c_str(), 0600), 0);
    WaitForTheFileClock();
    EXPECT_EQ(Get(file_), "first");
    if (seteuid(kUser) != 0) {
        GTEST_SKIP() << "needs a second user";
    }
    EXPECT_EQ(Get(file_), "(-1)");
    EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_ACCESS_DENIED);
    ASSERT_EQ(seteuid(0), 0);
    EXPECT_EQ(Get(file_), "first");
}

TEST_F(SettingsCache, SeesAFileBecomeUnreadableByItsMode) {
    constexpr uid_t kUser = 1234;
    ASSERT_EQ(chmod(folder_.Path().c_str(), 0755), 0);
    WaitForTheFileClock();
    if (seteuid(kUser) != 0) {
        GTEST_SKIP() << "needs a second user";
    }
    EXPECT_EQ(Get(file_), "first");
    ASSERT_EQ(seteuid(0), 0);
    ASSERT_EQ(chmod(file_.c_str(), 0600), 0);
    ASSERT_EQ(seteuid(kUser), 0);
    EXPECT_EQ(Get(file_), "(-1)");
    ASSERT_EQ(seteuid(0), 0);
}

TEST_F(SettingsCache, KeepsNoLargeFile) {
    WriteText(file_, "k=big\n" + std::string(100'000, '#'));
    WaitForTheFileClock();
    EXPECT_EQ(OpensOf([this] { EXPECT_EQ(Get(file_) + Get(file_), "bigbig"); }), 2U);
}

TEST_F(SettingsCache, KeepsNothingThatTheKernelMakesUp) {
    const std::string file = "/proc/sys/net/ipv4/ip_default_ttl";
    const FileOpens opens;
    Get(file);
    WaitForTheFileClock();
    Get(file);
    Get(file);
    EXPECT_EQ(opens.CountOf(file), 3U);
}

TEST_F(SettingsCache, KeepsTheFilesThatWereReadLast) {
    std::vector<std::string> files;
    for (int at = 0; at < 40; ++at) {
        files.push_back(MakeFile(folder_, std::to_string(at) + ".conf", "k=" + std::to_string(at) + "\n"));
    }
    WaitForTheFileClock();
    for (int at = 0; at < 40; ++at) {
        EXPECT_EQ(Get(files[static_cast<std::size_t>(at)]), std::to_string(at));
    }
    const FileOpens opens;
    EXPECT_EQ(Get(files.back()), "39");
    EXPECT_EQ(opens.CountOf(files.back()), 0U);
    EXPECT_EQ(Get(file_), "first");
    EXPECT_EQ(opens.CountOf(file_), 1U) << "it had to make room";
}

TEST_F(SettingsCache, ServesSeveralThreadsWhileTheFileChanges) {
    const auto read = [this] {
        for (int round = 0; round < 500; ++round) {
            const std::string value = Get(file_);
            EXPECT_TRUE(value == "first" || value.starts_with("v")) << value;
        }
    };
    std::thread first(read);
    std::thread second(read);
    for (int round = 0; round < 50; ++round) {
        EXPECT_EQ(ALIBCFileSetKeyValue(file_.c_str(), "k", ("v" + std::to_string(round)).c_str(), 0), 0);
    }
    first.join();
    second.join();
    EXPECT_EQ(Get(file_), "v49");
}

}  // namespace ARDV::Platform::Test
