// SPDX-License-Identifier: Apache-2.0
#include "registry.h"

#include <algorithm>
#include <utility>

#include "file.h"
#include "text.h"

namespace ARDV::Sandbox {

bool IsAliasName(std::string_view name) {
    const auto allowed = [](char c) { return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-'; };
    return !name.empty() && name.size() <= 63 && name.front() != '-' && name.back() != '-' &&
           std::all_of(name.begin(), name.end(), allowed);
}

Registry::Registry(std::string file) : file_(std::move(file)) {}

bool Registry::Load(std::string& error) {
    std::string content;
    const ReadResult result = ReadWholeFile(file_, kMaxBytes, content, error);
    if (result == ReadResult::kFailed) {
        return false;
    }
    const std::lock_guard lock(mutex_);
    if (result == ReadResult::kAbsent) {
        return Save(data_, error);
    }
    const auto json = ParseJson(content, error);
    auto data = json ? FromJson(*json, error) : std::nullopt;
    if (!data) {
        error = "the registry " + file_ + " is damaged and was left as it is: " + error;
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
    if (!Save(fresh, error)) {
        return false;
    }
    data_ = std::move(fresh);
    return true;
}

Json::Value Registry::Snapshot() const {
    const std::lock_guard lock(mutex_);
    return ToJson(data_);
}

bool Registry::Save(const RegistryData& data, std::string& error) const {
    const std::string text = ToJson(data).toStyledString();
    // What can't be read back at the next start must not be written.
    if (text.size() > kMaxBytes) {
        error = "the registry is full";
        return false;
    }
    return ReplaceFile(file_, text, error);
}

}  // namespace ARDV::Sandbox
