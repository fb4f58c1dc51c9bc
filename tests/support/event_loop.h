// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <functional>
#include <map>

#include <curl/curl.h>

struct event;
struct event_base;

namespace ardv::test {

/** A transfer engine as a daemon has one: libcurl's multi handle, driven by its socket and timer callbacks. */
class EventLoop {
public:
    EventLoop();
    ~EventLoop();
    EventLoop(const EventLoop&) = delete;
    EventLoop& operator=(const EventLoop&) = delete;

    CURLM* Multi() const { return multi_; }

    /** Called for each finished transfer, outside of libcurl: it may remove the handle and release it. */
    std::function<void(CURL* handle, CURLcode code)> onFinished = [](CURL*, CURLcode) {};

    /** Runs until `isDone`, which is asked after each event; false if the time was not enough. */
    bool RunUntil(const std::function<bool()>& isDone, std::chrono::seconds limit = std::chrono::seconds(20));

    /** How many transfers are under way. */
    int Running() const { return running_; }

private:
    using Watches = std::map<curl_socket_t, event*>;

    static int OnSocket(CURL* handle, curl_socket_t socket, int what, void* self, void* unused);
    static int OnTimer(CURLM* multi, long milliseconds, void* self);
    void Watch(curl_socket_t socket, int what);
    void Unwatch(curl_socket_t socket);
    void Act(curl_socket_t socket, int events);
    void ReadFinished();

    event_base* base_;
    event* timer_;
    CURLM* multi_;
    Watches watches_;
    int running_ = 0;
};

}  // namespace ardv::test
