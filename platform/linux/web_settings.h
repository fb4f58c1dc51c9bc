// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace ARDV::Platform {

/// The web server's settings: key="value" lines.
inline constexpr const char* kWebSettingsFile = "/etc/ardv/web.conf";

/// The value of a key in the file of web settings, at most 1,023 bytes of it; empty where there is none.
std::string WebSetting(const char* key);

}  // namespace ARDV::Platform
