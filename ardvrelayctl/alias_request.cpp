// SPDX-License-Identifier: Apache-2.0
#include "alias_request.h"

#include <stdexcept>

#include "device_identity.h"
#include "secret_file.h"
#include "server_url.h"

namespace ardv::ctl {

namespace {

struct Needed {
    const char* key;
    const char* otherwise;  // null: a part of the identity
};

// In the order in which a new device gets them.
constexpr Needed kNeeded[] = {
    {"serial", nullptr},
    {"token", nullptr},
    {"id", "the device has no server identifier: \"serverID\" is missing in the configuration"},
    {"alias", "no alias is set: give one with --alias, or set \"alias\" under \"server_alias\" in the configuration"},
};

void SetIfGiven(Json::Value& data, const char* key, const std::string& text) {
    if (!text.empty()) {
        data[key] = text;
    }
}

void SetFromFile(Json::Value& data, const char* key, const std::string& path) {
    if (!path.empty()) {
        std::string secret = ReadSecret(path);
        data[key] = secret;
        Wipe(secret);
    }
}

void CheckUrl(const std::string& url) {
    if (const char* fault = WhatIsWrongWithUrl(url)) {
        throw std::runtime_error(std::string("the configured alias server cannot be used: ") + fault);
    }
}

}  // namespace

Json::Value GatherRequestData(const Session& session, const AliasOptions& options) {
    Json::Value data;
    LoadConfiguration(session.configFile).DumpDataForAliasReq(data);
    SetIfGiven(data, "alias", options.alias);
    SetIfGiven(data, "url", options.url);
    SetIfGiven(data, "kova_account", options.account);
    SetIfGiven(data, "kova_id", options.accountId);
    CheckUrl(data["url"].asString());
    SetFromFile(data, "kova_password", options.passwordFile);
    SetFromFile(data, "auth_key", options.authKeyFile);
    SetIfGiven(data, "force", options.force ? "true" : "");
    for (const auto& [key, otherwise] : kNeeded) {
        if (data[key].asString().empty()) {
            throw otherwise ? CommandError(kExitConfig, otherwise) : NoIdentity();
        }
    }
    return data;
}

std::string ConfiguredAlias(const Session& session, const AliasOptions& options) {
    return options.alias.empty() ? LoadConfiguration(session.configFile).GetAliasConf().GetAliasName() : options.alias;
}

}  // namespace ardv::ctl
