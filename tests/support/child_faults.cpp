// SPDX-License-Identifier: Apache-2.0
#include "child_faults.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string>

#include "real_function.h"

namespace ardv::test {

namespace {

ChildFaults* active = nullptr;
bool isInterrupted = false;

int FailWith(int error) {
    errno = error;
    return -1;
}

bool IsOfTmp(int fd) {
    std::array<char, 256> path = {};
    const auto link = "/proc/self/fd/" + std::to_string(fd);
    return readlink(link.c_str(), path.data(), path.size() - 1) > 0 && std::string(path.data()).starts_with("/tmp/");
}

bool IsDiskFull() {
    return active && active->writesUntilFull && (*active->writesUntilFull)-- <= 0;
}

}  // namespace

ChildFaults::ChildFaults() {
    active = this;
    isInterrupted = false;
}

ChildFaults::~ChildFaults() {
    active = nullptr;
}

}  // namespace ardv::test

using namespace ardv::test;

extern "C" {

pid_t fork() noexcept {
    static const auto real = RealFunction<pid_t (*)()>("fork");
    if (active && active->forkFails) {
        return FailWith(EAGAIN);
    }
    const pid_t pid = real();
    if (active && active->onForked) {
        active->onForked(pid);
    }
    return pid;
}

int fchmod(int fd, mode_t mode) noexcept {
    static const auto real = RealFunction<int (*)(int, mode_t)>("fchmod");
    if (active && active->onChmod) {
        active->onChmod(fd);
    }
    return active && active->chmodFails ? FailWith(EPERM) : real(fd, mode);
}

int close(int fd) {
    static const auto real = RealFunction<int (*)(int)>("close");
    const bool fails = active && active->closeFails && IsOfTmp(fd);
    const int result = real(fd);
    return fails ? FailWith(EIO) : result;
}

int close_range(unsigned first, unsigned last, int flags) noexcept {
    static const auto real = RealFunction<int (*)(unsigned, unsigned, int)>("close_range");
    return active && active->closeRangeIsUnknown ? FailWith(ENOSYS) : real(first, last, flags);
}

ssize_t write(int fd, const void* data, size_t size) {
    static const auto real = RealFunction<ssize_t (*)(int, const void*, size_t)>("write");
    if (IsDiskFull()) {
        return FailWith(ENOSPC);
    }
    if (!active || !active->writeAtMost) {
        return real(fd, data, size);
    }
    isInterrupted = !isInterrupted;
    return isInterrupted ? FailWith(EINTR) : real(fd, data, std::min(size, *active->writeAtMost));
}
}
