// SPDX-License-Identifier: Apache-2.0
// Threads for the connections of one port.
#pragma once

#include <httplib.h>

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace ARDV::Sandbox {

/// A pool that grows: a silent or slow connection keeps its thread, so a fixed small pool would let a few of them stop
/// the whole service, the way out of the fault included.
class ThreadPool final : public httplib::TaskQueue {
public:
    /// The most threads; further tasks wait for one of them.
    static constexpr size_t kMaxThreads = 2048;

    ThreadPool() = default;
    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;
    ~ThreadPool() override = default;

    /// Runs `task` on an idle thread, else on a new one. Where the system refuses a new one, `task` waits for a thread.
    void enqueue(std::function<void()> task) override;

    /// Waits until every task is done and ends the threads. Call once, before destruction, and enqueue nothing after.
    void shutdown() override;

private:
    void Grow();
    void Work();

    std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<std::function<void()>> tasks_;
    std::vector<std::thread> threads_;
    size_t idle_ = 0;
    bool isEnding_ = false;
};

}  // namespace ARDV::Sandbox
