// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>

namespace ARDV::Platform {

// Proof that what was read from a file is still what it holds, by one stat(2).

/// What tells a file, or a folder, in one state from any other: a change of its content, mode or owner moves the time
/// of change, which nobody can set, and a file in its place has another inode. The reader belongs to it, so that a
/// program that gave up rights isn't handed what it read with them.
struct FileIdentity {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    std::int64_t modified = 0;  ///< nanoseconds since 1970
    std::int64_t changed = 0;   ///< nanoseconds since 1970
    uid_t user = 0;

    bool operator==(const FileIdentity&) const = default;
};

FileIdentity IdentityOf(const struct stat& status);

/// The identity of what is at `path` now, behind links; nothing when there is none to see.
std::optional<FileIdentity> IdentityAt(const std::string& path);

/// A moment before a file is opened.
class ReadMoment {
public:
    ReadMoment();

    /// True when each later change of the file gives it another identity. A change within the same tick of the file
    /// clock as the one before leaves the times as they are, so a file that has just been changed proves nothing; where
    /// times are whole seconds, as some file systems have them, this lasts two seconds.
    bool Proves(const FileIdentity& identity) const;

private:
    std::int64_t now_;
};

}  // namespace ARDV::Platform
