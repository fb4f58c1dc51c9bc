// SPDX-License-Identifier: Apache-2.0
// How the daemon's program begins, and with what its starter ends.
#include <cstdlib>
#include <filesystem>

#include "integration/daemon_fixture.h"
#include "support/started_program.h"

namespace ardv::test {
namespace {

namespace fs = std::filesystem;

using Place = DaemonProcess::Place;
using testing::HasSubstr;

constexpr int kRunsAlready = 1;
constexpr int kNoConfiguration = 3;
constexpr int kNoPidFile = 4;

class DaemonStart : public DaemonTest {
protected:
    void StartInBackground() { daemon = std::make_unique<DaemonProcess>(DaemonProcess::Hasty(), Place::kBackground); }

    /** Runs the daemon's program by a shell's command in which "DAEMON" stands for it. */
    static ProgramResult Shell(std::string command) {
        const std::string word = "DAEMON";
        command.replace(command.find(word), word.size(), ARDV_DAEMON);
        return RunProgram({"/bin/sh", "-c", command});
    }

    /** What a process has open there. */
    static std::string Open(pid_t pid, int fd) {
        std::error_code none;
        return fs::read_symlink("/proc/" + std::to_string(pid) + "/fd/" + std::to_string(fd), none);
    }
};

TEST_F(DaemonStart, InTheBackgroundLogsInAndEndsInOrder) {
    StartInBackground();
    EXPECT_EQ(AwaitStatus(kLoggedIn), kLoggedIn);
    EXPECT_EQ(Open(daemon->Pid(), 0), "/dev/null");
    EXPECT_EQ(Open(daemon->Pid(), 1), "/dev/null");
    EXPECT_EQ(Open(daemon->Pid(), 2), "/var/log/ardvrelayd.log");
    ExpectOrderlyEnd();
}

TEST_F(DaemonStart, BesideADaemonThatRunsIsRefused) {
    Start();
    ASSERT_EQ(AwaitStatus(kLoggedIn), kLoggedIn);
    const auto pid = ReadText(kDaemonPidFile);
    for (const char* command : {"DAEMON", "DAEMON -f"}) {
        const auto second = Shell(command);
        EXPECT_EQ(second.exitCode, kRunsAlready) << command;
        EXPECT_THAT(second.err, HasSubstr("Daemon already running on PID file " + pid)) << command;
    }
    EXPECT_EQ(ReadText(kDaemonPidFile), pid);
    EXPECT_EQ(DaemonStatus(), kLoggedIn);
    ExpectOrderlyEnd();
}

TEST_F(DaemonStart, WithoutAConfigurationThatCanBeUsedIsRefused) {
    Edit([](auto& configuration) { configuration["server_global"]["host"] = ""; });
    const auto refused = Shell("DAEMON");
    EXPECT_EQ(refused.exitCode, kNoConfiguration);
    EXPECT_THAT(refused.err, HasSubstr(std::string(kDaemonConfig) + " cannot be used"));
    EXPECT_FALSE(fs::exists(kDaemonPidFile));
}

TEST_F(DaemonStart, WithoutAPlaceForThePidFileIsRefused) {
    EXPECT_EQ(Shell("DAEMON -p /none/x.pid").exitCode, kNoPidFile);
    EXPECT_EQ(Shell("DAEMON -f -p /none/x.pid").exitCode, kNoPidFile);
    EXPECT_FALSE(fs::exists(kDaemonStatusFile));
}

TEST_F(DaemonStart, ThatTheSystemRefusesIsNoMatterOfThePidFile) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the undefined behaviour sanitizer needs a pipe of its own";
#endif
    const auto refused =
        Shell("exec 3<&- 4<&- 5<&-; ulimit -n 4; exec DAEMON");  // one descriptor is left, which is no pipe
    EXPECT_EQ(refused.exitCode, kRunsAlready);
    EXPECT_THAT(refused.err, HasSubstr("Failed to create pipe."));
}

TEST_F(DaemonStart, KeepsASignalThatComesBeforeItCanTakeOne) {
    setenv("ASAN_OPTIONS", "verify_asan_link_order=0", 1);  // where the daemon has a sanitizer
    setenv("LD_PRELOAD", ARDV_EARLY_SIGNAL, 1);
    StartInBackground();
    unsetenv("LD_PRELOAD");
    EXPECT_EQ(AwaitStatus(kLoggedIn), kLoggedIn);
    EXPECT_EQ(DaemonReport()["reloads"], 1);
    ExpectOrderlyEnd();
}

TEST_F(DaemonStart, WithSignalsBlockedByItsStarterTakesThemAllTheSame) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, &before);
    Start();
    sigprocmask(SIG_SETMASK, &before, nullptr);
    EXPECT_EQ(AwaitStatus(kLoggedIn), kLoggedIn);
    EXPECT_THAT(ReadText("/proc/" + std::to_string(daemon->Pid()) + "/status"),
                HasSubstr("SigBlk:\t0000000000000000\n"));
    ExpectOrderlyEnd();
}

TEST_F(DaemonStart, WithoutStandardDescriptorsGivesTheirNumbersToNothingElse) {
    StartedProgram started({"/bin/sh", "-c", std::string("exec ") + ARDV_DAEMON + " -f <&- >&- 2>&-"});
    EXPECT_EQ(AwaitStatus(kLoggedIn), kLoggedIn);
    for (int fd = 0; fd < 3; ++fd) {
        EXPECT_EQ(Open(started.Pid(), fd), "/dev/null") << fd;
    }
    started.Signal(SIGTERM);
    EXPECT_EQ(started.Wait(), 0);
}

}  // namespace
}  // namespace ardv::test
