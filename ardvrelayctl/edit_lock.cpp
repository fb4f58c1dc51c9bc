// SPDX-License-Identifier: Apache-2.0
#include "edit_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "command_error.h"

namespace ardv::ctl {

namespace {

constexpr mode_t kLockMode = 0600;  // nobody else can hold it, and the tool up

std::string LockOf(const std::string& path) {
    const std::filesystem::path file(path);
    return file.parent_path() / ("." + file.filename().string() + ".lock");
}

CommandError Unusable(const std::string& lock, const std::string& reason) {
    return {kExitCantCreate, "cannot lock " + lock + ": " + reason};
}

int OpenLock(const std::string& lock) {
    return open(lock.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK, kLockMode);
}

bool IsOwnFile(int fd) {
    struct stat status = {};
    return fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && (status.st_uid == geteuid() || status.st_uid == 0);
}

int WaitFor(int fd) {
    int result = 0;
    do {
        result = flock(fd, LOCK_EX);
    } while (result != 0 && errno == EINTR);
    return result;
}

}  // namespace

EditLock::EditLock(const JsonFile& file) : lock_(OpenLock(LockOf(file.path))) {
    const std::string lock = LockOf(file.path);
    if (!lock_.IsOpen()) {
        const int reason = errno;
        CheckFolder(file);
        throw Unusable(lock, std::strerror(reason));
    }
    if (!IsOwnFile(lock_.Get())) {
        throw Unusable(lock, "it is no file of yours or root's");
    }
    if (WaitFor(lock_.Get()) != 0) {
        throw Unusable(lock, std::strerror(errno));
    }
}

}  // namespace ardv::ctl
