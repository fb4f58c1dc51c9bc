// SPDX-License-Identifier: Apache-2.0
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include <relay/common/ardvrelayd.h>

#include "support/daemon_test.h"
#include "support/memory_faults.h"
#include "support/program.h"
#include "support/signalled_process.h"
#include "unit/platform/child_process.h"

namespace {

namespace fs = std::filesystem;

using namespace ardv::test;
using ARDV::Platform::Test::ChildProcess;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char kNotRunning[] = "ardvrelayd not running";
const std::string kNoFile = "cutil.cpp invalid relayd config, /usr/ardv/etc/ardvrelayd/ardvrelayd.conf";

Json::Value Configuration() {
    return JsonOf(ReadText(kConfigFile));
}

class LogSwitch : public DaemonTest {};

TEST_F(LogSwitch, OnSetsLevelAndFileAndKeepsTheRest) {
    WriteText(kConfigFile, R"({"serverID":"abc","log_level":3,"unknown":[1]})");
    EXPECT_THAT(MessagesAt(9, [] { EXPECT_EQ(ALIBRelaydLogStart("/tmp/x.log"), 0); }), ElementsAre(kNotRunning));
    EXPECT_EQ(Configuration(), JsonOf(R"({"serverID":"abc","log_level":7,"log_file":"/tmp/x.log","unknown":[1]})"));
    EXPECT_EQ(ModeOf(kConfigFile), 0644U);
    EXPECT_FALSE(fs::exists("/tmp/x.log"));
}

TEST_F(LogSwitch, OnHasARunningDaemonReload) {
    const SignalledProcess daemon;
    WritePid(daemon.Pid());
    WriteText(kConfigFile, "{}");
    EXPECT_THAT(MessagesAt(9, [] { EXPECT_EQ(ALIBRelaydLogStart("/tmp/x.log"), 0); }), IsEmpty());
    EXPECT_THAT(daemon.Received(), ElementsAre(SIGHUP));
}

TEST_F(LogSwitch, OnTakesAnyText) {
    for (const char* file : {"", "relative", "/a b\"\\\n.log"}) {
        WriteText(kConfigFile, "{}");
        const CapturedLog log;
        EXPECT_EQ(ALIBRelaydLogStart(file), 0);
        EXPECT_EQ(Configuration()["log_file"], file);
    }
}

TEST_F(LogSwitch, OnWithoutAFileIsAFailureThatChangesNothing) {
    WriteText(kConfigFile, "{");
    EXPECT_THAT(MessagesAt(9, [] { EXPECT_EQ(ALIBRelaydLogStart(nullptr), -1); }), IsEmpty());
    EXPECT_EQ(ReadText(kConfigFile), "{");
}

TEST_F(LogSwitch, OnWithoutAConfigurationIsAFailure) {
    ExpectMessage(7, kNoFile, [] { EXPECT_EQ(ALIBRelaydLogStart("/tmp/x.log"), -1); });
    EXPECT_FALSE(fs::exists(kConfigFile));
}

TEST_F(LogSwitch, OnForADamagedConfigurationIsAFailureThatMovesItAside) {
    WriteText(kConfigFile, "{");
    const CapturedLog log;
    EXPECT_EQ(ALIBRelaydLogStart("/tmp/x.log"), -1);
    EXPECT_EQ(log.Messages().back(), kNoFile);
    EXPECT_FALSE(fs::exists(kConfigFile));
    EXPECT_EQ(ReadText(std::string(kConfigFile) + ".bad"), "{");
}

TEST_F(LogSwitch, OnForAConfigurationOfAnotherKindIsAFailureThatLeavesIt) {
    const SignalledProcess daemon;
    WritePid(daemon.Pid());
    for (const char* text : {"[]", "5", "null", "\"x\"", "true"}) {
        WriteText(kConfigFile, text);
        EXPECT_THAT(MessagesAt(9, [] { EXPECT_EQ(ALIBRelaydLogStart("/tmp/x.log"), -1); }), IsEmpty());
        EXPECT_EQ(ReadText(kConfigFile), text);
    }
    EXPECT_THAT(daemon.Received(), IsEmpty());
}

TEST_F(LogSwitch, OffRemovesLevelAndFileAndKeepsTheRest) {
    WriteText(kConfigFile, R"({"serverID":"abc","log_level":7,"log_file":"/tmp/x.log"})");
    const SignalledProcess daemon;
    WritePid(daemon.Pid());
    EXPECT_THAT(MessagesAt(9, [] { EXPECT_EQ(ALIBRelaydLogStop(), 0); }), IsEmpty());
    EXPECT_EQ(Configuration(), JsonOf(R"({"serverID":"abc"})"));
    EXPECT_THAT(daemon.Received(), ElementsAre(SIGHUP));
}

TEST_F(LogSwitch, OffWithoutTheTwoWritesTheSameAgain) {
    WriteText(kConfigFile, R"({"serverID":"abc"})");
    EXPECT_THAT(MessagesAt(9, [] { EXPECT_EQ(ALIBRelaydLogStop(), 0); }), ElementsAre(kNotRunning));
    EXPECT_EQ(ReadText(kConfigFile), "{\n   \"serverID\" : \"abc\"\n}\n");
}

TEST_F(LogSwitch, OffWithoutAConfigurationWritesAnEmptyOne) {
    EXPECT_THAT(MessagesAt(7, [] { EXPECT_EQ(ALIBRelaydLogStop(), 0); }), ElementsAre(kNoFile, kNotRunning));
    EXPECT_EQ(ReadText(kConfigFile), "{}\n");
    fs::remove(kConfigFile);
    EXPECT_THAT(MessagesAt(6, [] { EXPECT_EQ(ALIBRelaydLogStop(), 0); }), ElementsAre(kNotRunning));
}

TEST_F(LogSwitch, OffForADamagedConfigurationWritesAnEmptyOne) {
    WriteText(kConfigFile, "{");
    const CapturedLog log;
    EXPECT_EQ(ALIBRelaydLogStop(), 0);
    EXPECT_EQ(ReadText(kConfigFile), "{}\n");
    EXPECT_EQ(ReadText(std::string(kConfigFile) + ".bad"), "{");
}

TEST_F(LogSwitch, OffForAConfigurationOfAnotherKindKeepsIt) {
    for (const char* text : {"[]\n", "5\n", "\"x\"\n", "true\n"}) {
        WriteText(kConfigFile, text);
        const CapturedLog log;
        EXPECT_EQ(ALIBRelaydLogStop(), 0);
        EXPECT_EQ(ReadText(kConfigFile), text);
    }
}

TEST_F(LogSwitch, IsAFailureWhereNothingCanBeWritten) {
    const SignalledProcess daemon;
    WritePid(daemon.Pid());
    WriteText(kConfigFile, R"({"log_level":3})");
    const auto blocked = TemporaryOf(kConfigFile);
    fs::create_directory(blocked);
    const auto message = "config.cpp open failed [" + blocked + "]";
    ExpectMessage(3, message, [] { EXPECT_EQ(ALIBRelaydLogStart("/tmp/x.log"), -1); });
    ExpectMessage(3, message, [] { EXPECT_EQ(ALIBRelaydLogStop(), -1); });
    EXPECT_EQ(ReadText(kConfigFile), R"({"log_level":3})");
    EXPECT_THAT(daemon.Received(), IsEmpty());
}

TEST_F(LogSwitch, ThrowsNothingWhereMemoryRunsOut) {
    const CapturedLog log(0);
    for (const bool isOn : {true, false}) {
        int failures = 0;
        for (bool isShort = true; isShort; ++failures) {
            WriteText(kConfigFile, R"({"serverID":"abc","log_level":3})");
            int result = 0;
            isShort = IsShortOfMemory(failures,
                                      [&] { result = isOn ? ALIBRelaydLogStart("/tmp/x.log") : ALIBRelaydLogStop(); });
            EXPECT_THAT(result, testing::AnyOf(0, isShort ? -1 : 0)) << failures;
            EXPECT_EQ(Configuration()["serverID"], "abc") << failures;
        }
        EXPECT_GT(failures, 5);
    }
}

TEST_F(LogSwitch, OffWritesAnEmptyConfigurationForOneThatItMayNotRead) {
    constexpr int kNoOtherUser = 77;
    WriteText(kConfigFile, R"({"serverID":"abc"})");
    fs::permissions(kConfigFile, fs::perms(0));
    fs::permissions(fs::path(kConfigFile).parent_path(), fs::perms(0777));
    const CapturedLog log(0);
    const int result = ChildProcess([] {
                           return geteuid() != 0 || setuid(65534) != 0 ? kNoOtherUser : ALIBRelaydLogStop() + 2;
                       }).Wait();
    if (result == kNoOtherUser) {
        GTEST_SKIP() << "this machine lets no test act as another user";
    }
    EXPECT_EQ(result - 2, 0);
    EXPECT_EQ(Configuration(), Json::Value(Json::objectValue));
}

class LoadedByAProgramInC : public DaemonTest {
protected:
    static std::string Printed(std::vector<std::string> words) {
        words.insert(words.begin(), {ARDV_LOG_SWITCH, ARDV_LIBRARY});
        const auto result = RunProgram(words);
        EXPECT_EQ(result.exitCode, 0);
        return result.out + result.err;
    }
};

TEST_F(LoadedByAProgramInC, AllFourFunctionsServe) {
    const SignalledProcess daemon;
    WritePid(daemon.Pid());
    WriteText(kConfigFile, R"({"serverID":"abc","service":[{"id":"web"}]})");
    EXPECT_EQ(Printed({"id"}), "1 abc\n");
    EXPECT_EQ(Printed({"id", "web"}), "1 abc\n");
    EXPECT_EQ(Printed({"id", "photo"}), "0 abc\n");
    WriteText(kConfigFile, R"({"server_global":{"host":"g.tethra.zz"}})");
    EXPECT_EQ(Printed({"domain"}), "0 tethra.zz\n");
    EXPECT_EQ(Printed({"on"}), "-1 \n");
    EXPECT_EQ(Printed({"on", "/tmp/x.log"}), "0 \n");
    EXPECT_EQ(Configuration()["log_file"], "/tmp/x.log");
    EXPECT_EQ(Printed({"off"}), "0 \n");
    EXPECT_FALSE(Configuration().isMember("log_file"));
    EXPECT_THAT(daemon.Received(), ElementsAre(SIGHUP, SIGHUP));
}

}  // namespace
