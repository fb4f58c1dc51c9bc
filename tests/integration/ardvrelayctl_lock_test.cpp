// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <future>
#include <optional>
#include <regex>

#include "ardvrelayctl_device.h"

namespace ardv::test {
namespace {

using testing::HasSubstr;

constexpr const char kConfigLock[] = "/usr/ardv/etc/ardvrelayd/.ardvrelayd.conf.lock";
constexpr const char kPermissionLock[] = "/usr/ardv/etc/ardvrelayd/.services.conf.lock";

/** Another command that is at work on a file. */
class HeldLock {
public:
    explicit HeldLock(const char* path) : fd_(open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
        EXPECT_EQ(flock(fd_, LOCK_EX), 0);
    }
    ~HeldLock() { close(fd_); }
    HeldLock(const HeldLock&) = delete;
    HeldLock& operator=(const HeldLock&) = delete;

private:
    int fd_;
};

class ArdvrelayctlLock : public ArdvrelayctlDevice {
protected:
    ArdvrelayctlLock() {
        OfferUsualServices();
        std::filesystem::create_directories(kConfigFolder);
    }

    /** Whether a process waits for this lock, at last. */
    static bool IsSomebodyWaiting(const char* lock) {
        struct stat status = {};
        EXPECT_EQ(stat(lock, &status), 0);
        const std::string waiter = "-> FLOCK.*:" + std::to_string(status.st_ino) + " ";
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (std::chrono::steady_clock::now() < end) {
            if (std::regex_search(ReadText("/proc/locks"), std::regex(waiter))) {
                return true;
            }
        }
        return false;
    }

    /** Runs a command while another one is at work, which then makes its change. */
    static ProgramResult RunBehind(const char* lock, const std::vector<std::string>& arguments, const char* file,
                                   const std::string& change) {
        std::optional<HeldLock> other(lock);
        auto result = std::async(std::launch::async, [&] { return Run(arguments); });
        EXPECT_TRUE(IsSomebodyWaiting(lock));
        WriteText(file, change);
        other.reset();
        return result.get();
    }
};

TEST_F(ArdvrelayctlLock, KeepsAChangeThatAnotherCommandIsAboutToMake) {
    WriteText(kConfigFile, R"({"log_level":3})");
    const auto result = RunBehind(kConfigLock, {"config", "set", "serverID", "box-1"}, kConfigFile,
                                  R"({"log_level":4,"disable_holepunch":true})");
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(JsonOf(ReadText(kConfigFile)), JsonOf(R"({"log_level":4,"disable_holepunch":true,"serverID":"box-1"})"));
}

TEST_F(ArdvrelayctlLock, KeepsAServiceThatAnotherCommandIsAboutToAdd) {
    ASSERT_EQ(Run({"permission", "allow", "hos_portal"}).exitCode, 0);
    WriteText(kConfigFile, "{}");
    const auto result = RunBehind(kConfigLock, {"service", "add", "http"}, kConfigFile,
                                  R"({"service":[{"id":"own","port":7},{"note":"no id"},{"id":"own","port":8}]})");
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(JsonOf(ReadText(kConfigFile)),
              JsonOf(R"({"service":[{"id":"own","port":7},{"note":"no id"},{"id":"own","port":8},{"id":"http"}]})"))
        << "one more, and the others as they are";
}

TEST_F(ArdvrelayctlLock, KeepsAChoiceThatAnotherCommandIsAboutToMake) {
    const auto result = RunBehind(kPermissionLock, {"permission", "deny", "mobile_apps"}, kPermissionFile,
                                  R"([{"id":"hos_portal","enabled":false}])");
    EXPECT_EQ(result.exitCode, 0) << result.err;
    const auto groups = JsonOf(ReadText(kPermissionFile));
    EXPECT_EQ(groups[0], JsonOf(R"({"id":"mobile_apps","enabled":false})"));
    EXPECT_EQ(groups[2], JsonOf(R"({"id":"hos_portal","enabled":false})"));
}

TEST_F(ArdvrelayctlLock, IsClosedToOthersAndNeverALinkToAnotherFile) {
    EXPECT_EQ(Run({"config", "set", "log_level", "5"}).exitCode, 0);
    EXPECT_EQ(ModeOf(kConfigLock), 0600U);
    std::filesystem::remove(kConfigLock);
    std::filesystem::create_symlink("/etc/elsewhere", kConfigLock);
    const auto result = Run({"config", "set", "log_level", "6"});
    EXPECT_EQ(result.exitCode, 73);
    EXPECT_THAT(result.err, HasSubstr(std::string("cannot lock ") + kConfigLock));
    EXPECT_FALSE(std::filesystem::exists("/etc/elsewhere"));
}

}  // namespace
}  // namespace ardv::test
