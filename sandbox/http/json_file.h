// SPDX-License-Identifier: Apache-2.0
// What a server keeps over its end: one JSON value in a file.
#pragma once

#include <json/json.h>

#include <string>

#include "http/file.h"

namespace ARDV::Sandbox {

/// One file, read at the start and replaced at each change.
class JsonFile {
public:
    /// The largest file that is read and written, in bytes.
    static constexpr size_t kMaxBytes = size_t{16} << 20;

    /// `what` the file is, for messages ("registry").
    JsonFile(std::string what, std::string path);

    /// Reads the file. kFailed: it can't be read or is damaged, it was left as it is, and `error` says why.
    ReadResult Read(Json::Value& value, std::string& error) const;

    /// Replaces the file. Failure: false, and `error` says why; see ReplaceFile().
    bool Write(const Json::Value& value, std::string& error) const;

    /// What to say of a content that is wrong for `reason`.
    std::string Damaged(const std::string& reason) const;

private:
    const std::string what_;
    const std::string path_;
};

}  // namespace ARDV::Sandbox
