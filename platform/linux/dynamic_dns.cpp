// SPDX-License-Identifier: Apache-2.0
#include <ardv/dynamic_dns.h>

#include <algorithm>
#include <string>
#include <string_view>

#include "platform/linux/error.h"
#include "platform/linux/key_value_cache.h"
#include "platform/linux/text_buffer.h"

namespace ARDV::Platform {

namespace {

constexpr std::string_view kFolder = "/etc/ardv/ddns/";
constexpr std::string_view kSuffix = ".conf";
constexpr std::size_t kMaxProviderBytes = 128;
constexpr std::size_t kMaxHostNameBytes = 253;  // RFC 1035, as text without the last dot

bool IsControl(char c) {
    return static_cast<unsigned char>(c) < ' ' || c == '\x7f';
}

/// A provider's name becomes a file name, so it mustn't lead out of the folder.
bool IsProvider(const char* provider) {
    const std::string_view name = provider == nullptr ? "" : provider;
    return !name.empty() && name.size() <= kMaxProviderBytes && name.front() != '.' &&
           name.find('/') == std::string_view::npos && std::none_of(name.begin(), name.end(), IsControl);
}

bool IsHostNameByte(char c) {
    const bool isLetter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    return isLetter || (c >= '0' && c <= '9') || c == '-' || c == '_' || c == '.';
}

Result<std::string> ReadHostName(std::string_view provider) {
    Result<MaybeText> value = ReadKeyValue(std::string(kFolder).append(provider).append(kSuffix), "hostname");
    if (!value) {
        return value.Reason();
    }
    if (!*value || (*value)->empty()) {
        return MakeError(ARDV_ERR_NO_VALUE);
    }
    const std::string& name = **value;
    const bool isGood = name.size() <= kMaxHostNameBytes && std::all_of(name.begin(), name.end(), IsHostNameByte);
    return isGood ? Result<std::string>(name) : MakeError(ARDV_ERR_BAD_VALUE);
}

}  // namespace

}  // namespace ARDV::Platform

using namespace ARDV::Platform;

int ARDVDDNSConfigGet(const char* provider, ARDV_DDNS_CONFIG* config) {
    if (config == nullptr) {
        return Fail(ARDV_ERR_INVALID_ARGUMENT);
    }
    const TextBuffer hostName(config->hostname, sizeof(config->hostname));
    if (!IsProvider(provider)) {
        return Fail(ARDV_ERR_INVALID_ARGUMENT);
    }
    return Guarded([&] { return Finish(StoreWhole(ReadHostName(provider), hostName)); });
}
