// SPDX-License-Identifier: Apache-2.0
#include "device_book.h"

#include <algorithm>
#include <utility>

#include "http/random_name.h"
#include "request_check.h"

namespace ARDV::Sandbox {
namespace {

constexpr size_t kIdBytes = 8;

bool IsFilled(const Json::Value& value) {
    return value.isString() && !value.asString().empty();
}

}  // namespace

DeviceBook::DeviceBook(const std::string& file) : isKept_(!file.empty()), file_("state", file) {}

bool DeviceBook::Load(std::string& error) {
    if (!isKept_) {
        return true;
    }
    Json::Value json;
    const ReadResult result = file_.Read(json, error);
    const std::lock_guard lock(mutex_);
    if (result != ReadResult::kRead) {
        return result == ReadResult::kAbsent && file_.Write(ToJson(devices_), error);
    }
    auto devices = FromJson(json, error);
    if (!devices) {
        error = file_.Damaged(error);
        return false;
    }
    devices_ = std::move(*devices);
    return true;
}

DeviceBook::Verdict DeviceBook::Identify(const Claim& claim, std::string& serverId, std::string& error) {
    const std::lock_guard lock(mutex_);
    const auto found = devices_.find(claim.serial);
    if (found != devices_.end()) {
        serverId = found->second.serverId;
        return found->second.token == claim.token ? Verdict::kKnown : Verdict::kRefused;
    }
    const bool isFree = !claim.serverId.empty() && !IsTaken(devices_, claim.serverId);
    serverId = isFree ? claim.serverId : RandomName(kIdBytes);
    Devices fresh = devices_;
    fresh[claim.serial] = {claim.token, serverId};
    return Take(std::move(fresh), error) ? Verdict::kKnown : Verdict::kFailed;
}

bool DeviceBook::Has(std::string_view serverId) const {
    const std::lock_guard lock(mutex_);
    return IsTaken(devices_, serverId);
}

Json::Value DeviceBook::Snapshot() const {
    const std::lock_guard lock(mutex_);
    return ToJson(devices_);
}

bool DeviceBook::Replace(const Json::Value& json, std::string& error) {
    auto devices = FromJson(json, error);
    const std::lock_guard lock(mutex_);
    return devices && Take(std::move(*devices), error);
}

bool DeviceBook::IsTaken(const Devices& devices, std::string_view serverId) {
    return std::any_of(devices.begin(), devices.end(),
                       [&](const auto& entry) { return entry.second.serverId == serverId; });
}

bool DeviceBook::Take(Devices fresh, std::string& error) {
    if (isKept_ && !file_.Write(ToJson(fresh), error)) {
        return false;
    }
    devices_ = std::move(fresh);
    return true;
}

Json::Value DeviceBook::ToJson(const Devices& devices) {
    Json::Value json(Json::objectValue);
    json["devices"] = Json::objectValue;
    for (const auto& [serial, device] : devices) {
        json["devices"][serial]["token"] = device.token;
        json["devices"][serial]["serverID"] = device.serverId;
    }
    return json;
}

std::optional<DeviceBook::Devices> DeviceBook::FromJson(const Json::Value& json, std::string& error) {
    if (!json.isObject() || !json["devices"].isObject()) {
        error = "devices must be an object";
        return std::nullopt;
    }
    Devices devices;
    for (const std::string& serial : json["devices"].getMemberNames()) {
        const Json::Value& entry = json["devices"][serial];
        const bool isGood = !serial.empty() && entry.isObject() && IsFilled(entry["token"]) &&
                            IsName(entry["serverID"], kMaxServerId) && !IsTaken(devices, entry["serverID"].asString());
        if (!isGood) {
            error = "devices." + serial + " must have a token and a serverID of its own";
            return std::nullopt;
        }
        devices[serial] = {entry["token"].asString(), entry["serverID"].asString()};
    }
    return devices;
}

}  // namespace ARDV::Sandbox
