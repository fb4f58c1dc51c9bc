// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/folder_listing.h"

#include <dirent.h>

#include <iterator>
#include <memory>
#include <utility>

namespace ARDV::Platform {

namespace {

struct CloseFolder {
    void operator()(DIR* folder) const { closedir(folder); }
};
using Folder = std::unique_ptr<DIR, CloseFolder>;

}  // namespace

Result<std::set<std::string>> ListFolder(const std::string& path, std::string_view suffix, std::size_t limit) {
    const Folder folder(opendir(path.c_str()));
    if (!folder) {
        return ErrnoError();
    }
    std::set<std::string> names;
    errno = 0;
    while (const dirent* entry = readdir(folder.get())) {
        const std::string_view name = entry->d_name;
        if (name.front() != '.' && name.ends_with(suffix)) {
            names.emplace(name);
        }
        if (names.size() > limit) {
            names.erase(std::prev(names.end()));
        }
        errno = 0;
    }
    return errno == 0 ? Result<std::set<std::string>>(std::move(names)) : ErrnoError();
}

}  // namespace ARDV::Platform
