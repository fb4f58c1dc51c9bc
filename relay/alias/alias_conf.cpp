// SPDX-License-Identifier: Apache-2.0
#include <relay/alias/alias_conf.h>

#include <cstdlib>
#include <ctime>

#include <relay/common/deployment.h>
#include <relay/config/json_store.h>
#include <relay/config/paths.h>
#include <relay/daemon/log.h>
#include <relay/utils/json_text.h>
#include <relay/utils/utils.h>

RELAY_LOG_SOURCE("alias_conf.cpp");

namespace ARDV::Relay {

namespace {

constexpr std::int32_t kDefaultPollSeconds = 604800;
constexpr std::uint32_t kPollSpreadSeconds = 172800;
constexpr std::uint32_t kSignBit = 0x80000000U;

}  // namespace

AliasConf::AliasConf() : pollSeconds_(kDefaultPollSeconds), url_(Deployment::kAliasUrl) {
    srandom(static_cast<unsigned>(std::time(nullptr)));
}

AliasConf::~AliasConf() = default;

bool AliasConf::Overwrite(const Json::Value& value) {
    const auto alias = JsonText::StringMember(value, "alias").value_or("");
    const auto url = JsonText::StringMember(value, "url").value_or("");
    const auto pollSeconds = JsonText::IntMember(value, "poll_seconds").value_or(0);

    bool differs = alias != aliasName_;
    aliasName_ = alias;
    if (pollSeconds >= 1 && pollSeconds != pollSeconds_) {
        pollSeconds_ = pollSeconds;
        differs = true;
    }
    if (!url.empty() && url != url_) {
        url_ = url;
        differs = true;
    }
    if (differs) {
        RELAY_LOG(LOG_DEBUG, "alias config changed");
    }
    return true;
}

bool AliasConf::IsValid() const {
    if (url_.empty()) {
        RELAY_LOG(LOG_ERR, "URL is empty");
        return false;
    }
    if (pollSeconds_ == 0) {
        RELAY_LOG(LOG_ERR, "Polling second is empty");
        return false;
    }
    return true;
}

bool AliasConf::Write(Json::Value& value, bool skipDefaults) const {
    JsonText::EnsureObject(value)["alias"] = aliasName_;
    if (!skipDefaults || pollSeconds_ != kDefaultPollSeconds) {
        value["poll_seconds"] = pollSeconds_;
    }
    if (!skipDefaults || url_ != Deployment::kAliasUrl) {
        value["url"] = url_;
    }
    return true;
}

bool AliasConf::WriteConfig() {
    if (!IsValid()) {
        RELAY_LOG(LOG_ERR, "invalid relayd config");
        return false;
    }
    Json::Value value;
    if (!JsonStore::Read(Paths::kMainConfigFile, value)) {
        RELAY_LOG(LOG_DEBUG, "invalid relayd config, %s", Paths::kMainConfigFile);
    }
    Write(JsonText::EnsureObject(value)["server_alias"], true);
    return JsonStore::Write(Paths::kMainConfigFile, value);
}

bool AliasConf::IsChanged() const {
    return changed_;
}

void AliasConf::CommitChange() {
    changed_ = false;
}

bool AliasConf::IsAliasEnabled() const {
    return !aliasName_.empty();
}

std::string AliasConf::GetUrl() const {
    return url_;
}

std::string AliasConf::GetAliasName() const {
    return aliasName_;
}

bool AliasConf::SetAliasName(const std::string& name) {
    aliasName_ = name;
    return true;
}

int AliasConf::GetPollingTime() const {
    const auto interval = static_cast<std::uint32_t>(pollSeconds_) & ~kSignBit;
    return static_cast<int>(interval + Utils::Random() % kPollSpreadSeconds);
}

}  // namespace ARDV::Relay
