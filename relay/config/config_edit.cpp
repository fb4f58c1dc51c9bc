// SPDX-License-Identifier: Apache-2.0
#include <relay/config/config.h>

#include <ardv/system_service.h>

#include <relay/daemon/log.h>
#include <relay/utils/json_text.h>
#include <relay/utils/utils.h>

RELAY_LOG_SOURCE("config.cpp");

namespace ARDV::Relay {

namespace {

constexpr const char kUnit[] = "ardvrelayd";

}  // namespace

// The file isn't made anew from the object: what a person put into it, and what a save leaves out, stays.
template <typename Patch>
bool RelaydConf::PatchFile(const std::string& path, Patch patch) {
    const std::string& target = path.empty() ? configFile_ : path;
    if (!IsValid()) {
        RELAY_LOG(LOG_ERR, "invalid relayd config");
        return false;
    }
    Json::Value value;
    if (!ReadJsonFile(target, value)) {
        RELAY_LOG(LOG_DEBUG, "invalid relayd config, %s", target.c_str());
    }
    patch(JsonText::EnsureObject(value));
    return WriteJsonFile(target, value);
}

bool RelaydConf::WriteServerId(const std::string& path) {
    return PatchFile(path, [this](Json::Value& value) { value["serverID"] = serverId_; });
}

bool RelaydConf::WriteControlServerHost(const std::string& path, const std::string& host) {
    return PatchFile(path, [&](Json::Value& value) {
        serverControl_.SetHost(host);
        serverControl_.Write(value["server_control"], false);
    });
}

bool RelaydConf::WriteSmartDNS(const std::string& path, bool enabled) {
    return PatchFile(path, [&](Json::Value& value) {
        serverSmartDns_.SetEnabled(enabled);
        serverSmartDns_.Write(value["server_smartdns"], false);
    });
}

bool RelaydConf::EnableArdvrelayd(bool enable) {
    const bool isSupported = supportChannel_.GetEnabled();
    if (enable) {
        if (tethraEnabled_ || isSupported) {
            ARDVSystemdEnable(kUnit);
            ARDVSystemdStart(kUnit);
            ARDVSystemdReload(kUnit);  // one that was already running reads the new configuration
        }
        return true;
    }
    if (tethraEnabled_) {
        if (!isSupported) {
            ARDVSystemdReload(kUnit);
        }
        return true;
    }
    Utils::DisableRelaySNI();
    if (!isSupported) {
        ARDVSystemdStop(kUnit);
        ARDVSystemdDisable(kUnit);
    }
    return true;
}

void RelaydConf::DumpDataForAliasReq(Json::Value& value) {
    serverAlias_.Write(value, false);
    if (!auth_.HasCredentials()) {
        auth_.ReadConf();
    }
    auth_.Write(value, true);
    value["id"] = serverId_;
}

}  // namespace ARDV::Relay
