// SPDX-License-Identifier: Apache-2.0
#include "folder_faults.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "real_function.h"

namespace ardv::test {

namespace {

FolderFaults* active = nullptr;

bool IsFaulty(std::string FolderFaults::*fault, int folder, const char* name) {
    return active && active->*fault == name && faccessat(folder, name, F_OK, AT_SYMLINK_NOFOLLOW) == 0;
}

int FailOfDisk() {
    errno = EIO;
    return -1;
}

}  // namespace

FolderFaults::FolderFaults() {
    active = this;
}

FolderFaults::~FolderFaults() {
    active = nullptr;
}

}  // namespace ardv::test

using namespace ardv::test;

extern "C" __attribute__((visibility("default"))) int unlinkat(int folder, const char* name, int flags) noexcept {
    static const auto real = RealFunction<int (*)(int, const char*, int)>("unlinkat");
    return IsFaulty(&FolderFaults::undeletable, folder, name) ? FailOfDisk() : real(folder, name, flags);
}

extern "C" __attribute__((visibility("default"))) int renameat(int from, const char* name, int to,
                                                               const char* newName) noexcept {
    static const auto real = RealFunction<int (*)(int, const char*, int, const char*)>("renameat");
    return IsFaulty(&FolderFaults::immovable, from, name) ? FailOfDisk() : real(from, name, to, newName);
}
