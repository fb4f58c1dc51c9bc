// SPDX-License-Identifier: Apache-2.0
#include <ardv/program.h>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <string>

#include <ardv/error.h>

#include "child_process.h"
#include "error_mark.h"
#include "made_file.h"

namespace ARDV::Platform::Test {

namespace {

/// A script of the test's own, and what it wrote down.
class Script {
public:
    explicit Script(const std::string& text) : path_(MakeFile(folder_, "script", "#!/bin/sh\n" + text + "\n")) {
        chmod(path_.c_str(), 0700);
    }

    const char* Path() const { return path_.c_str(); }
    int Run() const { return ALIBCExecl(Path(), ARDV_EXEC_HELPER, folder_.File("notes").c_str(), nullptr); }
    std::string Notes() const { return ReadText(folder_.File("notes")); }

private:
    ScratchFolder folder_;
    std::string path_;
};

void ExpectFailure(int code, int result) {
    EXPECT_EQ(result, -1);
    EXPECT_EQ(ALIBCErrGet(), code);
}

}  // namespace

TEST(Program, FlagHasItsPublishedValue) {
    EXPECT_EQ(ARDV_EXEC_HELPER, 187);
}

TEST(Program, EndsWellWithStatusZero) {
    const ErrorMark mark;
    EXPECT_EQ(ALIBCExecl("/bin/true", ARDV_EXEC_HELPER, nullptr, nullptr), 0);
    EXPECT_TRUE(mark.IsThere());
}

TEST(Program, AnyOtherStatusIsAFailure) {
    for (const char* status : {"1", "2", "127", "255"}) {
        ExpectFailure(ARDV_ERR_PROGRAM_FAILED, Script(std::string("exit ") + status).Run());
    }
}

TEST(Program, EndBySignalIsAFailure) {
    ExpectFailure(ARDV_ERR_PROGRAM_FAILED, Script("kill -9 $$").Run());
}

TEST(Program, GetsItsArgumentsAsTheyAre) {
    const Script script(R"(out=$1; shift; printf '%s|' "$#" "$@" >"$out")");
    const std::string out = std::string(script.Path()) + ".out";
    EXPECT_EQ(ALIBCExecl(script.Path(), ARDV_EXEC_HELPER, out.c_str(), "a b", "", "$HOME `id`;\n*", "-I", "ä", "6", "7",
                         "8", "9", "10", nullptr),
              0);
    EXPECT_EQ(ReadText(out), "10|a b||$HOME `id`;\n*|-I|ä|6|7|8|9|10|");
}

TEST(Program, ArgumentsEndAtTheFirstNullPointer) {
    const Script script(R"(printf '%s|' "$@" >"$1")");
    const std::string out = std::string(script.Path()) + ".out";
    const char* none = nullptr;
    EXPECT_EQ(ALIBCExecl(script.Path(), ARDV_EXEC_HELPER, out.c_str(), none, "more", nullptr), 0);
    EXPECT_EQ(ReadText(out), out + "|");
}

TEST(Program, IsNamedByItsPath) {
    const Script script("tr '\\0' '|' </proc/$$/cmdline >\"$1\"");
    EXPECT_EQ(script.Run(), 0);
    EXPECT_TRUE(script.Notes().starts_with("/bin/sh|" + std::string(script.Path()) + "|")) << script.Notes();
}

TEST(Program, GetsNothingOfItsCaller) {
    const Script script("exec 9>\"$1\"; { cat; env | sort | grep -v -e ^PWD= -e ^_=; ls /proc/self/fd; } >&9; kill $$");
    setenv("ARDV_SECRET", "x", 1);
    const int inheritable = open("/dev/null", O_RDONLY);
    signal(SIGTERM, SIG_IGN);
    EXPECT_EQ(script.Run(), -1) << "the signal has its default effect";
    signal(SIGTERM, SIG_DFL);
    close(inheritable);
    EXPECT_EQ(script.Notes(), "LC_ALL=C\nPATH=/usr/sbin:/usr/bin:/sbin:/bin\n0\n1\n2\n3\n9\n")
        << "3 is the folder that is listed, 9 the notes";
}

TEST(Program, HasItsStreamsThoughItsCallerHasNone) {
    const Script script(
        R"([ -p /dev/stdout ] && [ -p /dev/stderr ] && echo out && echo err >&2 && readlink /proc/$$/fd/0 >"$1")");
    EXPECT_EQ(ChildProcess([&script] {
                  for (const int stream : {0, 1, 2}) {
                      close(stream);
                  }
                  return script.Run();
              }).Wait(),
              0);
    EXPECT_EQ(script.Notes(), "/dev/null\n");
}

TEST(Program, MayPrintAsMuchAsItLikes) {
    EXPECT_EQ(Script("head -c 1000000 /dev/zero; head -c 1000000 /dev/zero >&2").Run(), 0);
}

TEST(Program, WhatItLeavesRunningIsNotWaitedFor) {
    const auto begin = std::chrono::steady_clock::now();
    const Script script("sleep 30 & echo $! >\"$1\"");
    EXPECT_EQ(script.Run(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
    const pid_t left = std::stoi(script.Notes());
    ASSERT_GT(left, 1);
    kill(left, SIGKILL);
}

TEST(Program, IsKilledAtTheEndOfItsTime) {
    const auto begin = std::chrono::steady_clock::now();
    ExpectFailure(ARDV_ERR_PROGRAM_FAILED, Script("echo $$ >\"$1\"; exec sleep 60").Run());
    const auto taken = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(taken, std::chrono::seconds(ARDV_EXEC_HELPER_SECONDS));
    EXPECT_LT(taken, std::chrono::seconds(ARDV_EXEC_HELPER_SECONDS + 10));
}

TEST(Program, CannotBeMissing) {
    ExpectFailure(ARDV_ERR_NOT_FOUND, ALIBCExecl("/usr/sbin/no such program", ARDV_EXEC_HELPER, "x", nullptr));
}

TEST(Program, MustBeExecutable) {
    ExpectFailure(ARDV_ERR_ACCESS_DENIED, ALIBCExecl("/etc/passwd", ARDV_EXEC_HELPER, nullptr, nullptr));
}

TEST(Program, IsNamedByAnAbsolutePath) {
    for (const char* path : {static_cast<const char*>(nullptr), "", "true", "./true"}) {
        ExpectFailure(ARDV_ERR_INVALID_ARGUMENT, ALIBCExecl(path, ARDV_EXEC_HELPER, nullptr, nullptr));
    }
}

TEST(Program, OtherFlagsAreRefused) {
    for (const int flags : {0, 1, 186, 188, -187}) {
        ExpectFailure(ARDV_ERR_INVALID_ARGUMENT, ALIBCExecl("/bin/true", flags, nullptr, nullptr));
    }
}

TEST(Program, EndThatCannotBeLearntIsAFailure) {
    EXPECT_EQ(ChildProcess([] {
                  signal(SIGCHLD, SIG_IGN);
                  return ALIBCExecl("/bin/true", ARDV_EXEC_HELPER, nullptr, nullptr) == -1 ? 0 : 1;
              }).Wait(),
              0);
}

TEST(Program, LeavesNoDescriptorBehind) {
    const auto before = OpenDescriptors();
    ALIBCExecl("/bin/true", ARDV_EXEC_HELPER, nullptr, nullptr);
    ALIBCExecl("/no such program", ARDV_EXEC_HELPER, nullptr, nullptr);
    EXPECT_EQ(OpenDescriptors(), before);
}

}  // namespace ARDV::Platform::Test
