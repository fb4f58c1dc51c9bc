// SPDX-License-Identifier: Apache-2.0
#include <relay/daemon/log.h>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <ctime>
#include <string>
#include <vector>

#include <libdaemon/dlog.h>

#include "support/device_test.h"
#include "support/platform_faults.h"

RELAY_LOG_SOURCE("log_test.cpp");

namespace ARDV::Relay {

namespace {

using namespace ardv::test;
using testing::ElementsAre;
using testing::IsEmpty;

/** libdaemon's own messages go to descriptor 2 meanwhile, with the verbosity at its start value afterwards. */
class DaemonVoice {
public:
    DaemonVoice() : use_(daemon_log_use) { daemon_log_use = DAEMON_LOG_STDERR; }
    ~DaemonVoice() {
        daemon_set_verbosity(LOG_DEBUG);
        daemon_log_use = use_;
    }
    DaemonVoice(const DaemonVoice&) = delete;
    DaemonVoice& operator=(const DaemonVoice&) = delete;

private:
    daemon_log_flags use_;
};

/** Logs with the arguments as a list; also formats that the compiler knows from this system's library alone. */
void LogAsList(int level, const char* format, ...) {
    va_list args;
    va_start(args, format);
    Daemon::LogV(level, format, args);
    va_end(args);
}

TEST(Log, StartsWithThresholdFourAndNoFile) {
    EXPECT_EQ(Daemon::_logLevel, 4);
    EXPECT_EQ(Daemon::_strLogFile, "");
    EXPECT_FALSE(Daemon::IsForked());
}

TEST(Log, ShowsAMessageExactlyUpToItsThreshold) {
    for (const int threshold : {0, 3, 4, 5, 6, 7, 8, 9, 100}) {
        for (const int level : {-1, 0, 3, 4, 5, 6, 7, 8, 9, 10}) {
            const CapturedLog log(threshold);
            Daemon::Log(level, "text");
            EXPECT_EQ(Daemon::IsLogEnable(level), threshold >= level) << level << " at " << threshold;
            EXPECT_EQ(log.Lines().size(), threshold >= level ? 1U : 0U) << level << " at " << threshold;
            EXPECT_EQ(log.Text().empty(), threshold < level) << level << " at " << threshold;
        }
    }
}

TEST(Log, LineIsTheTimeFromMonthToYearThenABlankTheMessageAndALineFeed) {
    const CapturedLog log(3);
    std::array<char, 32> before = {};
    std::array<char, 32> after = {};
    const auto start = std::time(nullptr);
    Daemon::Log(3, "%s:%d %s", "log_test.cpp", 12, "text");
    const auto end = std::time(nullptr);
    ASSERT_LE(end - start, 1);
    const auto line = [](std::string clock) { return clock.substr(4, clock.size() - 5) + " log_test.cpp:12 text\n"; };
    EXPECT_THAT(log.Text(), testing::AnyOf(line(ctime_r(&start, before.data())), line(ctime_r(&end, after.data()))));
}

TEST(Log, LineWithoutARenderedTimeHasNoTimeStamp) {
    PlatformFaults faults;
    faults.clockTextFails = true;
    const CapturedLog log(3);
    errno = EPERM;
    LogAsList(3, "text of %m");
    EXPECT_EQ(log.Text(), "text of Operation not permitted\n");
    EXPECT_EQ(errno, EPERM);
}

TEST(Log, LineIsThreeWrites) {
    std::array<int, 2> ends = {};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()), 0);
    {
        const CapturedLog log(3);
        dup2(ends[0], STDERR_FILENO);
        Daemon::Log(3, "%s:%d %s", "a.cpp", 1, "text");
    }
    std::vector<std::string> writes;
    std::array<char, 256> packet = {};
    ssize_t count = 0;
    while ((count = recv(ends[1], packet.data(), packet.size(), MSG_DONTWAIT)) > 0) {
        writes.emplace_back(packet.data(), static_cast<std::size_t>(count));
    }
    close(ends[0]);
    close(ends[1]);
    EXPECT_THAT(writes, ElementsAre(testing::MatchesRegex("[A-Z][a-z][a-z] [ 0-9][0-9] [0-9:]+ [0-9]+ "),
                                    "a.cpp:1 text", "\n"));
}

