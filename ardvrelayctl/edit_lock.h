// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "descriptor.h"
#include "json_file.h"

namespace ardv::ctl {

/**
 * Keeps other runs of the tool from editing a file as long as it lives: from reading what is changed until the outcome is
 * written. It holds flock(2) on ".NAME.lock" beside the file, mode 0600, which stays there. The daemon doesn't take it.
 */
class EditLock {
public:
    /**
     * Waits until no other run edits the file.
     *
     * @throws CommandError if there can be no lock: the folder is missing or may not be written to, or what has the lock's
     *         name is no file of this user or root
     */
    explicit EditLock(const JsonFile& file);

private:
    Descriptor lock_;
};

}  // namespace ardv::ctl
