// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>

namespace ARDV::Sandbox {

/// A name that nobody can guess: two hexadecimal digits for each of `bytes` random bytes, 64 at most.
std::string RandomName(size_t bytes);

}  // namespace ARDV::Sandbox
