// SPDX-License-Identifier: Apache-2.0
#include <ardv/cloud_identity.h>

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <array>
#include <string>
#include <string_view>

#include "platform/linux/error.h"
#include "platform/linux/file.h"
#include "platform/linux/hardware_address.h"
#include "platform/linux/key_value_text.h"
#include "platform/linux/text_buffer.h"

namespace ARDV::Platform {

namespace {

constexpr const char* kIdentityFile = "/etc/ardv/identity.conf";
constexpr std::size_t kMaxIdentityBytes = 65536;

Result<std::string> ReadIdentity() {
    Result<FileContents> contents = ReadFile(kIdentityFile, kMaxIdentityBytes);
    if (!contents) {
        return contents.Reason();
    }
    if (CouldOthersHaveWritten(contents->status)) {
        return MakeError(ARDV_ERR_UNSAFE_FILE);
    }
    return std::move(contents->text);
}

Result<std::string> NeededValue(std::string_view identity, std::string_view key) {
    std::optional<std::string> value = GetKeyValue(identity, key);
    if (!value || value->empty()) {
        return MakeError(ARDV_ERR_NO_VALUE);
    }
    return std::move(*value);
}

Result<std::string> ReadApiKey() {
    const Result<std::string> identity = ReadIdentity();
    return identity ? NeededValue(*identity, "api_key") : identity.Reason();
}

Failure ReadSerialAndToken(const TextBuffer& serialBuffer, const TextBuffer& tokenBuffer) {
    const Result<std::string> identity = ReadIdentity();
    if (!identity) {
        return identity.Reason();
    }
    const Result<std::string> token = NeededValue(*identity, "token");
    if (!token) {
        return token.Reason();
    }
    if (const Failure failure = tokenBuffer.CheckRoom(*token)) {
        return failure;
    }
    if (const Failure failure = StoreWhole(NeededValue(*identity, "serial"), serialBuffer)) {
        return failure;
    }
    tokenBuffer.Store(*token);
    return {};
}

std::string HexDigits(const unsigned char* bytes, std::size_t digits) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    for (std::size_t at = 0; at < digits; ++at) {
        const unsigned byte = bytes[at / 2];
        text += kDigits[at % 2 == 0 ? byte >> 4 : byte & 0xf];
    }
    return text;
}

Result<std::string> MakeToken(std::string_view serial) {
    Result<std::string> key = ReadApiKey();
    if (!key) {
        return key;
    }
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned length = 0;
    const auto* data = reinterpret_cast<const unsigned char*>(serial.data());
    const unsigned char* made =
        HMAC(EVP_sha256(), key->data(), static_cast<int>(key->size()), data, serial.size(), digest.data(), &length);
    if (made == nullptr || length < (ARDV_TOKEN_SIZE - 1) / 2) {
        return MakeError(ARDV_ERR_CRYPTO);
    }
    return HexDigits(digest.data(), ARDV_TOKEN_SIZE - 1);
}

/// The `mac` of the identity file; empty when it is to be taken from an interface.
Result<std::string> ConfiguredMac() {
    const Result<std::string> identity = ReadIdentity();
    if (!identity) {
        const bool absent = identity.Reason().code == ARDV_ERR_NOT_FOUND;
        return absent ? Result(std::string()) : identity.Reason();
    }
    return GetKeyValue(*identity, "mac").value_or("");
}

Result<HardwareAddress> ReadMac() {
    const Result<std::string> configured = ConfiguredMac();
    if (!configured) {
        return configured.Reason();
    }
    if (configured->empty()) {
        return FirstWiredAddress();
    }
    const std::optional<HardwareAddress> address = ParseHardwareAddress(*configured);
    return address && IsDeviceAddress(*address) ? Result(*address) : MakeError(ARDV_ERR_BAD_VALUE);
}

Result<std::string> ReadMacText() {
    const Result<HardwareAddress> address = ReadMac();
    return address ? Result(FormatHardwareAddress(*address)) : address.Reason();
}

}  // namespace

}  // namespace ARDV::Platform

using namespace ARDV::Platform;

int ARDVCloudServiceHstokenGetToken(char* serial, size_t serialSize, char* token, size_t tokenSize) {
    const TextBuffer serialBuffer(serial, serialSize);
    const TextBuffer tokenBuffer(token, tokenSize);
    if (!serialBuffer.IsUsable() || !tokenBuffer.IsUsable()) {
        return Fail(ARDV_ERR_INVALID_ARGUMENT);
    }
    return Guarded([&] { return Finish(ReadSerialAndToken(serialBuffer, tokenBuffer)); });
}

int ARDVCloudServiceHstokenGenerateToken(const char* serial, char* token, size_t size) {
    const TextBuffer buffer(token, size);
    if (!buffer.IsUsable() || serial == nullptr || *serial == '\0') {
        return Fail(ARDV_ERR_INVALID_ARGUMENT);
    }
    return Guarded([&] { return Finish(StoreWhole(MakeToken(serial), buffer)); });
}

int ARDVCloudServiceGetApiKey(char* key, int flags) {
    const TextBuffer buffer(key, ARDV_API_KEY_SIZE);
    if (!buffer.IsUsable() || flags != 0) {
        return Fail(ARDV_ERR_INVALID_ARGUMENT);
    }
    return Guarded([&] { return Finish(StoreWhole(ReadApiKey(), buffer)); });
}

int ARDVHsinfoCloudServiceGetMacAddress(char* mac, size_t size) {
    const TextBuffer buffer(mac, size);
    if (!buffer.IsUsable()) {
        return Fail(ARDV_ERR_INVALID_ARGUMENT);
    }
    return Guarded([&] { return Finish(StoreWhole(ReadMacText(), buffer)); });
}
