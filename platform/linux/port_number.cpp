// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/port_number.h"

#include <charconv>

namespace ARDV::Platform {

std::optional<int> ParsePort(std::string_view text) {
    constexpr int kLastPort = 65535;
    int port = 0;
    const char* end = text.data() + text.size();
    const auto [last, error] = std::from_chars(text.data(), end, port);
    const bool isPort = error == std::errc() && last == end && port >= 1 && port <= kLastPort;
    return isPort ? std::optional(port) : std::nullopt;
}

}  // namespace ARDV::Platform
