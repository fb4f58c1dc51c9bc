// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace ardv::bench {

/** Allocations of this process so far, by new and by libcurl. Those of other libraries (OpenSSL) are not among them. */
std::uint64_t AllocationCount();

/** Has libcurl count its allocations. To be called before anything else of libcurl. */
void CountCurlAllocations();

}  // namespace ardv::bench
