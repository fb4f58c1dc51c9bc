// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <libdaemon/dfork.h>

#include "support/daemon_test.h"
#include "support/retval_wait.h"
#include "support/scratch_folder.h"
#include "support/signalled_process.h"
#include "unit/platform/child_process.h"

namespace ARDV::Relay {

namespace {

namespace fs = std::filesystem;

using namespace ardv::test;
using ARDV::Platform::Test::ChildProcess;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;

std::string ReadAll(int fd) {
    std::string text;
    std::array<char, 4096> block = {};
    for (ssize_t size = 0; (size = read(fd, block.data(), block.size())) > 0;) {
        text.append(block.data(), static_cast<std::size_t>(size));
    }
    return text;
}

/** What became of the process that started a daemon, and what the daemon told. */
struct Started {
    int exitCode = -1;
    std::vector<std::string> messages;  ///< on the starter's standard error
    std::string told;
};

/**
 * Runs `start` in a process of its own, and waits for the end of that and of the daemon that it leaves behind.
 *
 * @param start what the starter does; what it returns, in whatever process, is told
 */
Started Start(int threshold, const std::function<std::string()>& start) {
    prctl(PR_SET_CHILD_SUBREAPER, 1);  // the daemon, too, is this process's to wait for
    std::array<int, 2> ends = {};
    EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    const CapturedLog log(threshold);
    ChildProcess starter([&] {
        close(ends[0]);
        const auto text = start();
        return write(ends[1], text.data(), text.size()) == static_cast<ssize_t>(text.size()) ? 77 : 78;
    });
    close(ends[1]);
    Started started;
    started.told = ReadAll(ends[0]);
    close(ends[0]);
    started.exitCode = starter.Wait();
    while (waitpid(-1, nullptr, 0) > 0 || errno == EINTR) {
    }
    started.messages = log.Messages();
    return started;
}

std::string TargetOf(const std::string& link) {
    std::error_code gone;
    return fs::read_symlink(link, gone);
}

class DaemonStart : public DaemonTest {
protected:
    DaemonStart() { Daemon::SetName("ardvrelayd"); }

    std::string LogFile() const { return folder_.File("relay.log"); }

