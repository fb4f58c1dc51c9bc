// SPDX-License-Identifier: Apache-2.0
#include <sys/file.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <relay/config/config_base.h>
#include <relay/daemon/file_lock.h>

#include "support/captured_output.h"
#include "support/daemon_test.h"
#include "support/file_opens.h"
#include "support/scratch_folder.h"
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

constexpr int kNotRunning = 1;
constexpr int kLockFailed = 11;
constexpr int kNoReport = 255;
constexpr std::size_t kAttempts = 30;

/**
 * A daemon on the pid file that gets signals and leaves them unanswered. What it would write appears when a chosen attempt has opened the
 * file, whose very first opening is that of the lock.
 */
class Report : public DaemonTest {
protected:
    Report() {
        WritePid(daemon_.Pid());
        opens_.onOpen = [this](const std::string& path) {
            if (path == file_ && !isBusy_) {
                isBusy_ = true;
                OnOpen(opens_.CountOf(file_));
                isBusy_ = false;
            }
        };
    }

    ~Report() override { fs::remove_all(file_); }

    /** Right after each opening of the file, counted from 1. */
    virtual void OnOpen(std::size_t count) {
        if (count == 1 + attempt_) {
            WriteText(file_, content_);
        }
    }

    /** Has a text in the file for the attempt to read it of this number, which counts from 1. */
    void AnswerAt(std::size_t attempt, const std::string& content) {
        attempt_ = attempt;
        content_ = content;
    }

    int Ask() { return Daemon::DebugStatus(report_); }

    SignalledProcess daemon_;
    CapturedSystemLog systemLog_;
    CapturedLog log_{6};
    FileOpens opens_;
    Json::Value report_ = "before";
    const std::string file_ = Daemon::GetReportFile(daemon_.Pid());

private:
    std::size_t attempt_ = kAttempts + 1;
    std::string content_;
    bool isBusy_ = false;
};

TEST_F(Report, IsAskedForBySignalAndReadFromAFileThatIsGoneAfterwards) {
    AnswerAt(1, R"({"a":[1,2]} // a comment)");
    const auto before = OpenDescriptors();
    EXPECT_EQ(Ask(), 0);
    EXPECT_EQ(report_, JsonOf(R"({"a":[1,2]})"));
    EXPECT_THAT(daemon_.Received(), ElementsAre(SIGUSR1));
    EXPECT_FALSE(fs::exists(file_));
    EXPECT_EQ(OpenDescriptors(), before);
    EXPECT_THAT(systemLog_.Messages(), IsEmpty());
}

TEST_F(Report, IsThatOfTheDaemonOnAnotherPidFile) {
    fs::remove(kPidFile);
    WritePid(daemon_.Pid(), "/tmp/x.pid");
    Daemon::SetPidFile("/tmp/x.pid");
    AnswerAt(1, "{}");
    EXPECT_EQ(Ask(), 0);
    fs::remove("/tmp/x.pid");
}

TEST_F(Report, MayBeHalfWrittenForAWhile) {
    WriteText(file_, R"({"a":)");
    AnswerAt(kAttempts, R"({"a":1})");
    EXPECT_EQ(Ask(), 0);
    EXPECT_EQ(report_, JsonOf(R"({"a":1})"));
    EXPECT_EQ(opens_.CountOf(file_), 1 + kAttempts);
    EXPECT_THAT(systemLog_.Messages(), IsEmpty());
}

TEST_F(Report, ThatNeverComesIsGivenUpAfterThirtyAttempts) {
    AnswerAt(kAttempts + 1, "{}");
    EXPECT_EQ(Ask(), kLockFailed);
    EXPECT_EQ(report_, Json::Value());
    EXPECT_EQ(opens_.CountOf(file_), 1 + kAttempts);
    EXPECT_FALSE(fs::exists(file_));
    EXPECT_THAT(systemLog_.Messages(), ElementsAre("7 daemon.cpp ardvrelayd status parse failed"));
}

TEST_F(Report, OfHostileSizeOrDepthIsNoReport) {
    for (const auto& text : {std::string(2000, '['), std::string(kMaxJsonFileSize, ' ') + "{}"}) {
        WriteText(file_, text);
        EXPECT_EQ(Ask(), kLockFailed);
        EXPECT_EQ(report_, Json::Value());
    }
}

TEST_F(Report, MayBeAnyValue) {
    AnswerAt(1, "5");
    EXPECT_EQ(Ask(), 0);
    EXPECT_EQ(report_, 5);
}

class LostLock : public Report {
    void OnOpen(std::size_t count) override {
        if (count == 1) {
            fs::remove(file_);
        }
    }
};

TEST_F(LostLock, IsNoLock) {
    EXPECT_EQ(Ask(), kLockFailed);
    EXPECT_THAT(systemLog_.Messages(), ElementsAre("6 daemon.cpp lock failed"));
    EXPECT_THAT(daemon_.Received(), IsEmpty());
}

class LostReport : public Report {
    void OnOpen(std::size_t count) override {
        if (count == 2) {
            fs::remove(file_);
        }
    }
};

