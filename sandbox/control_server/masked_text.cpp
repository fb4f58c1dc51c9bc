// SPDX-License-Identifier: Apache-2.0
#include "masked_text.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "http/text.h"

namespace ARDV::Sandbox {
namespace {

constexpr size_t kLimit = 4096;
constexpr std::string_view kSecrets[] = {"token", "key", "session", "channel", "relay_user", "relay_pass"};

bool IsSecret(const std::string& name) {
    return std::find(std::begin(kSecrets), std::end(kSecrets), name) != std::end(kSecrets);
}

// The reader bounds how deep a value is.
void Mask(Json::Value& value) {  // NOLINT(misc-no-recursion)
    if (value.isArray()) {
        std::for_each(value.begin(), value.end(), Mask);
    }
    if (!value.isObject()) {
        return;
    }
    for (const std::string& name : value.getMemberNames()) {
        if (IsSecret(name)) {
            value[name] = "***";
        } else {
            Mask(value[name]);
        }
    }
}

}  // namespace

std::string Masked(const Json::Value& value) {
    Json::Value masked = value;
    Mask(masked);
    std::string text = ToJsonText(masked);
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c < 0x20 || c > 0x7E; }, '?');
    return text.size() > kLimit ? text.substr(0, kLimit) + "..." : text;
}

}  // namespace ARDV::Sandbox
