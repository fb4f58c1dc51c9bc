// SPDX-License-Identifier: Apache-2.0
#include <relay/daemon/file_lock.h>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <relay/utils/shared_folder.h>

namespace ARDV::Relay {

namespace {

constexpr std::int32_t kNotLocked = -1;
constexpr mode_t kLockFileMode = 0666;  // less the process's umask
constexpr int kOpenFlags = O_RDWR | O_CREAT | O_NONBLOCK | O_CLOEXEC;

}  // namespace

_FileLock::_FileLock(const char* path) {
    AddFile(path);
}

_FileLock::~_FileLock() {
    Unlock();
}

bool _FileLock::AddFile(const char* path) {
    if (!path) {
        return false;
    }
    descriptors_.reserve(descriptors_.size() + 1);  // so that want of memory leaves both sequences as they were
    files_.emplace_back(path);
    descriptors_.push_back(kNotLocked);
    return true;
}

bool _FileLock::RemoveFile(const char* /*path*/) {
    return false;
}

bool _FileLock::Lock(int operation) {
    if (!IsConsistent()) {
        return false;
    }
    for (std::size_t i = 0; i < files_.size(); ++i) {
        if (descriptors_[i] < 0 && !LockFile(files_[i], operation, descriptors_[i])) {
            Unlock();
            return false;
        }
    }
    return true;
}

bool _FileLock::Unlock() {
    if (!IsConsistent()) {
        return false;
    }
    for (auto& descriptor : descriptors_) {
        flock(descriptor, LOCK_UN);  // at once, even if a child still has the file open
        close(descriptor);
        descriptor = kNotLocked;
    }
    return true;
}

bool _FileLock::IsConsistent() const {
    return files_.size() == descriptors_.size();
}

// Trust is looked at under the lock: only then nobody who keeps to the locks deletes the file any more.
bool _FileLock::LockFile(const std::string& path, int operation, std::int32_t& descriptor) {
    const int opened = open(path.c_str(), kOpenFlags | Utils::NoFollowIfShared(path), kLockFileMode);
    if (opened < 0) {
        return false;
    }
    if (flock(opened, operation | LOCK_NB) != 0 || !Utils::IsTrustworthy(opened, path)) {
        close(opened);
        return false;
    }
    descriptor = opened;
    return true;
}

}  // namespace ARDV::Relay