TEST_F(LostReport, IsNotReady) {
    EXPECT_EQ(Ask(), kNoReport);
    EXPECT_EQ(report_, Json::Value());
    EXPECT_EQ(opens_.CountOf(file_), 2U);
    EXPECT_THAT(systemLog_.Messages(), ElementsAre("3 daemon.cpp ardvrelayd status file is not ready"));
    EXPECT_FALSE(fs::exists(file_));
}

class PlantedReport : public Report {
    void OnOpen(std::size_t count) override {
        if (count == 2) {
            WriteText("/tmp/other", "{}");
            fs::remove(file_);
            fs::create_symlink("/tmp/other", file_);
        }
    }
};

TEST_F(PlantedReport, IsNotRead) {
    EXPECT_EQ(Ask(), kNoReport);
    EXPECT_FALSE(fs::is_symlink(fs::symlink_status(file_)));
    EXPECT_EQ(ReadText("/tmp/other"), "{}");
    fs::remove("/tmp/other");
}

TEST_F(Report, IsNoneWithoutADaemon) {
    for (const char* pid : {"", "0", "-1"}) {
        WriteText(kPidFile, pid);
        EXPECT_EQ(Ask(), kNotRunning) << pid;
        EXPECT_EQ(report_, Json::Value());
    }
    fs::remove(kPidFile);
    EXPECT_EQ(Ask(), kNotRunning);
    EXPECT_THAT(systemLog_.Messages(), IsEmpty());
    EXPECT_EQ(opens_.CountOf(file_), 0U);
}

TEST_F(Report, ThatAnotherOneAsksForIsLeftToThem) {
    _FileLock other(file_.c_str());
    ASSERT_TRUE(other.Lock(LOCK_EX));
    WriteText(file_, "{}");
    EXPECT_EQ(Ask(), kLockFailed);
    EXPECT_EQ(report_, Json::Value());
    EXPECT_EQ(ReadText(file_), "{}");
    EXPECT_THAT(daemon_.Received(), IsEmpty());
    EXPECT_THAT(systemLog_.Messages(), ElementsAre("6 daemon.cpp lock failed"));
}

class SimultaneousReport : public Report {
    void OnOpen(std::size_t count) override {
        if (count == 2) {
            second_ = ChildProcess([] {
                          Json::Value report;
                          return Daemon::DebugStatus(report);
                      }).Wait();
            WriteText(file_, "{}");
        }
    }

protected:
    int second_ = -1;
};

TEST_F(SimultaneousReport, IsRefusedAndDoesNotDisturbTheFirst) {
    EXPECT_EQ(Ask(), 0);
    EXPECT_EQ(second_, kLockFailed);
    EXPECT_EQ(report_, JsonOf("{}"));
    EXPECT_THAT(daemon_.Received(), ElementsAre(SIGUSR1)) << "once";
}

TEST_F(Report, OfADaemonThatMayNotBeSignalledIsNone) {
    constexpr int kNoOtherUser = 77;
    fs::permissions("/dev/log", fs::perms(0666));
    const int result =
        ChildProcess([this] { return geteuid() != 0 || setuid(65534) != 0 ? kNoOtherUser : Ask(); }).Wait();
    if (result == kNoOtherUser) {
        GTEST_SKIP() << "this machine lets no test act as another user";
    }
    EXPECT_EQ(result, kNotRunning);
    EXPECT_THAT(systemLog_.Messages(), ElementsAre("3 daemon.cpp daemon is not running"));
    EXPECT_THAT(daemon_.Received(), IsEmpty());
    EXPECT_FALSE(fs::exists(file_));
}

TEST_F(Report, OfARealDaemonIsWrittenIntoTheLockedFile) {
    const auto answer = [](int signal) {
        if (signal == SIGUSR1) {
            WriteText(Daemon::GetReportFile(getpid()), R"({"from":"the daemon"})");
        }
    };
    const SignalledProcess daemon(answer);
    WritePid(daemon.Pid());
    int result = kLockFailed;  // a loaded machine may keep the daemon from answering in its few milliseconds
    for (int attempt = 0; attempt < 100 && result == kLockFailed; ++attempt) {
        result = Ask();
    }
    EXPECT_EQ(result, 0);
    EXPECT_EQ(report_, JsonOf(R"({"from":"the daemon"})"));
    fs::remove(Daemon::GetReportFile(daemon.Pid()));
}

class PrintedReport : public Report {
protected:
    std::string Printed(int result) {
        const CapturedOutput output;
        EXPECT_EQ(Daemon::Status(true), result);
        return output.Text();
    }
};

TEST_F(PrintedReport, IsOneLine) {
    AnswerAt(1, "{\n  \"b\": [1, 2],\n  \"a\": \"x\"\n}");
    EXPECT_EQ(Printed(0), "{\"a\":\"x\",\"b\":[1,2]}\n");
}

TEST_F(PrintedReport, OfNoDaemonSaysSoByItsName) {
    fs::remove(kPidFile);
    EXPECT_EQ(Printed(1), "ardvrelayd is not running\n");
    Daemon::SetName("relay-x");
    EXPECT_EQ(Printed(1), "relay-x is not running\n");
}

TEST_F(PrintedReport, ThatFailsIsToldInOneWay) {
    EXPECT_EQ(Printed(kLockFailed), "get status failed\n");
}

}  // namespace

}  // namespace ARDV::Relay
