// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include <relay/config/config_base.h>

#include "support/captured_output.h"
#include "support/daemon_test.h"
#include "support/signalled_process.h"
#include "support/system_log.h"
#include "unit/platform/child_process.h"

namespace ARDV::Relay {

namespace {

namespace fs = std::filesystem;

using namespace ardv::test;
using ARDV::Platform::Test::ChildProcess;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr int kRunning = 0;
constexpr int kNotRunning = 1;
constexpr int kBad = 255;
constexpr const char kBadFile[] = "3 daemon.cpp bad ardvrelayd status file";
constexpr const char kBadPid[] = "3 daemon.cpp bad ardvrelayd status pid";
const std::string kStatusFile = Daemon::kStatusFile;

/** A text with "PID" in it, replaced by that of a process. */
std::string With(std::string text, pid_t pid) {
    const auto at = text.find("PID");
    return at == std::string::npos ? text : text.replace(at, 3, std::to_string(pid));
}

pid_t PidOfTheDead() {
    ChildProcess child([] { return 0; });
    const pid_t pid = child.Pid();
    child.Wait();
    return pid;
}

/** Tests with a living process to name in the status file. The log stays silent: tools' messages go to the system log. */
class StatusTest : public DaemonTest {
protected:
    ~StatusTest() override {
        EXPECT_EQ(log_.Text(), "");
        fs::remove_all(kStatusFile);
    }

    void WriteStatus(const std::string& text) const { WriteText(kStatusFile, With(text, daemon_.Pid())); }

