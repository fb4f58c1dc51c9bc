// SPDX-License-Identifier: Apache-2.0
#include "tunnel_info.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <charconv>

#include <ardv/key_value_file.h>

#include <relay/tunnel/tunnel_names.h>

#include "address_text.h"

namespace ardv::daemon {

using namespace ARDV::Relay;

namespace {

std::string Value(const char* key) {
    std::array<char, 128> buffer = {};
    return ALIBCFileGetKeyValue(TunnelNames::kInformationFile, key, buffer.data(), buffer.size(), 0) == 1
               ? buffer.data()
               : "";
}

std::string Address(const char* key) {
    auto text = Value(key);
    return IsAddress(text, AF_INET) || IsAddress(text, AF_INET6) ? text : std::string();
}

pid_t Process(const char* key) {
    const auto text = Value(key);
    pid_t process = -1;
    const auto* end = text.data() + text.size();
    const auto [at, error] = std::from_chars(text.data(), end, process);
    return error == std::errc() && at == end && process > 1 ? process : -1;
}

// It stands in a folder where anybody may put a file.
bool IsOwn() {
    struct stat facts {};
    return lstat(TunnelNames::kInformationFile, &facts) == 0 && S_ISREG(facts.st_mode) && facts.st_nlink == 1 &&
           facts.st_uid == geteuid();
}

}  // namespace

TunnelInfo ReadTunnelInfo() {
    if (!IsOwn()) {
        return {};
    }
    return {Process("openvpn_pid"), Address("peer_ip"), Address("local_ip"), Address("local_ip6")};
}

bool HasTunnelInfo() {
    struct stat facts {};
    return lstat(TunnelNames::kInformationFile, &facts) == 0;
}

}  // namespace ardv::daemon
