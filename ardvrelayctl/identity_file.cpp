// SPDX-License-Identifier: Apache-2.0
#include "identity_file.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <utility>
#include <vector>

#include "command_error.h"
#include "descriptor.h"
#include "folder.h"
#include "secret_file.h"

namespace ardv::ctl {

namespace {

constexpr std::size_t kMaxSerial = 35;
constexpr std::size_t kMaxApiKey = 1023;
constexpr std::size_t kTokenDigits = 32;
constexpr std::size_t kApiKeyBytes = 32;
constexpr std::size_t kMacDigits = 12;
constexpr std::size_t kJoinedMac = 17;                    // with what joins the pairs
constexpr std::string_view kGroupDigits = "13579bdfBDF";  // as second digit: the address of a group
constexpr mode_t kFileMode = 0600;

CommandError Unwritable(const std::string& path) {
    const bool isForbidden = errno == EACCES || errno == EPERM || errno == EROFS;
    return {isForbidden ? kExitNoPermission : kExitCantCreate, "cannot write " + path + ": " + std::strerror(errno)};
}

CommandError AlreadyThere() {
    return {kExitCantCreate,
            std::string("the device has an identity already: ") + kIdentityFile +
                " is left as it is (--force replaces it, and the servers take the device for another one then)"};
}

std::vector<unsigned char> RandomBytes(std::size_t count) {
    std::vector<unsigned char> bytes(count);
    if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
        throw CommandError(kExitUnavailable,
                           std::string("the kernel gives no random numbers: ") + std::strerror(errno));
    }
    return bytes;
}

std::string HexDigits(const unsigned char* bytes, std::size_t digits) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    for (std::size_t at = 0; at < digits; ++at) {
        const unsigned byte = bytes[at / 2];
        text += kDigits[at % 2 == 0 ? byte >> 4U : byte & 0xFU];
    }
    return text;
}

/** The platform's rule, which is written down in <ardv/cloud_identity.h>. */
std::string TokenOf(const std::string& serial, const std::string& apiKey) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest = {};
    unsigned length = 0;
    const auto* data = reinterpret_cast<const unsigned char*>(serial.data());
    if (!HMAC(EVP_sha256(), apiKey.data(), static_cast<int>(apiKey.size()), data, serial.size(), digest.data(),
              &length)) {
        throw CommandError(kExitUnavailable, "the cryptographic library makes no token");
    }
    return HexDigits(digest.data(), kTokenDigits);
}

void AppendEntry(std::string& text, const char* key, const std::string& value) {
    text += std::string(key) + "=\"";
    for (const char c : value) {
        if (c == '"' || c == '\\') {
            text += '\\';
        }
        text += c;
    }
    text += "\"\n";
}

std::string TextOf(const Identity& identity) {
    std::string text = "# Who this device is to the relay service. Secrets: mode 0600.\n";
    AppendEntry(text, "serial", identity.serial);
    AppendEntry(text, "token", TokenOf(identity.serial, identity.apiKey));
    AppendEntry(text, "api_key", identity.apiKey);
    if (!identity.mac.empty()) {
        AppendEntry(text, "mac", identity.mac);
    }
    return text;
}

/** A file under a name of its own that is gone with the object, whatever became of its content. */
class TemporaryFile {
public:
    /** @param pattern path that ends in "XXXXXX", in the place of which a new name is found */
    explicit TemporaryFile(std::string pattern) : path_(std::move(pattern)), file_(mkostemp(path_.data(), O_CLOEXEC)) {
        if (!file_.IsOpen() || fchmod(file_.Get(), kFileMode) != 0) {
            throw Unwritable(path_);
        }
    }
    ~TemporaryFile() { unlink(path_.c_str()); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    void Fill(std::string_view text) const {
        while (!text.empty()) {
            const ssize_t count = WriteSome(file_.Get(), text.data(), text.size());
            if (count <= 0) {
                throw Unwritable(path_);
            }
            text.remove_prefix(static_cast<std::size_t>(count));
        }
        if (fsync(file_.Get()) != 0) {
            throw Unwritable(path_);
        }
    }

    const char* Path() const { return path_.c_str(); }

private:
    std::string path_;
    Descriptor file_;
};

void FlushFolder(const std::string& folder) {
    const Descriptor descriptor(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!descriptor.IsOpen() || fsync(descriptor.Get()) != 0) {
        throw Unwritable(folder);
    }
}

/** Gives a file its name unless there is one of that name. */
int RenameWithoutReplacing(const char* from, const char* to) {
    const int result = renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE);
    // Where kernel or file system know no such rename: a link never takes the place of a file either.
    const bool isUnknown = result != 0 && (errno == EINVAL || errno == ENOSYS);
    return isUnknown ? link(from, to) : result;
}

