// SPDX-License-Identifier: Apache-2.0
#include "file_opens.h"

#include <dlfcn.h>
#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <stdexcept>

namespace ardv::test {

namespace {

FileOpens* active = nullptr;

using Open = int (*)(const char*, int, ...);

Open RealOpen() {
    void* symbol = dlsym(RTLD_NEXT, "open");
    if (symbol == nullptr) {
        throw std::logic_error("no real open");
    }
    Open open = nullptr;
    std::memcpy(&open, &symbol, sizeof open);
    return open;
}

void Note(const char* path) {
    if (active == nullptr) {
        return;
    }
    active->paths.emplace_back(path);
    if (active->onOpen) {
        active->onOpen(path);
    }
}

}  // namespace

FileOpens::FileOpens() {
    active = this;
}

FileOpens::~FileOpens() {
    active = nullptr;
}

std::size_t FileOpens::CountOf(const std::string& path) const {
    return static_cast<std::size_t>(std::count(paths.begin(), paths.end(), path));
}

}  // namespace ardv::test

extern "C" __attribute__((visibility("default"))) int open(const char* path, int flags, ...) {
    static const auto real = ardv::test::RealOpen();
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    const int fd = real(path, flags, mode);
    const int error = errno;
    ardv::test::Note(path);
    errno = error;
    return fd;
}

// What the library's headers make of a call without a mode where they check such calls.
// NOLINTNEXTLINE(bugprone-reserved-identifier): the C library's name
extern "C" __attribute__((visibility("default"))) int __open_2(const char* path, int flags) {
    return open(path, flags);
}
