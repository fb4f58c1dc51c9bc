// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The daemon's loop: one thread that sleeps until a descriptor is ready or a timer is due.
 *
 * Callbacks run in the thread that runs the loop, one after the other. An exception that comes out of one is written to the
 * log at level 3, and the loop goes on. A callback may start, stop, make and destroy timers and watches, its own included.
 */
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

struct event;
struct event_base;

namespace ardv::daemon {

class Timer;

/** Releases libevent's objects. */
struct EventRelease {
    void operator()(event* object) const;
    void operator()(event_base* object) const;
};

using EventHandle = std::unique_ptr<event, EventRelease>;

/** What a report says of a timer. */
struct TimerInfo {
    std::string name;
    std::optional<std::chrono::milliseconds> remaining;  ///< as `Timer::Remaining`
};

/**
 * Waits by epoll(7). Its descriptors are close-on-exec. A process that forks to go into the background makes it afterwards:
 * parent and child would share it. Timers and watches are gone before their loop.
 */
class EventLoop {
public:
    /** @throws std::runtime_error where the kernel grants no epoll descriptor */
    EventLoop();
    ~EventLoop();
    EventLoop(const EventLoop&) = delete;
    EventLoop& operator=(const EventLoop&) = delete;

    /**
     * Runs callbacks until `Stop`. With nothing to wait for it sleeps.
     *
     * @throws std::runtime_error if the kernel can't wait any more
     */
    void Run();

    /** Has `Run` return after the callback that is running; one that has not begun returns at once. */
    void Stop();

    /** How often the loop has woken up and run something. Stands still while the daemon has nothing to do. */
    std::uint64_t Turns() const { return turns_; }

    /** The timers there are, running or not, in the order in which they were made. */
    std::vector<TimerInfo> Timers() const;

    /** How many descriptors are watched. */
    std::size_t Watches() const { return watches_; }

private:
    friend class Timer;
    friend class Watch;

    std::unique_ptr<event_base, EventRelease> base_;
    std::list<const Timer*> timers_;
    std::size_t watches_ = 0;
    std::uint64_t turns_ = 0;
    bool isStopped_ = false;
};

/**
 * Calls back once, after a while. It goes by the monotonic clock: setting the time of day doesn't move it, and it stands still
 * while the machine is suspended. It is never early, and late by one of the kernel's ticks (4 ms at 250 Hz) at most while the loop
 * is not held up.
 */
class Timer {
public:
    /** @throws std::runtime_error for want of memory in libevent */
    Timer(EventLoop& loop, std::string name, std::function<void()> callback);
    ~Timer();
    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;

    /** Calls back after `delay`, in place of what was started before. One below zero counts as zero: in the loop's next turn. */
    void Start(std::chrono::milliseconds delay);

    /** Does nothing where it isn't running. */
    void Stop();

    /** Whether a call is outstanding. False within the callback, until it is started anew. */
    bool IsRunning() const { return deadline_.has_value(); }

    /** The time until the call, rounded down; negative when it is overdue. Nothing where none is outstanding. */
    std::optional<std::chrono::milliseconds> Remaining() const;

    /** Whether a call is outstanding and not yet 30 s overdue: a loop that is so late is none. */
    bool IsToBeExpected() const;

    const std::string& Name() const { return action_->name; }

private:
    using Clock = std::chrono::steady_clock;

    struct Action {
        std::string name;
        std::function<void()> callback;
    };

    void Arm();
    void Fire();

    EventLoop& loop_;
    std::shared_ptr<const Action> action_;  ///< outlives the timer while it runs
    std::list<const Timer*>::iterator place_;
    std::optional<Clock::time_point> deadline_;
    EventHandle event_;
};

/** Calls back whenever a descriptor is ready, for as long as it lives. Level-triggered. */
class Watch {
public:
    static constexpr short kReadable = 0x02;  ///< libevent's EV_READ
    static constexpr short kWritable = 0x04;  ///< libevent's EV_WRITE

    /**
     * @param fd stays its owner's, who closes it after this is gone
     * @param events kReadable, kWritable or both
     * @param callback gets those of `events` that it is ready for; a broken connection is ready for both
     * @throws std::runtime_error for a descriptor that can't be waited for (a closed one, a file of a disk)
     */
    Watch(EventLoop& loop, int fd, short events, std::function<void(short)> callback);
    ~Watch();
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

private:
    EventLoop& loop_;
    std::shared_ptr<const std::function<void(short)>> callback_;
    EventHandle event_;
};

}  // namespace ardv::daemon
