// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utility>

namespace ardv::daemon {

/** Owns a file descriptor; a negative one stands for none. */
class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    Descriptor& operator=(Descriptor&&) = delete;
    ~Descriptor();

    bool IsOpen() const { return fd_ >= 0; }
    int Get() const { return fd_; }

private:
    int fd_;
};

/**
 * Opens /dev/null for those of the first three descriptors that are closed. The next file or socket would have their numbers, and the
 * log be written into it.
 */
void FillStandardDescriptors();

/**
 * Makes every descriptor of this process but the first three close-on-exec, for the sake of those that libraries make
 * without it: what the daemon starts inherits nothing. Takes one system call with Linux 5.11 or newer; with an older one
 * it reaches descriptors below 256. Keeps errno.
 */
void KeepDescriptorsFromChildren();

}  // namespace ardv::daemon
