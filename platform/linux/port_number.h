// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string_view>

namespace ARDV::Platform {

/// The port that a text of decimal digits alone says, 1 to 65535.
std::optional<int> ParsePort(std::string_view text);

}  // namespace ARDV::Platform
