// SPDX-License-Identifier: Apache-2.0
#include <relay/utils/shared_folder.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ARDV::Relay::Utils {

std::string FolderOf(const std::string& path) {
    const auto slash = path.rfind('/');
    if (slash == std::string::npos) {
        return ".";
    }
    return slash == 0 ? "/" : path.substr(0, slash);
}

int NoFollowIfShared(const std::string& path) {
    struct stat folder = {};
    const bool shared = stat(FolderOf(path).c_str(), &folder) == 0 && (folder.st_mode & S_IWOTH) != 0;
    return shared ? O_NOFOLLOW : 0;
}

bool IsTrustworthy(int fd, const std::string& path) {
    if (!NoFollowIfShared(path)) {
        return true;
    }
    struct stat file = {};
    return fstat(fd, &file) == 0 && S_ISREG(file.st_mode) && file.st_nlink == 1 &&
           (file.st_uid == geteuid() || file.st_uid == 0);
}

int ChangeMode(const std::string& path, mode_t mode) {
    return fchmodat(AT_FDCWD, path.c_str(), mode, NoFollowIfShared(path) ? AT_SYMLINK_NOFOLLOW : 0);
}

}  // namespace ARDV::Relay::Utils
