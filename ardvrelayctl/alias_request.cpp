// SPDX-License-Identifier: Apache-2.0
#include "alias_request.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include <relay/config/config.h>

#include "secret_file.h"

namespace ardv::ctl {

using ARDV::Relay::RelaydConf;

namespace {

struct Needed {
    const char* key;
    const char* otherwise;
};

// In the order in which a new device gets them.
constexpr Needed kNeeded[] = {
    {"serial", "the device has no identity: serial and token are missing in its token store"},
    {"token", "the device has no identity: serial and token are missing in its token store"},
    {"id", "the device has no server identifier: \"serverID\" is missing in the configuration"},
    {"alias", "no alias is set: give one with --alias, or set \"alias\" under \"server_alias\" in the configuration"},
};

RelaydConf LoadConfiguration(const std::string& path) {
    if (access(path.c_str(), R_OK) != 0) {
        throw std::runtime_error("cannot read the configuration " + path + ": " + std::strerror(errno));
    }
    RelaydConf conf(nullptr);
    if (!conf.ReadConfigFile(path)) {
        throw std::runtime_error("the configuration " + path + " is damaged or not valid (--verbose tells more)");
    }
    return conf;
}

void SetIfGiven(Json::Value& data, const char* key, const std::string& text) {
    if (!text.empty()) {
        data[key] = text;
    }
}

void SetFromFile(Json::Value& data, const char* key, const std::string& path) {
    if (!path.empty()) {
        data[key] = ReadSecret(path);
    }
}

}  // namespace

Json::Value GatherRequestData(const AliasOptions& options) {
    Json::Value data;
    LoadConfiguration(options.configFile).DumpDataForAliasReq(data);
    SetIfGiven(data, "alias", options.alias);
    SetIfGiven(data, "url", options.url);
    SetIfGiven(data, "kova_account", options.account);
    SetIfGiven(data, "kova_id", options.accountId);
    SetFromFile(data, "kova_password", options.passwordFile);
    SetFromFile(data, "auth_key", options.authKeyFile);
    SetIfGiven(data, "force", options.force ? "true" : "");
    for (const auto& [key, otherwise] : kNeeded) {
        if (data[key].asString().empty()) {
            throw std::runtime_error(otherwise);
        }
    }
    return data;
}

std::string ConfiguredAlias(const AliasOptions& options) {
    return options.alias.empty() ? LoadConfiguration(options.configFile).GetAliasConf().GetAliasName() : options.alias;
}

}  // namespace ardv::ctl
