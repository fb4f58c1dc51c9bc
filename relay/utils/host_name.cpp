// SPDX-License-Identifier: Apache-2.0
#include <relay/utils/host_name.h>

namespace ARDV::Relay::Utils {

bool MatchHostName(const std::string& host, const std::string& expression, std::smatch& match) {
    return host.size() <= kMaxHostNameBytes && std::regex_match(host, match, std::regex(expression));
}

}  // namespace ARDV::Relay::Utils
