// SPDX-License-Identifier: Apache-2.0
#include <relay/config/config.h>

#include <relay/daemon/log.h>
#include <relay/utils/file_io.h>
#include <relay/utils/json_text.h>
#include <relay/utils/utils.h>

RELAY_LOG_SOURCE("config.cpp");

namespace ARDV::Relay {

namespace {

// They reach the file by a person's hand only: a save keeps them where they are and never adds them.
constexpr const char* kOptionalKeys[] = {"log_level", "log_file", "server_global", "server_waitcmd",
                                         "disable_holepunch"};

void KeepOptionalKeysOf(const Json::Value& current, Json::Value& fresh) {
    for (const char* key : kOptionalKeys) {
        if (!JsonText::Member(current, key)) {
            fresh.removeMember(key);
        }
    }
}

}  // namespace

bool RelaydConf::ReadJsonFile(const std::string& path, Json::Value& value) {
    value = Json::Value();
    std::string text;
    const auto result =
        path.empty() ? Utils::ReadResult::kUnreadable : Utils::ReadWholeFile(path, kMaxJsonFileSize, text);
    if (result == Utils::ReadResult::kUnreadable) {
        return false;
    }
    if (result == Utils::ReadResult::kRead && JsonText::Parse(text, value)) {
        return true;
    }
    RELAY_LOG(LOG_ERR, "bad json format [%s]", path.c_str());
    Utils::RenameBadFile(path.c_str());
    return false;
}

bool RelaydConf::WriteJsonFile(const std::string& path, const Json::Value& value) {
    const std::string temporary = Utils::TemporaryName(path);
    switch (Utils::WriteTemporaryFile(temporary, JsonText::Styled(value))) {
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

bool RelaydConf::ReadConfigFile(const std::string& path) {
    Json::Value value;
    if (!ReadJsonFile(path, value)) {
        RELAY_LOG(LOG_DEBUG, "invalid relayd config, %s", path.c_str());
        return false;
    }
    configFile_ = path;
    if (!Overwrite(value)) {
        RELAY_LOG(LOG_ERR, "invalid relayd config: can not overwrite default");
        return false;
    }
    if (!IsValid()) {
        RELAY_LOG(LOG_ERR, "invalid relayd config");
        return false;
    }
    return true;
}

bool RelaydConf::WriteConfig() {
    if (!IsValid()) {
        RELAY_LOG(LOG_ERR, "invalid relayd config");
        return false;
    }
    Json::Value current;
    if (!ReadJsonFile(configFile_, current)) {
        RELAY_LOG(LOG_DEBUG, "invalid relayd config, %s", configFile_.c_str());
        current = Json::Value(Json::objectValue);
    }
    Json::Value fresh;
    if (!Write(fresh, false)) {
        return false;
    }
    KeepOptionalKeysOf(current, fresh);
    return WriteJsonFile(configFile_, fresh);
}

}  // namespace ARDV::Relay
