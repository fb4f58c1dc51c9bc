// SPDX-License-Identifier: Apache-2.0
// Whole files: bounded reading, atomic and durable replacement.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace ARDV::Sandbox {

/// What ReadWholeFile() found.
enum class ReadResult {
    kRead,    ///< the content is there
    kAbsent,  ///< there is no such file
    kFailed,  ///< it can't be read, is no regular file or is larger than the limit
};

/// Reads the regular file `path` of at most `limit` bytes into `content`. kRead: `content` is the file. Otherwise
/// `content` is empty; kFailed: `error` says why.
ReadResult ReadWholeFile(const std::string& path, size_t limit, std::string& content, std::string& error);

/// Replaces `path` by `content`, owner-only (0600): written beside it, synchronised, renamed over it, and the folder
/// synchronised, so that a reader or a crash sees the old or the new file and never a part. Success: true. Failure:
/// false, nothing left beside it, and `error` says why; the old file is untouched, but for the last step: when only the
/// folder can't be synchronised, the new file is in place and may not outlive a power cut.
bool ReplaceFile(const std::string& path, std::string_view content, std::string& error);

}  // namespace ARDV::Sandbox
