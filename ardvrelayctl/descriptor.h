// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <utility>

namespace ardv::ctl {

/** Owns a file descriptor; a negative one stands for none. */
class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor& operator=(Descriptor&&) = delete;
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    ~Descriptor() {
        if (IsOpen()) {
            close(fd_);
        }
    }

    bool IsOpen() const { return fd_ >= 0; }
    int Get() const { return fd_; }

private:
    int fd_;
};

/** read(2), begun again where a signal interrupts it. The bytes read, 0 at the end, or -1 with errno. */
inline ssize_t ReadSome(int fd, char* data, std::size_t size) {
    ssize_t count = 0;
    do {
        count = read(fd, data, size);
    } while (count < 0 && errno == EINTR);
    return count;
}

/** write(2), begun again where a signal interrupts it. The bytes written, or -1 with errno. */
inline ssize_t WriteSome(int fd, const char* data, std::size_t size) {
    ssize_t count = 0;
    do {
        count = write(fd, data, size);
    } while (count < 0 && errno == EINTR);
    return count;
}

}  // namespace ardv::ctl
