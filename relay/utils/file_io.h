// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The two file operations on which everything that is kept on disk rests. Neither logs: each caller has its own words.
 */
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace ARDV::Relay::Utils {

/** What became of a file that was to be read. */
enum class ReadResult {
    kRead,
    kUnreadable,  ///< missing, no regular file, not permitted, not trustworthy, or an I/O error
    kTooLarge     ///< more than the caller allows
};

/** Reads a regular file whole; in a folder that everybody may write to only one that `IsTrustworthy`. */
ReadResult ReadWholeFile(const std::string& path, std::size_t maxBytes, std::string& content);

/** What became of a temporary file that was to be written. */
enum class WriteResult {
    kWritten,    ///< complete and on the disk
    kNotOpened,  ///< nothing was made
    kNotWritten  ///< a part of it may be left behind
};

/** Name of the temporary file for `path`: it holds the process id, so that two processes never share one. */
std::string TemporaryName(const std::string& path);

/**
 * Writes a file, truncating what stands under its name, and flushes it to the disk. A new file has the process's default
 * mode. In a folder that everybody may write to the file is always a new one, so that nobody else owns it or holds it open.
 */
WriteResult WriteTemporaryFile(const std::string& temporary, std::string_view content);

}  // namespace ARDV::Relay::Utils
