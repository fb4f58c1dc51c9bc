// SPDX-License-Identifier: Apache-2.0
#include <relay/config/config.h>

#include <relay/config/json_store.h>
#include <relay/daemon/log.h>
#include <relay/utils/json_text.h>

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
    return JsonStore::Read(path, value);
}

bool RelaydConf::WriteJsonFile(const std::string& path, const Json::Value& value) {
    return JsonStore::Write(path, value);
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
