// SPDX-License-Identifier: Apache-2.0
#include "counted_memory.h"

#include <curl/curl.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

std::atomic<std::uint64_t> gCount;

void* Counted(void* memory) {
    gCount.fetch_add(1, std::memory_order_relaxed);
    return memory;
}

}  // namespace

void* operator new(std::size_t size) {
    if (void* memory = Counted(std::malloc(size))) {
        return memory;
    }
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}

namespace ardv::bench {

std::uint64_t AllocationCount() {
    return gCount.load(std::memory_order_relaxed);
}

void CountCurlAllocations() {
    curl_global_init_mem(
        CURL_GLOBAL_DEFAULT, [](size_t size) { return Counted(std::malloc(size)); },
        [](void* memory) { std::free(memory); },
        [](void* memory, size_t size) { return Counted(std::realloc(memory, size)); },
        [](const char* text) { return static_cast<char*>(Counted(strdup(text))); },
        [](size_t count, size_t size) { return Counted(std::calloc(count, size)); });
}

}  // namespace ardv::bench