void PutInPlace(const TemporaryFile& file, bool replace) {
    const int result =
        replace ? rename(file.Path(), kIdentityFile) : RenameWithoutReplacing(file.Path(), kIdentityFile);
    if (result != 0) {
        throw errno == EEXIST ? AlreadyThere() : Unwritable(kIdentityFile);
    }
}

/** Without what joins the pairs. */
std::string MacDigits(const std::string& mac) {
    constexpr std::size_t kPair = 3;
    std::string digits;
    for (std::size_t i = 0; i < mac.size(); ++i) {
        const bool joins = mac.size() == kJoinedMac && i % kPair == 2 && (mac[i] == ':' || mac[i] == '-');
        digits += joins ? "" : mac.substr(i, 1);
    }
    return digits;
}

bool IsThere() {
    struct stat status = {};
    return lstat(kIdentityFile, &status) == 0;
}

}  // namespace

const char* SerialFault(const std::string& serial) {
    const bool isPlain = std::all_of(serial.begin(), serial.end(), [](unsigned char c) {
        return (c < 0x80 && std::isalnum(c) != 0) || c == '-' || c == '_' || c == '.';
    });
    return isPlain && !serial.empty() && serial.size() <= kMaxSerial
               ? nullptr
               : "a serial number has 1 to 35 letters, digits, \"-\", \"_\" and dots";
}

const char* ApiKeyFault(const std::string& apiKey) {
    const bool isPlain = std::all_of(apiKey.begin(), apiKey.end(), [](char c) { return c > ' ' && c <= '~'; });
    return isPlain && !apiKey.empty() && apiKey.size() <= kMaxApiKey
               ? nullptr
               : "an API key has 1 to 1023 visible ASCII characters without blanks";
}

const char* MacFault(const std::string& mac) {
    const std::string digits = MacDigits(mac);
    const bool isHex = std::all_of(digits.begin(), digits.end(), [](unsigned char c) { return std::isxdigit(c) != 0; });
    const bool isOneDevice = digits.size() == kMacDigits && digits.find_first_not_of('0') != std::string::npos &&
                             kGroupDigits.find(digits[1]) == std::string_view::npos;
    return isHex && isOneDevice ? nullptr
                                : "this is not the MAC address of one device: six pairs of hexadecimal digits";
}

std::string RandomSerial() {
    constexpr std::string_view kSymbols = "0123456789ABCDEFGHJKMNPQRSTVWXYZ";  // none that is mistaken for another
    constexpr std::size_t kGroup = 4;
    std::string serial = "ARDV";
    const auto bytes = RandomBytes(3 * kGroup);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        serial += i % kGroup == 0 ? "-" : "";
        serial += kSymbols[bytes[i] % kSymbols.size()];
    }
    return serial;
}

std::string RandomApiKey() {
    return HexDigits(RandomBytes(kApiKeyBytes).data(), 2 * kApiKeyBytes);
}

void WriteIdentity(const Identity& identity, bool replace) {
    const std::string folder = std::filesystem::path(kIdentityFile).parent_path();
    if (IsThere() && !replace) {
        throw AlreadyThere();
    }
    if (!MakeFolder(folder)) {
        throw Unwritable(folder);
    }
    const TemporaryFile file(folder + "/.identity.conf.XXXXXX");
    std::string text = TextOf(identity);
    file.Fill(text);
    Wipe(text);
    PutInPlace(file, replace);
    FlushFolder(folder);
}

}  // namespace ardv::ctl
