// SPDX-License-Identifier: Apache-2.0
#include "event_loop.h"

#include <utility>
#include <vector>

#include <event2/event.h>

namespace ardv::test {

namespace {

timeval ToTimeval(std::chrono::milliseconds duration) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(duration);
    return {seconds.count(), std::chrono::microseconds(duration - seconds).count()};
}

short EventsOf(int what) {
    const int events = ((what & CURL_POLL_IN) ? EV_READ : 0) | ((what & CURL_POLL_OUT) ? EV_WRITE : 0) | EV_PERSIST;
    return static_cast<short>(events);
}

int ActionOf(short events) {
    return ((events & EV_READ) ? CURL_CSELECT_IN : 0) | ((events & EV_WRITE) ? CURL_CSELECT_OUT : 0);
}

}  // namespace

EventLoop::EventLoop() : base_(event_base_new()), timer_(nullptr), multi_(curl_multi_init()) {
    timer_ = evtimer_new(
        base_, [](evutil_socket_t, short, void* self) { static_cast<EventLoop*>(self)->Act(CURL_SOCKET_TIMEOUT, 0); },
        this);
    curl_multi_setopt(multi_, CURLMOPT_SOCKETFUNCTION, &OnSocket);
    curl_multi_setopt(multi_, CURLMOPT_SOCKETDATA, this);
    curl_multi_setopt(multi_, CURLMOPT_TIMERFUNCTION, &OnTimer);
    curl_multi_setopt(multi_, CURLMOPT_TIMERDATA, this);
}

EventLoop::~EventLoop() {
    curl_multi_cleanup(multi_);
    for (const auto& [socket, watch] : watches_) {
        event_free(watch);
    }
    event_free(timer_);
    event_base_free(base_);
}

bool EventLoop::RunUntil(const std::function<bool()>& isDone, std::chrono::seconds limit) {
    bool isLate = false;
    event* deadline = evtimer_new(
        base_, [](evutil_socket_t, short, void* late) { *static_cast<bool*>(late) = true; }, &isLate);
    const timeval time = ToTimeval(limit);
    evtimer_add(deadline, &time);
    while (!isDone() && !isLate) {
        event_base_loop(base_, EVLOOP_ONCE);
    }
    event_free(deadline);
    return isDone();
}

int EventLoop::OnSocket(CURL* /*handle*/, curl_socket_t socket, int what, void* self, void* /*unused*/) {
    auto& loop = *static_cast<EventLoop*>(self);
    loop.Unwatch(socket);
    if (what != CURL_POLL_REMOVE) {
        loop.Watch(socket, what);
    }
    return 0;
}

int EventLoop::OnTimer(CURLM* /*multi*/, long milliseconds, void* self) {
    auto& loop = *static_cast<EventLoop*>(self);
    if (milliseconds < 0) {
        evtimer_del(loop.timer_);
        return 0;
    }
    const timeval time = ToTimeval(std::chrono::milliseconds(milliseconds));
    evtimer_add(loop.timer_, &time);
    return 0;
}

void EventLoop::Watch(curl_socket_t socket, int what) {
    event* watch = event_new(
        base_, socket, EventsOf(what),
        [](evutil_socket_t fd, short events, void* self) { static_cast<EventLoop*>(self)->Act(fd, ActionOf(events)); },
        this);
    event_add(watch, nullptr);
    watches_[socket] = watch;
}

void EventLoop::Unwatch(curl_socket_t socket) {
    if (const auto watch = watches_.find(socket); watch != watches_.end()) {
        event_free(watch->second);
        watches_.erase(watch);
    }
}

void EventLoop::Act(curl_socket_t socket, int events) {
    curl_multi_socket_action(multi_, socket, events, &running_);
    ReadFinished();
}

// A message is gone once its handle is removed: all of them are read first.
void EventLoop::ReadFinished() {
    std::vector<std::pair<CURL*, CURLcode>> finished;
    int left = 0;
    while (const CURLMsg* message = curl_multi_info_read(multi_, &left)) {
        if (message->msg == CURLMSG_DONE) {
            finished.emplace_back(message->easy_handle, message->data.result);
        }
    }
    for (const auto& [handle, code] : finished) {
        onFinished(handle, code);
    }
}

}  // namespace ardv::test
