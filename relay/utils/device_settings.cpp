// SPDX-License-Identifier: Apache-2.0
#include <relay/utils/device_settings.h>

#include <cstring>
#include <utility>

#include <ardv/key_value_file.h>

namespace ARDV::Relay::DeviceSettings {

namespace {

constexpr std::size_t kTimeZoneSize = 256;

}  // namespace

Setting Read(const char* file, const char* key, std::size_t size) {
    std::string text(size, '\0');
    const int result = ALIBCFileGetKeyValue(file, key, text.data(), size, 0);
    text.resize(result > 0 ? std::strlen(text.c_str()) : 0);
    return {result, std::move(text)};
}

Setting Read(const char* key, std::size_t size) {
    return Read(kFile, key, size);
}

bool Is(const char* key, const char* value) {
    return ALIBCFileCheckKeyValue(kFile, key, value, 0) == 1;
}

std::string TimeZone() {
    return Read("timezone", kTimeZoneSize).text;
}

}  // namespace ARDV::Relay::DeviceSettings
