// SPDX-License-Identifier: Apache-2.0
#include "event_loop.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <memory>
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/captured_log.h"
#include "support/scratch_folder.h"
#include "unit/ardvrelayd/daemon_loop.h"

using namespace ardv::test;
using namespace ardv::daemon;
using namespace std::chrono_literals;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using testing::ElementsAre;

namespace {

/** Both ends of a connection. */
struct Pair {
    Pair() { EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()), 0); }
    ~Pair() {
        close(ends[0]);
        close(ends[1]);
    }
    Pair(const Pair&) = delete;
    Pair& operator=(const Pair&) = delete;

    void Write() const { EXPECT_EQ(write(ends[1], "x", 1), 1); }
    void Read() const {
        char byte = 0;
        EXPECT_EQ(read(ends[0], &byte, 1), 1);
    }

    std::array<int, 2> ends = {-1, -1};
};

void HoldUp(milliseconds time) {
    for (const auto end = steady_clock::now() + time; steady_clock::now() < end;) {
    }
}

}  // namespace

TEST(DaemonTimer, CallsBackOnce) {
    EventLoop loop;
    int calls = 0;
    Timer timer(loop, "t", [&] { ++calls; });
    timer.Start(1ms);
    EXPECT_TRUE(timer.IsRunning());
    RunFor(loop, 50ms);
    EXPECT_EQ(calls, 1);
    EXPECT_FALSE(timer.IsRunning());
    EXPECT_EQ(timer.Remaining(), std::nullopt);
}

TEST(DaemonTimer, IsNeverEarlyAndHardlyLate) {
    EventLoop loop;
    constexpr unsigned kTimers = 40;
    for (unsigned delay = 0; delay < kTimers; ++delay) {
        Timer timer(loop, "t", [&] { loop.Stop(); });
        const auto start = steady_clock::now();
        timer.Start(milliseconds(delay));
        loop.Run();
        const auto taken = steady_clock::now() - start;
        EXPECT_GE(taken, milliseconds(delay));
        EXPECT_LT(taken, milliseconds(delay) + 100ms);
    }
    EXPECT_EQ(loop.Turns(), kTimers) << "nor does the loop wake up early";
}

TEST(DaemonTimer, CountsFromItsStartAlsoInALongCallback) {
    EventLoop loop;
    steady_clock::time_point start;
    Timer second(loop, "second", [&] { loop.Stop(); });
    Timer first(loop, "first", [&] {
        HoldUp(60ms);
        start = steady_clock::now();
        second.Start(50ms);
    });
    first.Start(0ms);
    loop.Run();
    EXPECT_GE(steady_clock::now() - start, 50ms);
    EXPECT_EQ(loop.Turns(), 2U);
}

TEST(DaemonTimer, TakesANegativeDelayForNone) {
    EventLoop loop;
    Timer timer(loop, "t", [&] { loop.Stop(); });
    timer.Start(-1h);
    EXPECT_TRUE(RunUntilStopped(loop));
}

TEST(DaemonTimer, TakesTheLongestDelay) {
    EventLoop loop;
    int calls = 0;
    Timer timer(loop, "t", [&] { ++calls; });
    timer.Start(milliseconds::max());
    RunFor(loop, 20ms);
    EXPECT_EQ(calls, 0);
    EXPECT_GT(timer.Remaining(), 24h * 365);
}

TEST(DaemonTimer, IsMovedByANewStart) {
    EventLoop loop;
    int calls = 0;
    Timer timer(loop, "t", [&] { ++calls; });
    timer.Start(1ms);
    timer.Start(1h);
    RunFor(loop, 30ms);
    EXPECT_EQ(calls, 0);
    timer.Start(0ms);
    RunFor(loop, 30ms);
    EXPECT_EQ(calls, 1);
}

