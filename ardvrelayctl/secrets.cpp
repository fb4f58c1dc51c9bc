// SPDX-License-Identifier: Apache-2.0
#include "secrets.h"

#include <relay/request/request_alias.h>

#include "server_url.h"

namespace ardv::ctl {

using ARDV::Relay::AliasRequest;

namespace {

constexpr const char kMask[] = "***";

// Secrets of the files of the device, which go by another name in the protocol.
constexpr const char kApiKey[] = "api_key";

bool IsSecret(const std::string& name) {
    return AliasRequest::IsSecretField(name) || name == kApiKey;
}

}  // namespace

Json::Value Shown(const Json::Value& value, bool showSecrets) {
    if (showSecrets) {
        return value;
    }
    if (value.isString()) {
        return WithoutCredentials(value.asString());
    }
    Json::Value shown = value;
    if (value.isObject()) {
        for (const auto& name : value.getMemberNames()) {
            shown[name] = IsSecret(name) ? Json::Value(kMask) : Shown(value[name], false);
        }
    } else if (value.isArray()) {
        for (Json::ArrayIndex i = 0; i < value.size(); ++i) {
            shown[i] = Shown(value[i], false);
        }
    }
    return shown;
}

Json::Value ShownMember(const std::string& key, const Json::Value& value, bool showSecrets) {
    const auto name = key.substr(key.rfind('.') + 1);
    return IsSecret(name) && !showSecrets ? Json::Value(kMask) : Shown(value, showSecrets);
}

std::string Masked(const std::string& secret, bool showSecrets) {
    return showSecrets || secret.empty() ? secret : kMask;
}

}  // namespace ardv::ctl
