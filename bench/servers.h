// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace ardv::bench {

/** Base URLs of the servers that the request benchmarks talk to; set by main. */
inline std::string gHttpUrl;
inline std::string gHttpsUrl;

}  // namespace ardv::bench