TEST(Log, KeepsErrnoOfItsCallerWhetherItWritesOrNot) {
    const CapturedLog log(4);
    for (const int level : {3, 5}) {
        errno = EXDEV;
        Daemon::Log(level, "text");
        EXPECT_EQ(errno, EXDEV) << level;
    }
}

TEST(Log, KeepsErrnoAndNeverFailsWhileItsDescriptorIsClosed) {
    const CapturedLog log(4);
    close(STDERR_FILENO);
    errno = EXDEV;
    Daemon::Log(3, "lost");
    const int after = errno;
    dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), STDERR_FILENO);
    EXPECT_EQ(after, EXDEV);
    EXPECT_EQ(log.Text(), "");
}

TEST(Log, ExpandsPercentMToTheTextOfTheCallersErrno) {
    const CapturedLog log(3);
    errno = ENOSPC;
    LogAsList(3, "written: %m");
    EXPECT_THAT(log.Lines(), ElementsAre("written: No space left on device"));
}

TEST(Log, WritesAMessageOfAnyLengthInFull) {
    const CapturedLog log(3);
    const std::string text(100'000, 'x');
    Daemon::Log(3, "%s", text.c_str());
    EXPECT_THAT(log.Lines(), ElementsAre(text));
}

TEST(Log, TakesItsArgumentsAsAListToo) {
    EXPECT_THAT(MessagesAt(6, [&] { LogAsList(6, "%d and %s", 1, "two"); }), ElementsAre("1 and two"));
    EXPECT_THAT(MessagesAt(5, [&] { LogAsList(6, "%d and %s", 1, "two"); }), IsEmpty());
}

TEST(LogCallSite, NamesItsSourceAndItsLineOrAFixedNumber) {
    const CapturedLog log(9);
    const int line = __LINE__ + 1;
    RELAY_LOG(LOG_ERR, "plain");
    RELAY_LOG_AT(47, 9, "numbered %d", 5);
    EXPECT_THAT(log.Lines(),
                ElementsAre("log_test.cpp:" + std::to_string(line) + " plain", "log_test.cpp:47 numbered 5"));
}

TEST(LogCallSite, EvaluatesItsArgumentsOnlyWhileItsLevelIsOn) {
    int evaluated = 0;
    const CapturedLog log(6);
    RELAY_LOG(LOG_DEBUG, "%d", ++evaluated);
    EXPECT_EQ(evaluated, 0);
    RELAY_LOG(LOG_INFO, "%d", ++evaluated);
    EXPECT_EQ(evaluated, 1);
    EXPECT_EQ(log.Lines().size(), 1U);
}

TEST(LogVerbosityOfLibdaemon, FollowsTheThresholdWithoutAMessageOfItsOwn) {
    const DaemonVoice voice;
    for (int level = 0; level <= 9; ++level) {
        const CapturedLog log;
        Daemon::SetLogFile("", level);
        EXPECT_EQ(log.Text(), "") << "threshold " << level;
        for (int priority = 1; priority <= LOG_DEBUG; ++priority) {
            daemon_log(priority, "priority %d", priority);
        }
        EXPECT_EQ(log.Lines().size(), static_cast<std::size_t>(std::min(level, LOG_DEBUG))) << "threshold " << level;
    }
}

TEST(LogVerbosityOfLibdaemon, StaysWithANegativeLevel) {
    const DaemonVoice voice;
    const CapturedLog log;
    Daemon::SetLogFile("", 3);
    Daemon::SetLogFile("", -1);
    daemon_log(LOG_INFO, "hidden");
    daemon_log(LOG_ERR, "shown");
    EXPECT_THAT(log.Lines(), ElementsAre("shown"));
}

}  // namespace

}  // namespace ARDV::Relay
