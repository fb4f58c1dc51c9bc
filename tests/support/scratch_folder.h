// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <set>
#include <string>

namespace ardv::test {

/** A folder of its own for one test, mode 0700, gone with all its files when the test ends. */
class ScratchFolder {
public:
    ScratchFolder();
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    const std::string& Path() const { return path_; }
    std::string File(const std::string& name) const { return path_ + "/" + name; }

    /** The names in the folder. */
    std::set<std::string> Names() const;

    /** Lets everybody write to the folder: as in /tmp, where only its owner may remove a file, or without that bit. */
    void Share(mode_t mode = 01777) const;

private:
    std::string path_;
};

/** A file system of its own in place of a folder's content, gone at the end of this object's life. */
class MountedDisk {
public:
    /**
     * @param folder an existing folder
     * @param bytes room for files, in whole pages of 4,096
     */
    MountedDisk(const std::string& folder, std::size_t bytes);
    ~MountedDisk();
    MountedDisk(const MountedDisk&) = delete;
    MountedDisk& operator=(const MountedDisk&) = delete;

private:
    std::string folder_;
};

/** A file shown in the place of another one, until the end of this object's life. */
class MountedFile {
public:
    MountedFile(const std::string& shown, const std::string& place);
    ~MountedFile();
    MountedFile(const MountedFile&) = delete;
    MountedFile& operator=(const MountedFile&) = delete;

private:
    std::string place_;
};

/** How many descriptors this process holds open. */
std::size_t OpenDescriptors();

}  // namespace ardv::test
