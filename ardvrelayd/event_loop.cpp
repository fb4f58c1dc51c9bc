// SPDX-License-Identifier: Apache-2.0
#include "event_loop.h"

#include <event2/event.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "guarded_call.h"

namespace ardv::daemon {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;

static_assert(Watch::kReadable == EV_READ && Watch::kWritable == EV_WRITE);

namespace {

struct ConfigRelease {
    void operator()(event_config* config) const { event_config_free(config); }
};

// The clock is read anew for each timer: a callback may have taken long. The environment has no say in how the daemon waits.
event_base* MakeBase() {
    constexpr int kFlags = EVENT_BASE_FLAG_NOLOCK | EVENT_BASE_FLAG_NO_CACHE_TIME | EVENT_BASE_FLAG_IGNORE_ENV;
    const std::unique_ptr<event_config, ConfigRelease> config(event_config_new());
    if (!config || event_config_set_flag(config.get(), kFlags) != 0 ||
        event_config_require_features(config.get(), EV_FEATURE_O1) != 0) {
        return nullptr;
    }
    return event_base_new_with_config(config.get());
}

timeval ToTimeval(nanoseconds duration) {
    const auto whole = std::chrono::floor<seconds>(duration);
    return {whole.count(), std::chrono::floor<microseconds>(duration - whole).count()};
}

// Far enough for every timer, and no sum overflows.
constexpr milliseconds kLongestDelay = std::chrono::hours(24 * 365 * 10);

constexpr seconds kOverdue{30};

}  // namespace

void EventRelease::operator()(event* object) const {
    event_free(object);
}

void EventRelease::operator()(event_base* object) const {
    event_base_free(object);
}

EventLoop::EventLoop() : base_(MakeBase()) {
    if (!base_) {
        throw std::runtime_error(std::string("no event loop: ") + std::strerror(errno));
    }
}

EventLoop::~EventLoop() = default;

void EventLoop::Run() {
    while (!isStopped_) {
        if (event_base_loop(base_.get(), EVLOOP_ONCE | EVLOOP_NO_EXIT_ON_EMPTY) < 0) {
            throw std::runtime_error(std::string("the event loop failed: ") + std::strerror(errno));
        }
        ++turns_;
    }
    isStopped_ = false;
}

void EventLoop::Stop() {
    isStopped_ = true;
    event_base_loopbreak(base_.get());
}

std::vector<TimerInfo> EventLoop::Timers() const {
    std::vector<TimerInfo> timers;
    std::transform(timers_.begin(), timers_.end(), std::back_inserter(timers), [](const Timer* timer) {
        return TimerInfo{timer->Name(), timer->Remaining()};
    });
    return timers;
}

Timer::Timer(EventLoop& loop, std::string name, std::function<void()> callback)
    : loop_(loop),
      action_(std::make_shared<const Action>(Action{std::move(name), std::move(callback)})),
      event_(evtimer_new(
          loop.base_.get(), [](evutil_socket_t, short, void* self) { static_cast<Timer*>(self)->Fire(); }, this)) {
    if (!event_) {
        throw std::runtime_error("no timer");
    }
    place_ = loop_.timers_.insert(loop_.timers_.end(), this);
}

Timer::~Timer() {
    loop_.timers_.erase(place_);
}

void Timer::Start(milliseconds delay) {
    deadline_ = Clock::now() + std::clamp(delay, milliseconds::zero(), kLongestDelay);
    Arm();
}

void Timer::Arm() {
    const nanoseconds left = *deadline_ - Clock::now();
    const timeval time = ToTimeval(std::max(left, nanoseconds::zero()));
    evtimer_add(event_.get(), &time);
}

void Timer::Stop() {
    evtimer_del(event_.get());
    deadline_.reset();
}

std::optional<milliseconds> Timer::Remaining() const {
    if (!deadline_) {
        return std::nullopt;
    }
    return std::chrono::floor<milliseconds>(*deadline_ - Clock::now());
}

// libevent goes by a clock that moves on once in a tick of the kernel: it may be early by one.
bool Timer::IsToBeExpected() const {
    const auto remaining = Remaining();
    return remaining && *remaining > -kOverdue;
}

void Timer::Fire() {
    if (Clock::now() < *deadline_) {
        Arm();
        return;
    }
    deadline_.reset();
    const auto action = action_;
    GuardedCall(action->name, action->callback);
}

Watch::Watch(EventLoop& loop, int fd, short events, std::function<void(short)> callback)
    : loop_(loop), callback_(std::make_shared<const std::function<void(short)>>(std::move(callback))) {
    const auto call = [](evutil_socket_t, short ready, void* self) {
        const auto kept = static_cast<Watch*>(self)->callback_;  // the watch may be gone before the call is over
        GuardedCall("handler of a descriptor", [&] { (*kept)(ready); });
    };
    event_.reset(event_new(loop.base_.get(), fd, static_cast<short>(events | EV_PERSIST), call, this));
    if (!event_ || fd < 0 || event_add(event_.get(), nullptr) != 0) {
        throw std::runtime_error("cannot wait for descriptor " + std::to_string(fd) + ": " + std::strerror(errno));
    }
    ++loop_.watches_;
}

Watch::~Watch() {
    --loop_.watches_;
}

}  // namespace ardv::daemon
