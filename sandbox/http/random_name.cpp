// SPDX-License-Identifier: Apache-2.0
#include "http/random_name.h"

#include <openssl/rand.h>

#include <algorithm>
#include <array>
#include <cstdlib>

namespace ARDV::Sandbox {

std::string RandomName(size_t bytes) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::array<unsigned char, 64> random{};
    const size_t count = std::min(bytes, random.size());
    if (RAND_bytes(random.data(), static_cast<int>(count)) != 1) {
        std::abort();  // without randomness no name would be a secret
    }
    std::string name;
    for (size_t i = 0; i < count; ++i) {
        name += {kDigits[random[i] >> 4], kDigits[random[i] & 15]};
    }
    return name;
}

}  // namespace ARDV::Sandbox
