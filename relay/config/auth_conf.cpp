// SPDX-License-Identifier: Apache-2.0
#include <relay/config/auth_conf.h>

#include <array>

#include <ardv/cloud_identity.h>
#include <ardv/key_value_file.h>

#include <relay/daemon/log.h>
#include <relay/utils/device_settings.h>
#include <relay/utils/json_text.h>

RELAY_LOG_SOURCE("auth_conf.cpp");

namespace ARDV::Relay {

namespace {

constexpr std::size_t kSerialSize = 36;
constexpr std::size_t kTokenSize = 33;
constexpr std::size_t kTextSize = 1024;

template <std::size_t N>
using Buffer = std::array<char, N>;

std::string GenerateToken(const std::string& serial) {
    Buffer<kTokenSize> token = {};
    if (ARDVCloudServiceHstokenGenerateToken(serial.c_str(), token.data(), token.size()) < 0) {
        RELAY_LOG(LOG_ERR, "gen token failed");
        return {};
    }
    return token.data();
}

std::string ReadApiKey() {
    Buffer<ARDV_API_KEY_SIZE> key = {};
    ARDVCloudServiceGetApiKey(key.data(), 0);
    return key.data();
}

}  // namespace

AuthConf::AuthConf(bool read) : timezone_(DeviceSettings::TimeZone()) {
    if (read) {
        ReadConf();
    }
}

AuthConf::~AuthConf() = default;

bool AuthConf::ReadConf() {
    Buffer<kSerialSize> serial = {};
    Buffer<kTokenSize> token = {};
    if (ARDVCloudServiceHstokenGetToken(serial.data(), serial.size(), token.data(), token.size()) < 0) {
        RELAY_LOG_PLATFORM_FAILURE(LOG_ERR, "ARDVCloudServiceHstokenGetToken failed:");
        return false;
    }
    Buffer<kTextSize> model = {};
    if (ALIBCFileGetKeyValue("/etc.defaults/ardvinfo.conf", "upnpmodelname", model.data(), model.size(), 0) < 0) {
        RELAY_LOG_PLATFORM_FAILURE(LOG_ERR, "ALIBCFileGetKeyValue failed:");
        return false;
    }
    serial_ = serial.data();
    token_ = token.data();
    mac_ = GetMacAddress();
    model_ = model.data();
    key_ = ReadApiKey();
    return true;
}

bool AuthConf::Overwrite(const Json::Value& value) {
    std::string serial;
    std::string token;
    JsonText::Take(value, "serial", serial);
    JsonText::Take(value, "token", token);
    JsonText::Take(value, "mac", mac_);
    JsonText::Take(value, "key", key_);
    JsonText::Take(value, "model", model_);
    if (!serial.empty()) {  // a token belongs to its serial: without one it is not taken
        token_ = token.empty() ? GenerateToken(serial) : token;
        serial_ = serial;
    }
    return true;
}

bool AuthConf::IsValid() const {
    return HasCredentials() && !mac_.empty();
}

bool AuthConf::Write(Json::Value& value, bool full) const {
    JsonText::EnsureObject(value)["serial"] = serial_;
    value["mac"] = mac_;
    value["timezone"] = timezone_;
    value["key"] = key_;
    value["model"] = model_;
    if (full) {
        value["token"] = token_;
    }
    return true;
}

std::string AuthConf::GetMacAddress() {
    std::string mac = RelaydGetMacAddressByIf("eth0");
    if (mac.empty()) {
        RELAY_LOG(LOG_ERR, "invalid mac address");
    }
    return mac;
}

std::string AuthConf::RelaydGetMacAddressByIf(const char* /*ifname*/) {
    Buffer<kTextSize> mac = {};
    return ARDVHsinfoCloudServiceGetMacAddress(mac.data(), mac.size()) < 0 ? std::string() : mac.data();
}

}  // namespace ARDV::Relay
