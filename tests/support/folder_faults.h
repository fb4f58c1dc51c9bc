// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Changes of a folder that fail as on a bad disk. unlinkat(2) and renameat(2) are interposed in the program that links
 * this; they are the real ones unless a fault is set.
 */
#pragma once

#include <string>

namespace ardv::test {

/** What fails, with EIO, while this object lives; at most one lives at a time. */
class FolderFaults {
public:
    FolderFaults();
    ~FolderFaults();
    FolderFaults(const FolderFaults&) = delete;
    FolderFaults& operator=(const FolderFaults&) = delete;

    std::string undeletable;  ///< name of a file that can't be deleted
    std::string immovable;    ///< name of a file that can't be given another name
};

}  // namespace ardv::test
