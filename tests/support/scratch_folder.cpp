// SPDX-License-Identifier: Apache-2.0
#include "scratch_folder.h"

#include <sys/mount.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <system_error>

namespace ardv::test {

namespace fs = std::filesystem;

namespace {

void Must(bool done, const std::string& what) {
    if (!done) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

}  // namespace

ScratchFolder::ScratchFolder() : path_("/tmp/scratch-XXXXXX") {
    Must(mkdtemp(path_.data()) != nullptr, path_);
}

ScratchFolder::~ScratchFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

std::set<std::string> ScratchFolder::Names() const {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(path_)) {
        names.insert(entry.path().filename().string());
    }
    return names;
}

void ScratchFolder::Share(mode_t mode) const {
    fs::permissions(path_, fs::perms(mode));
}

MountedDisk::MountedDisk(const std::string& folder, std::size_t bytes) : folder_(folder) {
    const auto options = "mode=700,size=" + std::to_string(bytes);
    Must(mount("tmpfs", folder.c_str(), "tmpfs", 0, options.c_str()) == 0, folder);
}

MountedDisk::~MountedDisk() {
    umount2(folder_.c_str(), MNT_DETACH);
}

MountedFile::MountedFile(const std::string& shown, const std::string& place) : place_(place) {
    Must(mount(shown.c_str(), place.c_str(), nullptr, MS_BIND, nullptr) == 0, place);
}

MountedFile::~MountedFile() {
    umount2(place_.c_str(), MNT_DETACH);
}

std::size_t OpenDescriptors() {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
}

}  // namespace ardv::test
