// SPDX-License-Identifier: Apache-2.0
#include "http/thread_pool.h"

#include <cstdio>
#include <system_error>
#include <utility>

namespace ARDV::Sandbox {

void ThreadPool::enqueue(std::function<void()> task) {
    const std::lock_guard lock(mutex_);
    tasks_.push_back(std::move(task));
    if (tasks_.size() > idle_ && threads_.size() < kMaxThreads) {
        Grow();
    }
    wake_.notify_one();
}

void ThreadPool::Grow() {
    try {
        threads_.emplace_back([this] { Work(); });
    } catch (const std::system_error& error) {
        std::fprintf(stderr, "no further thread: %s\n", error.what());
    }
}

void ThreadPool::shutdown() {
    {
        const std::lock_guard lock(mutex_);
        isEnding_ = true;
    }
    wake_.notify_all();
    for (std::thread& thread : threads_) {
        thread.join();
    }
}

void ThreadPool::Work() {
    std::unique_lock lock(mutex_);
    for (;;) {
        ++idle_;
        wake_.wait(lock, [this] { return !tasks_.empty() || isEnding_; });
        --idle_;
        if (tasks_.empty()) {
            return;
        }
        const auto task = std::move(tasks_.front());
        tasks_.pop_front();
        lock.unlock();
        task();
        lock.lock();
    }
}

}  // namespace ARDV::Sandbox
