// SPDX-License-Identifier: Apache-2.0
#include <relay/alias/alias_status.h>

#include <relay/config/json_store.h>
#include <relay/daemon/log.h>
#include <relay/utils/json_text.h>

RELAY_LOG_SOURCE("alias_status.cpp");

namespace ARDV::Relay {

namespace {

constexpr const char kStatusFile[] = "/tmp/nubo_alias.status";

const char* WhatIsWrongWith(const Json::Value& record) {
    if (!record.isObject()) {
        return "status should be array";  // an object is meant; support scripts know the text as it is
    }
    if (!JsonText::Member(record, "alias_name")) {
        return "alias name is not object member";
    }
    if (!JsonText::Member(record, "status")) {
        return "status is not object member";
    }
    if (JsonText::StringMember(record, "status").value_or("").empty()) {
        return "status is not string or empty";
    }
    return nullptr;
}

}  // namespace

AliasStatus::AliasStatus() {
    Reload();
}

AliasStatus::~AliasStatus() = default;

bool AliasStatus::Reload() {
    if (!JsonStore::Read(kStatusFile, value_)) {
        RELAY_LOG(LOG_DEBUG, "invalid relayd config, %s", kStatusFile);
        return false;
    }
    return true;
}

bool AliasStatus::IsValid() const {
    if (const char* fault = WhatIsWrongWith(value_)) {
        RELAY_LOG(LOG_ERR, "%s", fault);
        return false;
    }
    return true;
}

bool AliasStatus::GetStatus(const std::string& alias, std::string& status, std::string& extra) const {
    if (alias != JsonText::StringMember(value_, "alias_name").value_or("")) {
        return false;
    }
    JsonText::Take(value_, "status", status);
    JsonText::Take(value_, "extra", extra);
    return true;
}

bool AliasStatus::SetStatus(const std::string& alias, const std::string& status, const std::string& extra, bool dump) {
    JsonText::EnsureObject(value_)["alias_name"] = alias;
    value_["status"] = status;
    value_["extra"] = extra;
    return dump ? DumpToFile() : true;
}

bool AliasStatus::DumpToFile() {
    return IsValid() && JsonStore::Write(kStatusFile, value_);
}

}  // namespace ARDV::Relay
