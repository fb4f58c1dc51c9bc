// SPDX-License-Identifier: Apache-2.0
#include <relay/config/device_settings.h>

#include <array>

#include <ardv/key_value_file.h>

namespace ARDV::Relay::DeviceSettings {

namespace {

constexpr const char kFile[] = "/etc/ardvinfo.conf";
constexpr std::size_t kTimeZoneSize = 256;

}  // namespace

bool Is(const char* key, const char* value) {
    return ALIBCFileCheckKeyValue(kFile, key, value, 0) == 1;
}

std::string TimeZone() {
    std::array<char, kTimeZoneSize> timezone = {};
    const int found = ALIBCFileGetKeyValue(kFile, "timezone", timezone.data(), timezone.size(), 0);
    return found > 0 ? timezone.data() : std::string();
}

}  // namespace ARDV::Relay::DeviceSettings
