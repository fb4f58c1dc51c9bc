// SPDX-License-Identifier: Apache-2.0
#include "address_text.h"

#include <arpa/inet.h>

#include <algorithm>

namespace ardv::daemon {

namespace {

constexpr std::size_t kMaxHostSize = 253;  // RFC 1035, without the root's dot

bool IsAlphanumeric(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

}  // namespace

bool IsHostName(const std::string& text) {
    const auto belongs = [](char c) { return IsAlphanumeric(c) || c == '.' || c == '-'; };
    return !text.empty() && text.size() <= kMaxHostSize && IsAlphanumeric(text.front()) &&
           IsAlphanumeric(text.back()) && std::all_of(text.begin(), text.end(), belongs) &&
           text.find("..") == std::string::npos;
}

bool IsAddress(const std::string& text, int family) {
    in6_addr address = {};  // the larger one
    return text.find('\0') == std::string::npos && inet_pton(family, text.c_str(), &address) == 1;
}

bool IsHttps(const std::string& url) {
    return url.rfind("https://", 0) == 0;
}

}  // namespace ardv::daemon
