// SPDX-License-Identifier: Apache-2.0
#include <relay/utils/utils.h>

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <memory>

#include <openssl/evp.h>

#include <ardv/key_value_file.h>

#include <relay/daemon/log.h>
#include <relay/utils/descriptor.h>

RELAY_LOG_SOURCE("utils.cpp");

namespace ARDV::Relay::Utils {

namespace {

struct DigestFree {
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};

std::string ToHex(const unsigned char* bytes, std::size_t count) {
    constexpr const char kDigits[] = "0123456789abcdef";
    std::string hex;
    hex.reserve(2 * count);
    for (std::size_t i = 0; i < count; ++i) {
        hex += kDigits[bytes[i] >> 4U];
        hex += kDigits[bytes[i] & 0x0FU];
    }
    return hex;
}

}  // namespace

std::uint32_t Random() {
    const Descriptor device(open("/dev/urandom", O_RDONLY | O_CLOEXEC));
    if (!device.IsOpen()) {
        RELAY_LOG_AT(106, LOG_ERR, "failed to open /dev/urandom");
        return 0;
    }
    std::uint32_t value = 0;
    if (read(device.Get(), &value, sizeof value) < static_cast<ssize_t>(sizeof value)) {
        RELAY_LOG_AT(112, LOG_ERR, "failed to read bytes from /dev/urandom");
    }
    return value;
}

std::string GetMD5Hex(const void* data, std::size_t count) {
    const std::unique_ptr<EVP_MD_CTX, DigestFree> context(EVP_MD_CTX_new());
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest = {};
    unsigned int length = 0;
    const bool digested = context && EVP_DigestInit_ex(context.get(), EVP_md5(), nullptr) == 1 &&
                          EVP_DigestUpdate(context.get(), data, count) == 1 &&
                          EVP_DigestFinal_ex(context.get(), digest.data(), &length) == 1;
    return digested ? ToHex(digest.data(), length) : std::string();
}

std::string GetNuid(const std::string& text) {
    return GetMD5Hex(text.c_str(), std::strlen(text.c_str()));
}

bool IsFailoverEnable() {
    return ALIBCFileCheckKeyValue("/etc/ardvinfo.conf", "tethra_enable_failover", "true", 0) == 1;
}

}  // namespace ARDV::Relay::Utils
