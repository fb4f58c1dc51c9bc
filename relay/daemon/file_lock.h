// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <relay/common/export.h>

namespace ARDV::Relay {

/**
 * A set of lock files that are locked together or not at all: advisory whole-file locks of flock(2), which exclude other processes,
 * and other objects of this class within one process. Nothing ever waits and nothing is logged. The files stay on disk, empty.
 *
 * One thread uses an object. Its descriptors are close-on-exec; a child of fork(2) shares the locks until it closes them.
 */
// NOLINTNEXTLINE(readability-identifier-naming): the name is published
class ARDVRELAYD_API _FileLock {
public:
    /** An empty set, to which `path` is added by `AddFile`. */
    explicit _FileLock(const char* path);

    _FileLock(const _FileLock&) = delete;
    _FileLock& operator=(const _FileLock&) = delete;

    /** Gives up all locks. */
    ~_FileLock();

    /**
     * Adds a file, not locked yet, to the end of the set. Neither the path nor whether it is in the set already is checked; a file that is
     * there twice cannot be locked exclusively, because the second lock meets the first.
     *
     * @return false for null
     */
    bool AddFile(const char* path);

    /** Not supported: false, with the set as it was. */
    bool RemoveFile(const char* path);

    /**
     * Locks those files of the set, in their order, that are not locked yet. A missing file is made, with mode 0666 less the umask.
     *
     * In a folder that everybody may write to (such as /tmp) a file must be a regular file that belongs to this user or to root and has
     * one name; no symbolic link is followed. So one whose holder has deleted it meanwhile is refused too.
     *
     * @param operation LOCK_SH or LOCK_EX of <sys/file.h>; LOCK_NB is added
     * @return true if all of the set is locked, which an empty one always is. False if a file cannot be opened, or is locked elsewhere:
     *         then none is, not even one that an earlier call had locked.
     */
    bool Lock(int operation);

    /** Gives up all locks and closes the files. True, also if nothing was locked. */
    bool Unlock();

private:
    std::vector<std::string> files_;
    std::vector<std::int32_t> descriptors_;  ///< of each file; -1 while it is not locked
};

}  // namespace ARDV::Relay
