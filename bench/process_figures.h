// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <cstdint>

namespace ardv::bench {

/** What the kernel keeps of a process, as in proc(5). */
struct ProcessFigures {
    std::int64_t switches = 0;    ///< voluntary ones, of all its threads: how often it went to sleep
    std::int64_t timeSlices = 0;  ///< how often one of its threads was put on a processor
    std::int64_t cpu = 0;         ///< in nanoseconds
    std::int64_t writes = 0;      ///< system calls that write, to whatever
    std::int64_t written = 0;     ///< bytes sent to a block device
    std::int64_t rss = 0;         ///< resident memory, kB
    std::int64_t anonymous = 0;   ///< of it, what is no file's
    std::int64_t pss = 0;         ///< with each page divided by those who share it, kB
    std::int64_t descriptors = 0;
    std::int64_t threads = 0;
};

/** @throws std::runtime_error for a process that isn't there */
ProcessFigures ReadFigures(pid_t pid);

}  // namespace ardv::bench
