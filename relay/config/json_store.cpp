// SPDX-License-Identifier: Apache-2.0
#include <relay/config/json_store.h>

#include <relay/config/config_base.h>
#include <relay/daemon/log.h>
#include <relay/utils/file_io.h>
#include <relay/utils/json_text.h>
#include <relay/utils/utils.h>

RELAY_LOG_SOURCE("config.cpp");

namespace ARDV::Relay::JsonStore {

bool Read(const std::string& path, Json::Value& value) {
    value = Json::Value();
    std::string text;
    const auto result =
        path.empty() ? Utils::ReadResult::kUnreadable : Utils::ReadWholeFile(path, kMaxJsonFileSize, text);
    if (result == Utils::ReadResult::kUnreadable) {
        return false;
    }
    const auto parsed =
        result == Utils::ReadResult::kRead ? JsonText::TryParse(text, value) : JsonText::ParseResult::kDamaged;
    if (parsed != JsonText::ParseResult::kDamaged) {  // for want of memory a file is not damaged: it stays in its place
        return parsed == JsonText::ParseResult::kParsed;
    }
    RELAY_LOG(LOG_ERR, "bad json format [%s]", path.c_str());
    Utils::RenameBadFile(path.c_str());
    return false;
}

bool Write(const std::string& path, const Json::Value& value) {
    const std::string temporary = Utils::TemporaryName(path);
    const std::string text = JsonText::Styled(value);
    const bool isReadable = text.size() <= kMaxJsonFileSize;  // a larger file would be taken for a damaged one
    switch (isReadable ? Utils::WriteTemporaryFile(temporary, text) : Utils::WriteResult::kNotWritten) {
        case Utils::WriteResult::kNotOpened:
            RELAY_LOG(LOG_ERR, "open failed [%s]", temporary.c_str());
            return false;
        case Utils::WriteResult::kNotWritten:
            RELAY_LOG(LOG_ERR, "write file %s failed", temporary.c_str());
            return false;
        case Utils::WriteResult::kWritten:
            break;
    }
    // Once the temporary file is complete the write counts as done, whatever becomes of the rename.
    Utils::RenameFile(temporary.c_str(), path.c_str());
    return true;
}

}  // namespace ARDV::Relay::JsonStore
