// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <string>

#include "child_process.h"
#include "made_file.h"

namespace ARDV::Platform::Test {

namespace {

using namespace std::chrono_literals;

constexpr ProgramLimits kLimits = {20s, 100'000, 100'000};

ProgramOutcome RunShell(const std::string& script, const ProgramLimits& limits = kLimits) {
    Result<ProgramOutcome> outcome = RunProgram({"/bin/sh", "-c", script}, limits);
    EXPECT_TRUE(outcome);
    return outcome ? *outcome : ProgramOutcome{};
}

/// From now on a system call of this process, and of its children, has another effect.
void ForbidCall(unsigned number, unsigned effect) {
    std::array<sock_filter, 4> filter = {{
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, number, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, effect),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    }};
    const sock_fprog program = {filter.size(), filter.data()};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 || prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) {
        _exit(99);
    }
}

}  // namespace

TEST(RunProgram, GivesExitCodeOutputAndErrors) {
    const ProgramOutcome outcome = RunShell("echo out; echo err >&2; exit 3");
    EXPECT_TRUE(outcome.isInTime);
    EXPECT_EQ(outcome.exitCode, 3);
    EXPECT_EQ(outcome.output, "out\n");
    EXPECT_EQ(outcome.errors, "err\n");
    EXPECT_FALSE(outcome.isOutputCut);
}

TEST(RunProgram, HandsArgumentsOverAsTheyAre) {
    const Result<ProgramOutcome> outcome = RunProgram({"/usr/bin/printf", "%s|", "a b", "", "$HOME `id`;\n*"}, kLimits);
    ASSERT_TRUE(outcome);
    EXPECT_EQ(outcome->output, "a b||$HOME `id`;\n*|");
}

TEST(RunProgram, FailsWithoutTheProgram) {
    const Result<ProgramOutcome> outcome = RunProgram({"/usr/bin/no such program"}, kLimits);
    ASSERT_FALSE(outcome);
    EXPECT_EQ(outcome.Reason().code, ARDV_ERR_NOT_FOUND);
}

TEST(RunProgram, TakesASignalForNoExitCode) {
    const ProgramOutcome outcome = RunShell("kill -9 $$");
    EXPECT_TRUE(outcome.isInTime);
    EXPECT_EQ(outcome.exitCode, -1);
}

TEST(RunProgram, KillsAProgramAtTheEndOfItsTime) {
    const auto begin = std::chrono::steady_clock::now();
    const ProgramOutcome outcome = RunShell("echo begun; exec sleep 100", {200ms, 100, 100});
    EXPECT_FALSE(outcome.isInTime);
    EXPECT_EQ(outcome.exitCode, -1);
    EXPECT_EQ(outcome.output, "begun\n");
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 20s);
}

TEST(RunProgram, KillsAProgramThatPrintsWithoutEnd) {
    const ProgramOutcome outcome = RunShell("exec cat /dev/zero", {200ms, 10, 100});
    EXPECT_FALSE(outcome.isInTime);
    EXPECT_EQ(outcome.output.size(), 10U);
    EXPECT_TRUE(outcome.isOutputCut);
}

TEST(RunProgram, ReadsMoreThanItKeeps) {
    const ProgramOutcome outcome =
        RunShell("head -c 1000000 /dev/zero; head -c 1000000 /dev/zero >&2", {20s, 70'000, 5});
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_EQ(outcome.output.size(), 70'000U);
    EXPECT_EQ(outcome.errors.size(), 5U);
    EXPECT_TRUE(outcome.isOutputCut);
}

TEST(RunProgram, ReadsAllThatIsPrintedLast) {
    for (int round = 0; round < 50; ++round) {
        EXPECT_EQ(RunShell("head -c 60000 /dev/zero").output.size(), 60'000U);
    }
}

TEST(RunProgram, ReadsAllThatIsPrintedLastIntoAPipeOfAnySize) {
    constexpr std::size_t kSize = 1024UL * 1024;
    const std::string print =
        "fcntl(STDOUT, 1031, 1048576) or exit 9; syswrite(STDOUT, 'x' x 1048576)";  // F_SETPIPE_SZ
    for (int round = 0; round < 10; ++round) {
        const Result<ProgramOutcome> outcome = RunProgram({"/usr/bin/perl", "-e", print}, {20s, 2 * kSize, 0});
        ASSERT_TRUE(outcome);
        ASSERT_EQ(outcome->exitCode, 0);
        EXPECT_EQ(outcome->output.size(), kSize);
    }
}

TEST(RunProgram, DoesNotReadWithoutEndWhatIsLeftRunning) {
    const ProgramOutcome outcome = RunShell("cat /dev/zero & echo $! >&2", {20s, 10, 100});
    kill(std::stoi(outcome.errors), SIGKILL);
    EXPECT_TRUE(outcome.isInTime);
    EXPECT_EQ(outcome.exitCode, 0);
}

TEST(RunProgram, KillsNobodyByNumber) {
    ChildProcess child([] {
        ForbidCall(SYS_kill, SECCOMP_RET_KILL_PROCESS);
        const Result<ProgramOutcome> outcome = RunProgram({"/bin/sleep", "100"}, {50ms, 1, 1});
        return outcome && !outcome->isInTime ? 0 : 1;
    });
    EXPECT_EQ(child.Wait(), 0);
}

TEST(RunProgram, FailsAndKillsNobodyWithoutAHandle) {
    ChildProcess child([] {
        ForbidCall(SYS_kill, SECCOMP_RET_KILL_PROCESS);
        ForbidCall(SYS_pidfd_open, SECCOMP_RET_ERRNO | EPERM);
        const auto begin = std::chrono::steady_clock::now();
        const Result<ProgramOutcome> outcome = RunProgram({"/bin/sleep", "15"}, kLimits);
        const bool hasWaited = std::chrono::steady_clock::now() - begin > 10s;
        return !outcome && outcome.Reason().code == ARDV_ERR_ACCESS_DENIED && !hasWaited ? 0 : 1;
    });
    EXPECT_EQ(child.Wait(), 0);
}

TEST(RunProgram, DoesNotWaitForWhatTheProgramLeavesRunning) {
    const auto begin = std::chrono::steady_clock::now();
    const ProgramOutcome outcome = RunShell("sleep 15 & echo $!");
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 10s);
    kill(std::stoi(outcome.output), SIGKILL);
}

TEST(RunProgram, GivesTheProgramNothingOfItsOwn) {
    setenv("ARDV_SECRET", "x", 1);
    const int inheritable = open("/dev/null", O_RDONLY);
    signal(SIGTERM, SIG_IGN);
    const ProgramOutcome outcome = RunShell("cat; env | sort | grep -v -e PWD -e _=; ls /proc/self/fd; kill $$");
    close(inheritable);
    EXPECT_EQ(outcome.output, "LC_ALL=C\nPATH=/usr/sbin:/usr/bin:/sbin:/bin\n0\n1\n2\n3\n")
        << "3 is the folder that is listed";
    EXPECT_EQ(outcome.exitCode, -1) << "the signal has its default effect";
}

TEST(RunProgram, FailsWhereItCannotLearnTheEnd) {
    signal(SIGCHLD, SIG_IGN);
    EXPECT_FALSE(RunProgram({"/bin/true"}, kLimits));
}

TEST(RunProgram, LeavesNoDescriptorBehind) {
    const auto before = OpenDescriptors();
    RunShell("true");
    RunShell("sleep 100", {10ms, 1, 1});
    EXPECT_EQ(OpenDescriptors(), before);
}

}  // namespace ARDV::Platform::Test