TEST(DaemonTimer, DoesNotCallOnceItIsStoppedOrGone) {
    EventLoop loop;
    int calls = 0;
    Timer stopped(loop, "stopped", [&] { ++calls; });
    auto gone = std::make_unique<Timer>(loop, "gone", [&] { ++calls; });
    stopped.Start(0ms);
    gone->Start(0ms);
    stopped.Stop();
    stopped.Stop();
    gone.reset();
    RunFor(loop, 30ms);
    EXPECT_EQ(calls, 0);
    EXPECT_FALSE(stopped.IsRunning());
}

TEST(DaemonTimer, MayBeStartedAndDestroyedInItsOwnCallback) {
    EventLoop loop;
    int calls = 0;
    std::unique_ptr<Timer> timer;
    const auto onTime = [&calls, &timer, &loop, kept = std::make_shared<int>(3)] {
        EXPECT_FALSE(timer->IsRunning());
        if (++calls < *kept) {
            timer->Start(0ms);
            return;
        }
        timer.reset();
        EXPECT_EQ(*kept, 3) << "what the callback holds outlives the timer";
        loop.Stop();
    };
    timer = std::make_unique<Timer>(loop, "t", onTime);
    timer->Start(0ms);
    EXPECT_TRUE(RunUntilStopped(loop));
    EXPECT_EQ(calls, 3);
}

TEST(DaemonTimer, TellsHowMuchTimeIsLeftAndHowMuchItIsOverdue) {
    EventLoop loop;
    Timer timer(loop, "t", [] {});
    EXPECT_EQ(timer.Remaining(), std::nullopt);
    timer.Start(10s);
    EXPECT_LE(timer.Remaining(), 10s);
    EXPECT_GT(timer.Remaining(), 8s);
    timer.Start(5ms);
    HoldUp(30ms);
    EXPECT_LE(timer.Remaining(), -25ms);
    EXPECT_TRUE(timer.IsRunning());
}

TEST(DaemonLoop, TellsOfItsTimersInTheOrderInWhichTheyWereMade) {
    EventLoop loop;
    Timer first(loop, "first", [] {});
    auto second = std::make_unique<Timer>(loop, "second", [] {});
    Timer third(loop, "third", [] {});
    third.Start(1h);
    second.reset();
    const auto timers = loop.Timers();
    ASSERT_EQ(timers.size(), 2U);
    EXPECT_EQ(timers[0].name, "first");
    EXPECT_EQ(timers[0].remaining, std::nullopt);
    EXPECT_EQ(timers[1].name, "third");
    EXPECT_GT(timers[1].remaining, 59min);
}

TEST(DaemonLoop, GoesOnAfterAnExceptionAndLogsIt) {
    EventLoop loop;
    const Pair pair;
    Timer failing(loop, "failing", [] { throw std::runtime_error("out of luck"); });
    Timer odd(loop, "odd", [] { throw 5; });
    std::unique_ptr<Watch> watch;
    watch = std::make_unique<Watch>(loop, pair.ends[0], Watch::kReadable, [&](short) {
        watch.reset();
        throw std::runtime_error("worse");
    });
    Timer last(loop, "last", [&] { loop.Stop(); });
    const CapturedLog log(3);
    pair.Write();
    failing.Start(0ms);
    odd.Start(1ms);
    last.Start(30ms);
    EXPECT_TRUE(RunUntilStopped(loop));
    EXPECT_THAT(log.Messages(),
                testing::UnorderedElementsAre("guarded_call.cpp failing failed: out of luck",
                                              "guarded_call.cpp odd failed: not a standard exception",
                                              "guarded_call.cpp handler of a descriptor failed: worse"));
}

TEST(DaemonLoop, SleepsWhileThereIsNothingToDo) {
    EventLoop loop;
    const Pair pair;
    const Watch watch(loop, pair.ends[0], Watch::kReadable, [](short) {});
    Timer later(loop, "later", [] {});
    later.Start(1h);
    RunFor(loop, 300ms);
    EXPECT_LE(loop.Turns(), 1U) << "the end of the test's time is the only thing that has happened";
}

