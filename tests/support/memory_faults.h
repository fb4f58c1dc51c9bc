// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Want of memory, which no test can bring about for real without harming others. A program that links this has its own
 * operator new.
 */
#pragma once

namespace ardv::test {

/** While one lives, this thread's operator new fails once. One at a time. */
class MemoryFault {
public:
    /** @param after how many allocations still succeed before the one that fails */
    explicit MemoryFault(int after);
    ~MemoryFault();
    MemoryFault(const MemoryFault&) = delete;
    MemoryFault& operator=(const MemoryFault&) = delete;

    /** Whether an allocation failed. */
    bool HasStruck() const;
};

/** Does an action with the fault after so many allocations; whether it came to that. */
template <typename Action>
bool IsShortOfMemory(int after, Action&& action) {
    const MemoryFault fault(after);
    action();
    return fault.HasStruck();
}

}  // namespace ardv::test
