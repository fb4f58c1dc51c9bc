// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/linux/error.h"

namespace ARDV::Platform {

using MaybeText = std::optional<std::string>;

/// The value of a key in a key/value file of any size that <ardv/key_value_file.h> allows; no text when the file has no
/// such key. Small files that have been parsed are kept, so that a lookup costs one stat(2) as long as the file is
/// provably the same.
Result<MaybeText> ReadKeyValue(const std::string& path, std::string_view key);

}  // namespace ARDV::Platform