TEST(DaemonLoop, SleepsAlsoWithNothingToWaitFor) {
    EventLoop loop;
    Timer timer(loop, "t", [&] { loop.Stop(); });
    timer.Start(100ms);
    const auto start = steady_clock::now();
    loop.Run();
    EXPECT_GE(steady_clock::now() - start, 100ms);
    EXPECT_EQ(loop.Turns(), 1U);
}

TEST(DaemonLoop, MayBeStoppedBeforeItRuns) {
    EventLoop loop;
    int calls = 0;
    Timer timer(loop, "t", [&] { ++calls; });
    timer.Start(0ms);
    loop.Stop();
    loop.Run();
    EXPECT_EQ(calls, 0);
    RunFor(loop, 20ms);
    EXPECT_EQ(calls, 1) << "it runs again afterwards";
}

TEST(DaemonLoop, StopsAfterTheCallbackThatSaysSo) {
    EventLoop loop;
    int calls = 0;
    const auto stop = [&] {
        ++calls;
        loop.Stop();
    };
    Timer first(loop, "first", stop);
    Timer second(loop, "second", stop);
    first.Start(0ms);
    second.Start(0ms);
    loop.Run();
    EXPECT_EQ(calls, 1);
}

TEST(DaemonLoop, TakesNoAdviceFromTheEnvironment) {
    setenv("EVENT_NOEPOLL", "1", 1);
    EventLoop loop;  // would throw, as every other way of waiting is refused
    unsetenv("EVENT_NOEPOLL");
    EXPECT_EQ(loop.Turns(), 0U);
}

TEST(DaemonLoop, LeavesNoDescriptorBehind) {
    const auto before = OpenDescriptors();
    {
        EventLoop loop;
        RunFor(loop, 1ms);
        EXPECT_GT(OpenDescriptors(), before);
    }
    EXPECT_EQ(OpenDescriptors(), before);
}

TEST(DaemonWatch, CallsBackWhileThereIsSomethingToRead) {
    EventLoop loop;
    const Pair pair;
    int calls = 0;
    const Watch watch(loop, pair.ends[0], Watch::kReadable, [&](short events) {
        EXPECT_EQ(events, Watch::kReadable);
        if (++calls == 3) {
            pair.Read();
        }
    });
    EXPECT_EQ(loop.Watches(), 1U);
    RunFor(loop, 20ms);
    EXPECT_EQ(calls, 0);
    pair.Write();
    RunFor(loop, 50ms);
    EXPECT_EQ(calls, 3);
}

TEST(DaemonWatch, SaysWhatADescriptorIsReadyFor) {
    EventLoop loop;
    const Pair pair;
    short seen = 0;
    const Watch watch(loop, pair.ends[0], Watch::kReadable | Watch::kWritable, [&](short events) {
        seen = events;
        loop.Stop();
    });
    loop.Run();
    EXPECT_EQ(seen, Watch::kWritable);
    pair.Write();
    loop.Run();
    EXPECT_EQ(seen, Watch::kReadable | Watch::kWritable);
}

TEST(DaemonWatch, EndsWithItsObject) {
    EventLoop loop;
    const Pair pair;
    int calls = 0;
    std::unique_ptr<Watch> watch;
    watch = std::make_unique<Watch>(loop, pair.ends[0], Watch::kReadable, [&](short) {
        ++calls;
        watch.reset();
    });
    pair.Write();
    RunFor(loop, 50ms);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(loop.Watches(), 0U);
}

TEST(DaemonWatch, RefusesWhatCannotBeWaitedFor) {
    EventLoop loop;
    const ScratchFolder folder;
    const int file = open(folder.File("f").c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600);
    EXPECT_THROW(Watch(loop, file, Watch::kReadable, [](short) {}), std::runtime_error);
    close(file);
    EXPECT_THROW(Watch(loop, file, Watch::kReadable, [](short) {}), std::runtime_error);
    EXPECT_THROW(Watch(loop, -1, Watch::kReadable, [](short) {}), std::runtime_error);
    EXPECT_EQ(loop.Watches(), 0U);
}
