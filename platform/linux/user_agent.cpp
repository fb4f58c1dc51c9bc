// SPDX-License-Identifier: Apache-2.0
#include <ardv/user_agent.h>

#include <sys/utsname.h>

#include <algorithm>
#include <cstdio>
#include <string_view>

#include "platform/linux/error.h"

namespace ARDV::Platform {

namespace {

const char* Machine() {
    static const utsname system = [] {
        utsname found{};
        uname(&found);
        return found;
    }();
    return system.machine;
}

bool IsControl(char c) {
    return static_cast<unsigned char>(c) < ' ' || c == '\x7f';
}

bool IsProduct(const char* product) {
    const std::string_view text = product == nullptr ? "" : product;
    return !text.empty() && std::none_of(text.begin(), text.end(), IsControl);
}

}  // namespace

}  // namespace ARDV::Platform

using namespace ARDV::Platform;

int ALIBHsinfoUserAgentGet(const char* product, char* buffer, size_t size, int flags) {
    const bool usable = buffer != nullptr && size > 0;
    if (usable) {
        *buffer = '\0';
    }
    if (!usable || flags != 0 || !IsProduct(product)) {
        return Fail(ARDV_ERR_INVALID_ARGUMENT);
    }
    if (std::snprintf(buffer, size, "%s/%s (Linux %s)", product, ARDV_VERSION, Machine()) < 0) {
        *buffer = '\0';
        return Fail(ARDV_ERR_INTERNAL);
    }
    return 0;
}