    ScratchFolder folder_;
};

TEST_F(DaemonStart, WhileADaemonRunsIsRefusedBeforeAnyFork) {
    const SignalledProcess daemon;
    WritePid(daemon.Pid());
    const auto message = "daemon.cpp Daemon already running on PID file " + std::to_string(daemon.Pid());
    for (const bool fork : {true, false}) {
        ExpectMessage(3, message, [fork] { EXPECT_FALSE(Daemon::Init(fork)); });
    }
    EXPECT_FALSE(Daemon::IsForked());
    EXPECT_EQ(ReadText(kPidFile), std::to_string(daemon.Pid()) + "\n");
}

TEST_F(DaemonStart, OnAnEmptyPidFileIsRefused) {
    WriteText(kPidFile, "");
    ExpectMessage(3, "daemon.cpp Daemon already running on PID file 0", [] { EXPECT_FALSE(Daemon::Init(false)); });
}

TEST_F(DaemonStart, InTheForegroundCreatesThePidFile) {
    EXPECT_THAT(MessagesAt(9, [] { EXPECT_TRUE(Daemon::Init(false)); }), IsEmpty());
    EXPECT_EQ(ReadText(kPidFile), std::to_string(getpid()) + "\n");
    EXPECT_EQ(ModeOf(kPidFile), 0644U);
    EXPECT_FALSE(Daemon::IsForked());
}

TEST_F(DaemonStart, WithoutAPlaceForThePidFileFails) {
    Daemon::SetPidFile("/none/x.pid");
    ExpectMessage(3, "daemon.cpp Could not create PID file (No such file or directory).",
                  [] { EXPECT_FALSE(Daemon::Init(false)); });
}

TEST_F(DaemonStart, TakesThePlaceOfADaemonThatDied) {
    ChildProcess dead([] { return 0; });
    WritePid(dead.Pid());
    dead.Wait();
    const CapturedLog log;
    EXPECT_TRUE(Daemon::Init(false));
    EXPECT_EQ(ReadText(kPidFile), std::to_string(getpid()) + "\n");
}

TEST_F(DaemonStart, InTheBackgroundEndsTheStarterWithZeroOnceThePidFileIsThere) {
    const auto started = Start(7, [] {
        const bool isStarted = Daemon::Init(true);
        return std::string(isStarted && Daemon::IsForked() ? "daemon " : "no daemon ") + std::to_string(getpid());
    });
    EXPECT_EQ(started.exitCode, 0);
    EXPECT_THAT(started.messages, ElementsAre("daemon.cpp ardvrelayd returned 0"));
    EXPECT_EQ("daemon " + ReadText(kPidFile), started.told + "\n");
    EXPECT_EQ(ModeOf(kPidFile), 0644U);
    EXPECT_FALSE(Daemon::IsForked()) << "here";
}

TEST_F(DaemonStart, InTheBackgroundSaysNothingBelowLevelSeven) {
    EXPECT_THAT(Start(6, [] { return std::to_string(static_cast<int>(Daemon::Init(true))); }).messages, IsEmpty());
}

TEST_F(DaemonStart, InTheBackgroundLeavesTerminalFolderAndMaskBehind) {
    const auto started = Start(3, [session = getsid(0)] {
        Daemon::Init(true);
        const bool isOwnSession = getsid(0) != session;
        return TargetOf("/proc/self/fd/0") + " " + TargetOf("/proc/self/fd/1") + " " + TargetOf("/proc/self/fd/2") +
               " " + fs::current_path().string() + " " + std::to_string(umask(0)) + (isOwnSession ? " own" : " same");
    });
    EXPECT_EQ(started.told, "/dev/null /dev/null /dev/null / 63 own");
}

TEST_F(DaemonStart, InTheBackgroundEmptiesTheLogFileAndWritesThere) {
    WriteText(LogFile(), "earlier\n");
    Daemon::SetLogFile(LogFile(), -1);
    const auto started = Start(3, [] {
        Daemon::Init(true);
        Daemon::Log(3, "later");
        return TargetOf("/proc/self/fd/2");
    });
    EXPECT_EQ(started.told, LogFile());
    EXPECT_THAT(ReadText(LogFile()), testing::AllOf(EndsWith(" later\n"), testing::Not(testing::HasSubstr("earlier"))));
    EXPECT_THAT(started.messages, IsEmpty());
}

TEST_F(DaemonStart, InTheBackgroundMakesTheLogFileForItsOwnerAlone) {
    Daemon::SetLogFile(LogFile(), -1);
    Start(3, [] { return std::to_string(static_cast<int>(Daemon::Init(true))); });
    EXPECT_EQ(ModeOf(LogFile()), 0600U);
}

TEST_F(DaemonStart, InTheBackgroundGoesOnWithoutALogFileThatCannotBeOpened) {
    Daemon::SetLogFile("/none/relay.log", -1);
    const auto started = Start(3, [] { return std::string(Daemon::Init(true) ? "runs" : "fails"); });
    EXPECT_EQ(started.told, "runs");
    EXPECT_EQ(started.exitCode, 0);
}

TEST_F(DaemonStart, InTheBackgroundKeepsNoPipeToTheStarter) {
    const auto started = Start(3, [] {
        const auto before = OpenDescriptors();
        Daemon::Init(true);
        return std::to_string(static_cast<int>(OpenDescriptors()) - static_cast<int>(before));
    });
    EXPECT_EQ(started.told, "0");
}

TEST_F(DaemonStart, InTheBackgroundWithoutAPidFileEndsTheStarterWithFour) {
    Daemon::SetPidFile("/none/x.pid");
    Daemon::SetLogFile(LogFile(), -1);
    const auto started = Start(3, [] { return std::string(Daemon::Init(true) ? "runs" : "fails"); });
    EXPECT_EQ(started.exitCode, 4);
    EXPECT_THAT(started.messages, ElementsAre("daemon.cpp ardvrelayd returned 4"));
    EXPECT_EQ(started.told, "fails");
    EXPECT_THAT(ReadText(LogFile()), EndsWith("Could not create PID file (No such file or directory).\n"));
}

TEST_F(DaemonStart, WaitsTwentySecondsForTheDaemonToTellItsResult) {
    const CutWait cut(20, 1);
    const auto started = Start(3, [] {
        Daemon::Fork();
        return std::string("silent");
    });
    EXPECT_EQ(started.exitCode, 255);
    EXPECT_THAT(started.messages,
                ElementsAre("daemon.cpp Could not receive return value from daemon process: Connection timed out",
                            "daemon.cpp ardvrelayd returned -1"));
    EXPECT_EQ(started.told, "silent") << "the starter doesn't come back";
}

TEST_F(DaemonStart, EndsTheStarterWithWhateverTheDaemonTells) {
    const auto started = Start(3, [] {
        const bool isChild = Daemon::Fork();
        daemon_retval_send(9);
        return std::string(isChild && Daemon::IsForked() ? "child" : "starter");
    });
    EXPECT_EQ(started.exitCode, 9);
    EXPECT_THAT(started.messages, ElementsAre("daemon.cpp ardvrelayd returned 9"));
    EXPECT_EQ(started.told, "child");
}

/** Fork under a limit that keeps it from what it needs. */
Started ForkLimited(const std::function<void()>& limit) {
    return Start(3, [&limit] {
        limit();
        const auto before = OpenDescriptors();
        const bool isForked = Daemon::Fork() || Daemon::IsForked();
        return std::string(isForked ? "goes on" : "fails") + (OpenDescriptors() == before ? "" : " with a leak");
    });
}

void Limit(decltype(RLIMIT_NOFILE) resource, rlim_t most) {
    const rlimit limit = {most, most};
    if (setrlimit(resource, &limit) != 0) {
        _exit(1);
    }
}

TEST_F(DaemonStart, WithoutAPipeFails) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the undefined behaviour sanitizer needs a pipe of its own";
#endif
    const auto started = ForkLimited([] {
        const int last = dup(STDERR_FILENO);
        close(last);
        Limit(RLIMIT_NOFILE, static_cast<rlim_t>(last) + 1);  // one is left, which is no pipe
    });
    EXPECT_EQ(started.told, "fails");
    EXPECT_THAT(started.messages, testing::Contains("daemon.cpp Failed to create pipe."));
}

TEST_F(DaemonStart, WithoutAProcessFails) {
    const auto started = ForkLimited([] {
        [[maybe_unused]] const int isOther =
            setuid(65534);  // the machine's root has no limit; another user need not change
        Limit(RLIMIT_NPROC, 0);
    });
    EXPECT_EQ(started.told, "fails");
    EXPECT_THAT(started.messages, testing::Contains("daemon.cpp fork failed: Resource temporarily unavailable"));
}

}  // namespace

}  // namespace ARDV::Relay
