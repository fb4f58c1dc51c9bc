// SPDX-License-Identifier: Apache-2.0
#include <relay/utils/utils.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <relay/daemon/log.h>
#include <relay/utils/descriptor.h>
#include <relay/utils/file_io.h>
#include <relay/utils/shared_folder.h>

RELAY_LOG_SOURCE("utils.cpp");

namespace ARDV::Relay::Utils {

namespace {

constexpr mode_t kKeptFileMode = 0644;

void FlushFolderOf(const std::string& path) {
    const Descriptor folder(open(FolderOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.IsOpen()) {
        fsync(folder.Get());
    }
}

}  // namespace

int RenameFile(const char* source, const char* target) {
    if (!source || !target) {
        return -1;
    }
    if (ChangeMode(source, kKeptFileMode) != 0) {
        RELAY_LOG_AT(47, LOG_ERR, "chmod %s failed, errno: %d", source, errno);
    }
    const int renamed = rename(source, target);
    if (renamed == 0) {
        FlushFolderOf(target);
        return renamed;
    }
    RELAY_LOG_AT(51, LOG_ERR, "rename %s to %s failed, errno: %d", source, target, errno);
    return unlink(source);
}

void RenameBadFile(const char* path) {
    if (!path) {
        return;
    }
    if (ChangeMode(path, kKeptFileMode) != 0) {
        RELAY_LOG_AT(59, LOG_ERR, "chmod %s failed, errno: %d", path, errno);
    }
    if (rename(path, (std::string(path) + ".bad").c_str()) != 0) {
        RELAY_LOG_AT(64, LOG_ERR, "rename %s to .bad failed. %s", path, std::strerror(errno));
        unlink(path);
    }
}

bool WriteFile(const std::string& path, const std::string& content) {
    const std::string temporary = TemporaryName(path);
    switch (WriteTemporaryFile(temporary, content)) {
        case WriteResult::kNotOpened:
            RELAY_LOG_AT(82, LOG_ERR, "open failed [%s]", temporary.c_str());
            return false;
        case WriteResult::kNotWritten:
            RELAY_LOG_AT(91, LOG_ERR, "write file %s failed", temporary.c_str());
            return false;
        case WriteResult::kWritten:
            break;
    }
    RenameFile(temporary.c_str(), path.c_str());
    return true;
}

}  // namespace ARDV::Relay::Utils
