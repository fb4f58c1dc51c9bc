// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * A record of the files that this process opens by open(2), which is interposed in the program that links this.
 */
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace ardv::test {

/** The files opened while this object lives; at most one lives at a time. */
class FileOpens {
public:
    FileOpens();
    ~FileOpens();
    FileOpens(const FileOpens&) = delete;
    FileOpens& operator=(const FileOpens&) = delete;

    /** How often this path was opened, or tried to be. */
    std::size_t CountOf(const std::string& path) const;

    /** Called with the path right after each open(2). */
    std::function<void(const std::string&)> onOpen;

    std::vector<std::string> paths;
};

}  // namespace ardv::test
