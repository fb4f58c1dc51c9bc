// SPDX-License-Identifier: Apache-2.0
#include "folder.h"

#include <sys/stat.h>

#include <cerrno>
#include <filesystem>

namespace ardv::ctl {

namespace {

constexpr mode_t kFolderMode = 0755;

}  // namespace

bool MakeFolder(const std::string& folder) {
    if (mkdir(folder.c_str(), kFolderMode) == 0) {
        return chmod(folder.c_str(), kFolderMode) == 0;  // where the umask takes bits away
    }
    const std::string parent = std::filesystem::path(folder).parent_path();
    if (errno == ENOENT && !parent.empty() && parent != folder) {
        return MakeFolder(parent) && MakeFolder(folder);
    }
    return errno == EEXIST;
}

}  // namespace ardv::ctl
