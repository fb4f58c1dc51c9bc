// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <thread>

#include "descriptor.h"

namespace ardv::ctl {

/**
 * As long as it lives, what is written to standard error (descriptor 2) passes through `Printable` line by line: the
 * library's log quotes servers, and a server's text must not reach a terminal as it is. What was written is out when the
 * object is gone.
 */
class ReadableLog {
public:
    /** @throws std::system_error, with standard error as it was, for want of descriptors or threads */
    ReadableLog();
    ~ReadableLog();
    ReadableLog(const ReadableLog&) = delete;
    ReadableLog& operator=(const ReadableLog&) = delete;

private:
    Descriptor terminal_;
    std::jthread reader_;  // last, as it uses what stands above
};

}  // namespace ardv::ctl
