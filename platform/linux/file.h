// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

#include "platform/linux/error.h"

namespace ARDV::Platform {

/// Owner of one descriptor, closed when the owner goes.
class FileDescriptor {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int fd) : fd_(fd) {}
    FileDescriptor(FileDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept;
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    ~FileDescriptor();

    int Get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }

private:
    int fd_ = -1;
};

/// A file's bytes, and its owner, mode, inode, size and times from the same open descriptor.
struct FileContents {
    std::string text;
    struct stat status {};
};

/// Whether its group or others may write to a file or a folder.
bool MayOthersWrite(const struct stat& status);

/// Whether somebody other than root and the effective user could have written a file.
bool CouldOthersHaveWritten(const struct stat& status);

/// Where a file is: its folder, held open, and its name there. Operations through it can't be led elsewhere when a
/// folder on the path is moved meanwhile.
struct FilePlace {
    FileDescriptor folder;
    std::string name;
};

/// Who may do what with a new file. Owner and group are set only when `keepOwner`.
struct FileAttributes {
    mode_t mode = 0644;
    bool keepOwner = false;
    uid_t owner = 0;
    gid_t group = 0;
};

/// Reads the regular file at `path`, of at most `limit` bytes. Links are followed. Never blocks on a pipe or a device:
/// anything but a regular file is ARDV_ERR_NOT_REGULAR; a larger file is ARDV_ERR_TOO_LARGE.
Result<FileContents> ReadFile(const std::string& path, std::size_t limit);

/// As above for a place; a symbolic link there isn't followed (ARDV_ERR_ACCESS_DENIED).
Result<FileContents> ReadFile(const FilePlace& place, std::size_t limit);

/// Finds the place of `path`, following symbolic links in its last part, so that a file behind a link can be replaced
/// and the link stays. The file itself need not exist, its folder must. A link in a folder that everybody may write to,
/// sticky or not, is followed only when it belongs to the caller or to the folder's owner, otherwise
/// ARDV_ERR_ACCESS_DENIED: anybody could have put it there.
Result<FilePlace> LocateFile(std::string_view path);

/// Waits for the exclusive right to replace the file at `place` and holds it as long as the descriptor lives. Excludes
/// other threads as well as other processes. Leaves the lock file ".NAME.lock" beside the file.
Result<FileDescriptor> LockForWriting(const FilePlace& place);

/// Replaces (or creates) the file at `place` as a whole: temporary file, flush, rename, flush of the folder. On failure
/// the old file is untouched and no temporary file is left, but for a failure of the folder's flush, when the new file
/// is in place.
Failure ReplaceFile(const FilePlace& place, std::string_view text, const FileAttributes& attributes);

}  // namespace ARDV::Platform
