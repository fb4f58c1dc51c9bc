// SPDX-License-Identifier: Apache-2.0
#include "memory_faults.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

constexpr int kNever = -1;
constexpr int kStruck = -2;

thread_local int gLeft = kNever;

bool IsTheOne() {
    if (gLeft > 0) {
        --gLeft;
        return false;
    }
    if (gLeft == 0) {
        gLeft = kStruck;
        return true;
    }
    return false;
}

void* Allocate(std::size_t size) {
    void* memory = IsTheOne() ? nullptr : std::malloc(size == 0 ? 1 : size);
    if (!memory) {
        throw std::bad_alloc();
    }
    return memory;
}

void* AllocateOrNull(std::size_t size) noexcept {
    return IsTheOne() ? nullptr : std::malloc(size == 0 ? 1 : size);
}

}  // namespace

// All of them: a sanitizer takes a pair of which it replaced one half for a mismatch.
void* operator new(std::size_t size) {
    return Allocate(size);
}
void* operator new[](std::size_t size) {
    return Allocate(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return AllocateOrNull(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return AllocateOrNull(size);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace ardv::test {

MemoryFault::MemoryFault(int after) {
    gLeft = after;
}

MemoryFault::~MemoryFault() {
    gLeft = kNever;
}

bool MemoryFault::HasStruck() const {
    return gLeft == kStruck;
}

}  // namespace ardv::test
