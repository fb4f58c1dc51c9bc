// SPDX-License-Identifier: Apache-2.0
#include "descriptor.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <unistd.h>

#include <cerrno>

namespace ardv::daemon {

Descriptor::~Descriptor() {
    if (IsOpen()) {
        close(fd_);
    }
}

void FillStandardDescriptors() {
    int fd = 0;
    do {
        fd = open("/dev/null", O_RDWR);
    } while (fd >= 0 && fd <= STDERR_FILENO);
    if (fd >= 0) {
        close(fd);
    }
}

void KeepDescriptorsFromChildren() {
    constexpr int kFirst = STDERR_FILENO + 1;
    constexpr int kEnd = 256;
    const int error = errno;
    if (close_range(kFirst, ~0U, CLOSE_RANGE_CLOEXEC) != 0) {
        for (int fd = kFirst; fd < kEnd; ++fd) {
            fcntl(fd, F_SETFD, FD_CLOEXEC);
        }
    }
    errno = error;
}

}  // namespace ardv::daemon
