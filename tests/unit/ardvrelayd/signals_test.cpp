// SPDX-License-Identifier: Apache-2.0
#include "signals.h"

#include <libdaemon/dsignal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <memory>
#include <stdexcept>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <relay/daemon/daemon.h>

#include "support/captured_log.h"
#include "unit/ardvrelayd/daemon_loop.h"

using namespace ardv::test;
using namespace ardv::daemon;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

namespace {

class Signals : public testing::Test {
protected:
    Signals() {
        ARDV::Relay::Daemon::InitSignalHandler();
        source_ = std::make_unique<SignalSource>(loop_, [this](Command command) { seen_.push_back(command); });
    }

    ~Signals() override { daemon_signal_done(); }

    /** What a signal, sent by another process as a tool sends it, makes of itself. */
    std::vector<Command> After(int signal) {
        seen_.clear();
        if (fork() == 0) {
            kill(getppid(), signal);
            _exit(0);
        }
        int status = 0;
        wait(&status);
        RunFor(loop_, 20ms);
        // The sender's own end comes as a signal, too.
        const auto end = std::find(seen_.begin(), seen_.end(), Command::kChildEnded);
        EXPECT_NE(end, seen_.end());
        seen_.erase(end);
        return seen_;
    }

    EventLoop loop_;
    std::vector<Command> seen_;
    std::unique_ptr<SignalSource> source_;
};

}  // namespace

TEST_F(Signals, MeanACommandEach) {
    EXPECT_THAT(After(SIGTERM), ElementsAre(Command::kStop));
    EXPECT_THAT(After(SIGINT), ElementsAre(Command::kStop));
    EXPECT_THAT(After(SIGQUIT), ElementsAre(Command::kStop));
    EXPECT_THAT(After(SIGHUP), ElementsAre(Command::kReload));
    EXPECT_THAT(After(SIGUSR1), ElementsAre(Command::kReport));
    EXPECT_THAT(After(SIGRTMIN + 1), ElementsAre(Command::kUpdateAlias));
    EXPECT_THAT(After(SIGUSR2), ElementsAre(Command::kTunnelReady));
    EXPECT_THAT(After(SIGALRM), ElementsAre(Command::kTunnelAlarm));
}

TEST_F(Signals, AreIgnoredWhereTheyMeanNothing) {
    EXPECT_THAT(After(SIGPIPE), IsEmpty());
    EXPECT_THAT(After(SIGRTMIN + 2), IsEmpty());
    EXPECT_THAT(After(SIGRTMIN + 3), IsEmpty());
    EXPECT_EQ(CommandOf(SIGWINCH), Command::kIgnored);
    EXPECT_EQ(CommandOf(-1), Command::kIgnored);
}

TEST_F(Signals, ThatAreRealTimeOnesAreEachHandedOnAndOthersOncePerTurnOfTheKernel) {
    sigset_t held = {};
    sigemptyset(&held);
    sigaddset(&held, SIGUSR1);
    sigaddset(&held, SIGRTMIN + 1);
    sigprocmask(SIG_BLOCK, &held, nullptr);
    for (int i = 0; i < 3; ++i) {
        kill(getpid(), SIGUSR1);
        kill(getpid(), SIGRTMIN + 1);
    }
    sigprocmask(SIG_UNBLOCK, &held, nullptr);
    RunFor(loop_, 20ms);
    EXPECT_THAT(seen_, UnorderedElementsAre(Command::kReport, Command::kUpdateAlias, Command::kUpdateAlias,
                                            Command::kUpdateAlias));
}

TEST_F(Signals, AreAllHandedOnAndLeaveTimeForOtherThings) {
    constexpr std::size_t kMany = 1000;
    for (std::size_t i = 0; i < kMany; ++i) {
        raise(SIGHUP);
    }
    std::size_t before = kMany;
    Timer other(loop_, "other", [&] { before = seen_.size(); });
    other.Start(0ms);
    RunFor(loop_, 100ms);
    EXPECT_EQ(seen_.size(), kMany);
    EXPECT_LT(before, kMany);
}

TEST_F(Signals, WakeUpNobodyElse) {
    RunFor(loop_, 100ms);
    EXPECT_EQ(loop_.Turns(), 1U);
    EXPECT_THAT(seen_, IsEmpty());
}

TEST_F(Signals, MayEndTheirSource) {
    source_ = nullptr;
    int calls = 0;
    source_ = std::make_unique<SignalSource>(loop_, [&](Command) {
        ++calls;
        source_.reset();
    });
    raise(SIGTERM);
    RunFor(loop_, 20ms);
    raise(SIGTERM);
    RunFor(loop_, 20ms);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(loop_.Watches(), 0U);
}

TEST_F(Signals, GoOnAfterAHandlerThatFails) {
    source_ = nullptr;
    int calls = 0;
    source_ = std::make_unique<SignalSource>(loop_, [&](Command) {
        ++calls;
        throw std::runtime_error("no");
    });
    const CapturedLog log(3);
    raise(SIGTERM);
    raise(SIGHUP);
    RunFor(loop_, 20ms);
    EXPECT_EQ(calls, 2);
    EXPECT_THAT(log.Messages(), ElementsAre("guarded_call.cpp handler of a signal failed: no",
                                            "guarded_call.cpp handler of a signal failed: no"));
}

TEST(SignalSource, NeedsAnInstalledHandler) {
    EventLoop loop;
    const CapturedLog log(3);
    EXPECT_THROW(SignalSource(loop, [](Command) {}), std::runtime_error);
}
