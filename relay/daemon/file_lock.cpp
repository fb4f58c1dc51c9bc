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

// Trust is looked at under the lock: only then nobody who keeps to the locks deletes the file any more.
std::int32_t OpenLocked(const std::string& path, int operation) {
    const int opened = open(path.c_str(), kOpenFlags | Utils::NoFollowIfShared(path), kLockFileMode);
    if (opened < 0) {
        return kNotLocked;
    }
    if (flock(opened, operation | LOCK_NB) != 0 || !Utils::IsTrustworthy(opened, path)) {
        close(opened);
        return kNotLocked;
    }
    return opened;
}

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
    if (files_.size() != descriptors_.size()) {
        return false;
    }
    for (std::size_t i = 0; i < files_.size(); ++i) {
        if (descriptors_[i] >= 0) {
            continue;
        }
        descriptors_[i] = OpenLocked(files_[i], operation);
        if (descriptors_[i] < 0) {
            Unlock();
            return false;
        }
    }
    return true;
}

bool _FileLock::Unlock() {
    if (files_.size() != descriptors_.size()) {
        return false;
    }
    for (auto& descriptor : descriptors_) {
        flock(descriptor, LOCK_UN);  // at once, even if a child still has the file open
        close(descriptor);
        descriptor = kNotLocked;
    }
    return true;
}

}  // namespace ARDV::Relay
