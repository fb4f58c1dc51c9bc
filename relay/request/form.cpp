// SPDX-License-Identifier: Apache-2.0
#include <relay/request/form.h>

#include <algorithm>
#include <iterator>

namespace ARDV::Relay::Form {

namespace {

constexpr std::string_view kSecretFields[] = {"token", "key", "kova_password", "auth_key"};

}  // namespace

std::vector<std::string_view> Split(std::string_view form) {
    std::vector<std::string_view> pieces;
    for (std::size_t start = 0; start <= form.size();) {
        const auto end = std::min(form.find('&', start), form.size());
        pieces.push_back(form.substr(start, end - start));
        start = end + 1;
    }
    return pieces;
}

bool IsSecret(std::string_view key) {
    return std::find(std::begin(kSecretFields), std::end(kSecretFields), key) != std::end(kSecretFields);
}

std::string Masked(std::string_view form) {
    std::string masked;
    const char* separator = "";
    for (const auto piece : Split(form)) {
        const auto key = piece.substr(0, piece.find('='));
        masked.append(separator).append(IsSecret(key) ? std::string(key) + "=***" : std::string(piece));
        separator = "&";
    }
    return masked;
}

}  // namespace ARDV::Relay::Form
