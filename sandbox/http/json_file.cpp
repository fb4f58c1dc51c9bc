// SPDX-License-Identifier: Apache-2.0
#include "http/json_file.h"

#include <utility>

#include "http/text.h"

namespace ARDV::Sandbox {

JsonFile::JsonFile(std::string what, std::string path) : what_(std::move(what)), path_(std::move(path)) {}

ReadResult JsonFile::Read(Json::Value& value, std::string& error) const {
    std::string content;
    const ReadResult result = ReadWholeFile(path_, kMaxBytes, content, error);
    if (result != ReadResult::kRead) {
        return result;
    }
    auto json = ParseJson(content, error);
    if (!json) {
        error = Damaged(error);
        return ReadResult::kFailed;
    }
    value = std::move(*json);
    return result;
}

bool JsonFile::Write(const Json::Value& value, std::string& error) const {
    const std::string text = value.toStyledString();
    // What can't be read back at the next start must not be written.
    if (text.size() > kMaxBytes) {
        error = "the " + what_ + " is full";
        return false;
    }
    return ReplaceFile(path_, text, error);
}

std::string JsonFile::Damaged(const std::string& reason) const {
    return "the " + what_ + " " + path_ + " is damaged and was left as it is: " + reason;
}

}  // namespace ARDV::Sandbox
