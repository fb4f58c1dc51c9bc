// SPDX-License-Identifier: Apache-2.0
#include "folder_faults.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

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

// Visible to the shared libraries, which change folders too. No look for the real functions: these may not throw.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the system's own are reserved
extern "C" __attribute__((visibility("default"))) int unlinkat(int folder, const char* name, int flags) noexcept {
    return IsFaulty(&FolderFaults::undeletable, folder, name)
               ? FailOfDisk()
               : static_cast<int>(syscall(SYS_unlinkat, folder, name, flags));
}

extern "C" __attribute__((visibility("default"))) int renameat(int from, const char* name, int to,
                                                               const char* newName) noexcept {
    return IsFaulty(&FolderFaults::immovable, from, name)
               ? FailOfDisk()
               : static_cast<int>(syscall(SYS_renameat2, from, name, to, newName, 0));
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