    SignalledProcess daemon_;
    CapturedSystemLog systemLog_;
    CapturedLog log_{6};
};

class StatusFile : public StatusTest {
protected:
    /** Expects both readers of the file to come to a result, with a message each. */
    void ExpectBoth(int result, const std::vector<std::string>& message) {
        Json::Value status = "before";
        EXPECT_EQ(Daemon::GetStatus(status), result);
        EXPECT_EQ(systemLog_.Messages(), message);
        EXPECT_EQ(Daemon::UpdateAlias(), result);
        EXPECT_EQ(systemLog_.Messages(), message);
    }
};

TEST_F(StatusFile, StandsWhereEverybodyExpectsIt) {
    EXPECT_STREQ(Daemon::kStatusFile, "/tmp/.ardvrelayd.status");
    EXPECT_EQ(Daemon::GetReportFile(4711), "/tmp/.ardvrelayd.4711.debug");
}

TEST_F(StatusFile, OfARunningDaemonIsPassedOnWhole) {
    WriteStatus(R"({"pid":PID,"state":5,"more":{"a":[1,"x",null]}} // a comment)");
    Json::Value status;
    EXPECT_EQ(Daemon::GetStatus(status), kRunning);
    EXPECT_EQ(status, JsonOf(With(R"({"pid":PID,"state":5,"more":{"a":[1,"x",null]}})", daemon_.Pid())));
    EXPECT_THAT(systemLog_.Messages(), IsEmpty());
    EXPECT_THAT(daemon_.Received(), IsEmpty()) << "only asked for";
}

TEST_F(StatusFile, IsNoneWithoutADaemon) {
    ExpectBoth(kNotRunning, {});
    Json::Value status = "before";
    Daemon::GetStatus(status);
    EXPECT_EQ(status, "before");
}

TEST_F(StatusFile, OfADeadDaemonIsStaleAndPassedOn) {
    const pid_t dead = PidOfTheDead();
    WriteText(kStatusFile, With(R"({"pid":PID,"serverID":"abc"})", dead));
    ExpectBoth(kNotRunning, {});
    Json::Value status;
    Daemon::GetStatus(status);
    EXPECT_EQ(status["serverID"], "abc");
}

class BadStatusFile : public StatusFile, public testing::WithParamInterface<std::string> {};

TEST_P(BadStatusFile, IsReportedAndLeftWhereItIs) {
    WriteStatus(GetParam());
    ExpectBoth(kBad, {kBadFile});
    EXPECT_EQ(ReadText(kStatusFile), With(GetParam(), daemon_.Pid()));
    EXPECT_FALSE(fs::exists(kStatusFile + ".bad"));
    Json::Value status = "before";
    Daemon::GetStatus(status);
    EXPECT_EQ(status, "before");
}

INSTANTIATE_TEST_SUITE_P(Texts, BadStatusFile,
                         testing::Values("", "{", "text", R"({"pid":PID)", R"({"pid":PID,})", R"({"pid":1e999})"));

TEST_F(StatusFile, NestedTooDeeplyIsBad) {
    const std::string depth(2000, '[');
    WriteStatus(R"({"pid":PID,"a":)" + depth + std::string(2000, ']') + "}");
    ExpectBoth(kBad, {kBadFile});
}

TEST_F(StatusFile, LargerThanAnyStatusIsBad) {
    const std::string start = With(R"({"pid":PID,"a":")", daemon_.Pid());
    const auto fill = [&start](std::size_t size) { return start + std::string(size - start.size() - 2, 'x') + "\"}"; };
    WriteText(kStatusFile, fill(kMaxJsonFileSize));
    ExpectBoth(kRunning, {});
    WriteText(kStatusFile, fill(kMaxJsonFileSize + 1));
    ExpectBoth(kBad, {kBadFile});
}

class StatusWithoutAPid : public StatusFile, public testing::WithParamInterface<const char*> {};

TEST_P(StatusWithoutAPid, IsReported) {
    WriteStatus(GetParam());
    ExpectBoth(kBad, {kBadPid});
    EXPECT_THAT(daemon_.Received(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Texts, StatusWithoutAPid,
                         testing::Values("{}", "5", "null", "\"PID\"", "[]", R"([{"pid":PID}])", R"({"pid":-1})",
                                         R"({"pid":"PID"})", R"({"pid":null})", R"({"pid":true})", R"({"pid":PID.5})",
                                         R"({"pid":[PID]})", R"({"pid":{"pid":PID}})", R"({"pid":2147483648})",
                                         R"({"pid":4294967295})", R"({"pid":-2147483649})", R"({"pid":99999999999})",
                                         R"({"Pid":PID})"));

TEST_F(StatusFile, TakesAPidWithoutAFractionForAnInteger) {
    WriteStatus(R"({"pid":PID.0})");
    ExpectBoth(kRunning, {});
}

TEST_F(StatusFile, NamesNoProcessByANumberBelowOneAndSignalsNoGroup) {
    for (const auto& pid : std::vector<std::string>{"0", "-2", "-2147483648", "-" + std::to_string(getpid())}) {
        WriteText(kStatusFile, R"({"pid":)" + pid + "}");
        ChildProcess child([&] {
            sigset_t all;
            sigfillset(&all);
            sigprocmask(SIG_BLOCK, &all, nullptr);
            setpgid(0, 0);
            Json::Value status;
            const bool isRight = Daemon::GetStatus(status) == kNotRunning && Daemon::UpdateAlias() == kNotRunning;
            sigset_t pending;
            sigpending(&pending);
            return isRight && sigisemptyset(&pending) != 0 ? 0 : 1;
        });
        EXPECT_EQ(child.Wait(), 0) << pid;
    }
    EXPECT_THAT(systemLog_.Messages(), IsEmpty());
}

TEST_F(StatusFile, ThatIsNoPlainFileCountsAsNone) {
    fs::create_directory(kStatusFile);
    ExpectBoth(kNotRunning, {});
    fs::remove(kStatusFile);
    ASSERT_EQ(mkfifo(kStatusFile.c_str(), 0644), 0);
    ExpectBoth(kNotRunning, {});
}

TEST_F(StatusFile, ThatSomebodyMayHavePlantedCountsAsNone) {
    const std::string other = "/tmp/other";
    WriteText(other, With(R"({"pid":PID})", daemon_.Pid()));
    fs::create_symlink(other, kStatusFile);
    ExpectBoth(kNotRunning, {});
    fs::remove(kStatusFile);
    fs::create_hard_link(other, kStatusFile);
    ExpectBoth(kNotRunning, {});
    fs::remove(other);
    ExpectBoth(kRunning, {});
    if (chown(kStatusFile.c_str(), 2000, 2000) == 0) {
        ExpectBoth(kNotRunning, {});
    }
}

TEST_F(StatusFile, SaysWhomToAskForAnAliasUpdate) {
    WriteStatus(R"({"pid":PID})");
    EXPECT_EQ(Daemon::UpdateAlias(), 0);
    EXPECT_THAT(daemon_.Received(), ElementsAre(SIGRTMIN + 1));
}

TEST_F(StatusFile, IsReadWithoutLeavingItOpen) {
    const auto countOpen = [] {
        return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
    };
    WriteStatus(R"({"pid":PID})");
    Json::Value status;
    Daemon::GetStatus(status);
    const auto before = countOpen();
    Daemon::GetStatus(status);
    Daemon::UpdateAlias();
    EXPECT_EQ(countOpen(), before);
}

struct Words {
    const char* name;
    const char* file;  ///< "PID" in it is that of a running process, "DEAD" that of a dead one
    const char* service;
    const char* serverId;
    const char* state;
    const char* error;
};

class StatusWords : public StatusTest, public testing::WithParamInterface<Words> {};

TEST_P(StatusWords, TellStateAndError) {
    std::string text = GetParam().file;
    if (const auto at = text.find("DEAD"); at != std::string::npos) {
        text.replace(at, 4, std::to_string(PidOfTheDead()));
    }
    if (!text.empty()) {
        WriteStatus(text);
    }
    std::string serverId = "before";
    std::string state = "before";
    std::string error = "before";
    EXPECT_TRUE(Daemon::GetStatus(serverId, state, error, GetParam().service));
    EXPECT_EQ(serverId, GetParam().serverId);
    EXPECT_EQ(state, GetParam().state);
    EXPECT_EQ(error, GetParam().error);
    EXPECT_THAT(systemLog_.Messages(), IsEmpty());
}

constexpr const char kFull[] =
    R"({"pid":PID,"serverID":"abc","state":6,"error":8,"service":[5,{"id":7},{},{"id":"web"},{"id":"photo"}]})";
constexpr const char kFullAndDead[] = R"({"pid":DEAD,"serverID":"abc","state":6,"error":8,"service":[{"id":"photo"}]})";

INSTANTIATE_TEST_SUITE_P(
    Files, StatusWords,
    testing::Values(
        Words{"Running", kFull, nullptr, "abc", "connected", "err_auth"},
        Words{"RelayedService", kFull, "photo", "abc", "connected", "err_auth"},
        Words{"OtherService", kFull, "video", "--", "not_running", "success"},
        Words{"ServiceOfAPartOfTheName", kFull, "phot", "--", "not_running", "success"},
        Words{"ServiceWithoutAName", kFull, "", "--", "not_running", "success"},
        Words{"ServiceWithoutAList", R"({"pid":PID,"serverID":"abc","state":5})", "photo", "--", "not_running",
              "success"},
        Words{"ServiceInNoList", R"({"pid":PID,"serverID":"abc","state":5,"service":{"id":"photo"}})", "photo", "--",
              "not_running", "success"},
        Words{"ServiceInANumber", R"({"pid":PID,"state":5,"service":5})", "photo", "--", "not_running", "success"},
        Words{"Dead", kFullAndDead, nullptr, "abc", "not_running", "success"},
        Words{"DeadWithService", kFullAndDead, "photo", "--", "not_running", "success"},
        Words{"NoFile", "", nullptr, "before", "not_running", "success"},
        Words{"NoFileWithService", "", "photo", "--", "not_running", "success"},
        Words{"PidAlone", R"({"pid":PID})", nullptr, "before", "not_running", "success"},
        Words{"WrongTypes", R"({"pid":PID,"serverID":5,"state":"x","error":99999999999,"service":5})", nullptr,
              "before", "not_running", "success"},
        Words{"NoTypes", R"({"pid":PID,"serverID":null,"state":null,"error":true})", nullptr, "before", "not_running",
              "success"},
        Words{"EmptyId", R"({"pid":PID,"serverID":"","state":4})", nullptr, "", "direct_connect", "success"},
        Words{"UnknownNumbers", R"({"pid":PID,"state":77,"error":77})", nullptr, "before", "error", "err_unknown"},
        Words{"Zeros", R"({"pid":PID,"state":0,"error":0})", nullptr, "before", "error", "success"},
        Words{"Negative", R"({"pid":PID,"state":-5,"error":-5})", nullptr, "before", "error", "err_unknown"}),
    [](const auto& words) { return words.param.name; });

TEST_F(StatusTest, InWordsIsNoneOfABadFile) {
    for (const char* text : {"{", R"({"serverID":"abc","state":5})"}) {
        WriteStatus(text);
        std::string serverId = "before";
        std::string state = "before";
        std::string error = "before";
        EXPECT_FALSE(Daemon::GetStatus(serverId, state, error, "photo"));
        EXPECT_EQ(serverId, *text == '{' && text[1] != '\0' ? "abc" : "before") << "as far as it is there";
        EXPECT_EQ(state, "before");
        EXPECT_EQ(error, "before");
    }
    EXPECT_THAT(systemLog_.Messages(), ElementsAre(kBadFile, kBadPid));
}

class PrintedStatus : public StatusTest {
protected:
    ~PrintedStatus() override { fs::remove("/tmp/nubo_alias.status"); }

    static std::string Printed(int result) {
        const CapturedOutput output;
        EXPECT_EQ(Daemon::Status(false), result);
        return output.Text();
    }

    static void WriteAlias(const std::string& name) {
        WriteText(kConfigFile, R"({"server_alias":{"alias":")" + name + R"("}})");
        WriteText("/tmp/nubo_alias.status", R"({"alias_name":"box1","status":"success","extra":""})");
    }
};

TEST_F(PrintedStatus, WithoutADaemonIsNotRunning) {
    EXPECT_EQ(Printed(1), "serverID: \nstate: not_running\nalias: \nalias_status: \n");
}

TEST_F(PrintedStatus, OfARunningDaemonHasNoErrorLineWithoutAnError) {
    WriteStatus(R"({"pid":PID,"serverID":"abc","state":5,"error":0})");
    EXPECT_EQ(Printed(0), "serverID: abc\nstate: connected\nalias: \nalias_status: \n");
}

TEST_F(PrintedStatus, NamesTheError) {
    WriteStatus(R"({"pid":PID,"serverID":"abc","state":3,"error":8})");
    EXPECT_EQ(Printed(0), "serverID: abc\nstate: login\nalias: \nalias_status: \nerror: err_auth\n");
}

TEST_F(PrintedStatus, NamesTheAliasAndWhatBecameOfIt) {
    WriteAlias("box1");
    WriteStatus(R"({"pid":PID,"serverID":"abc","state":4})");
    EXPECT_EQ(Printed(0), "serverID: abc\nstate: direct_connect\nalias: box1\nalias_status: success\n");
}

TEST_F(PrintedStatus, KnowsNothingOfAnAliasThatTheRecordIsNotAbout) {
    WriteAlias("box2");
    EXPECT_EQ(Printed(1), "serverID: \nstate: not_running\nalias: box2\nalias_status: \n");
}

TEST_F(PrintedStatus, OfADaemonThatSaysItDoesNotRunIsOne) {
    WriteStatus(R"({"pid":PID,"serverID":"abc"})");
    EXPECT_EQ(Printed(1), "serverID: abc\nstate: not_running\nalias: \nalias_status: \n");
}

TEST_F(PrintedStatus, OfABadFileFails) {
    WriteStatus("{}");
    EXPECT_EQ(Printed(2), "get status failed\n");
    EXPECT_THAT(systemLog_.Messages(), ElementsAre(kBadPid));
}

TEST_F(PrintedStatus, ComesBetweenWhatIsPrintedBeforeAndAfter) {
    const CapturedOutput output;
    std::printf("first\n");
    std::cout << "second\n";
    Daemon::Status(false);
    std::cout << "third\n" << std::flush;
    EXPECT_THAT(output.Text(), testing::MatchesRegex("first\nsecond\nserverID: \n.*alias_status: \nthird\n"));
}

}  // namespace

}  // namespace ARDV::Relay
