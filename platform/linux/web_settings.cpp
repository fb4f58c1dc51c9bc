// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/web_settings.h"

#include <ardvw3/engine.h>
#include <ardvw3/hos.h>
#include <ardvw3/www_service.h>

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>

#include <ardv/key_value_file.h>

#include "platform/linux/error.h"
#include "platform/linux/port_number.h"

namespace ARDV::Platform {

namespace {

constexpr std::size_t kValueSize = 1024;
constexpr std::size_t kMaxHostName = 253;
constexpr std::string_view kHostNameCharacters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-.";

bool IsOn(const char* key) {
    return ALIBCFileCheckKeyValue(kWebSettingsFile, key, "yes", 0) == 1;
}

int Port(const char* key, int otherwise) {
    return ParsePort(WebSetting(key)).value_or(otherwise);
}

bool IsHostName(std::string_view name) {
    return !name.empty() && name.size() <= kMaxHostName &&
           name.find_first_not_of(kHostNameCharacters) == std::string_view::npos;
}

/// Whether the key has no value: it's empty, or absent, or the file is.
bool IsUnset(const char* key) {
    std::array<char, 2> value = {};
    const int found = ALIBCFileGetKeyValue(kWebSettingsFile, key, value.data(), value.size(), 0);
    return found < 0 ? ALIBCErrGet() == ARDV_ERR_NOT_FOUND : value.front() == '\0';
}

}  // namespace

std::string WebSetting(const char* key) {
    std::array<char, kValueSize> value = {};
    return ALIBCFileGetKeyValue(kWebSettingsFile, key, value.data(), value.size(), 0) == 1 ? value.data()
                                                                                           : std::string();
}

}  // namespace ARDV::Platform

namespace ardvw3 {

using namespace ARDV::Platform;

namespace {

constexpr const char* kRelayName = "relay_ddns";
constexpr int kDefaultHttpPort = 5000;
constexpr int kDefaultHttpsPort = 5001;

}  // namespace

Engine::Engine() = default;
Engine::~Engine() = default;

class HOS::Settings {
public:
    std::optional<std::string> relayName;  ///< noted and not committed; empty: none is to be registered
};

HOS::HOS(Engine& /*engine*/) : settings_(std::make_unique<Settings>()) {}
HOS::~HOS() = default;

int HOS::GetHttpPort() const {
    return Port("http_port", kDefaultHttpPort);
}

int HOS::GetHttpsPort() const {
    return Port("https_port", kDefaultHttpsPort);
}

bool HOS::GetEnableSPDY() const {
    return IsOn("http2");
}

bool HOS::GetEnableHttpsRedirect() const {
    return IsOn("https_redirect");
}

std::string HOS::GetRelayDDNS() const {
    return WebSetting(kRelayName);
}

int HOS::SetEnableRelayDDNS(const std::string& name) {
    if (!IsHostName(name)) {
        return Fail(ARDV_ERR_INVALID_ARGUMENT);
    }
    return Guarded([&] {
        settings_->relayName = std::string(name);
        return 0;
    });
}

int HOS::SetDisableRelayDDNS() {
    settings_->relayName.emplace();
    return 0;
}

bool HOS::Set() {
    std::optional<std::string>& name = settings_->relayName;
    if (!name) {
        return true;
    }
    const bool isDone = name->empty() && IsUnset(kRelayName);
    if (!isDone && ALIBCFileSetKeyValue(kWebSettingsFile, kRelayName, name->c_str(), 0) != 0) {
        return false;
    }
    name.reset();
    return true;
}

WWWService::WWWService(Engine& /*engine*/) {}

bool WWWService::GetEnableSPDY() const {
    return IsOn("www_http2");
}

}  // namespace ardvw3
