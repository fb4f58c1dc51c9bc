// SPDX-License-Identifier: Apache-2.0
#include "registry.h"

#include <algorithm>
#include <utility>

namespace ARDV::Sandbox {

bool IsAliasName(std::string_view name) {
    const auto allowed = [](char c) { return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-'; };
    return !name.empty() && name.size() <= 63 && name.front() != '-' && name.back() != '-' &&
           std::all_of(name.begin(), name.end(), allowed);
}

Registry::Registry(const std::string& file) : file_("registry", file) {}

bool Registry::Load(std::string& error) {
    Json::Value json;
    const ReadResult result = file_.Read(json, error);
    if (result == ReadResult::kFailed) {
        return false;
    }
    const std::lock_guard lock(mutex_);
    if (result == ReadResult::kAbsent) {
        return file_.Write(ToJson(data_), error);
    }
    auto data = FromJson(json, error);
    if (!data) {
        error = file_.Damaged(error);
        return false;
    }
    data_ = std::move(*data);
    return true;
}

bool Registry::Transact(const std::function<bool(RegistryData&)>& edit, std::string& error) {
    const std::lock_guard lock(mutex_);
    RegistryData fresh = data_;
    if (!edit(fresh)) {
        return true;
    }
    if (!file_.Write(ToJson(fresh), error)) {
        return false;
    }
    data_ = std::move(fresh);
    return true;
}

Json::Value Registry::Snapshot() const {
    const std::lock_guard lock(mutex_);
    return ToJson(data_);
}

}  // namespace ARDV::Sandbox
