// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <string_view>

#include "platform/linux/error.h"

namespace ARDV::Platform {

/// The names in a folder that end so and aren't hidden, in order; no more than the first `limit` of them. What they
/// name isn't looked at. ARDV_ERR_NOT_FOUND without the folder.
Result<std::set<std::string>> ListFolder(const std::string& path, std::string_view suffix, std::size_t limit);

}  // namespace ARDV::Platform
