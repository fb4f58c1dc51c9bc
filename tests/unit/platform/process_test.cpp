// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <string>

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
