// SPDX-License-Identifier: Apache-2.0
#include <relay/config/config_base.h>

#include <relay/utils/json_text.h>

namespace ARDV::Relay {

bool Config::WriteConfig() {
    return true;
}

std::ostream& operator<<(std::ostream& stream, const Config& config) {
    Json::Value value;
    config.Write(value, true);
    return stream << JsonText::Compact(value);
}

}  // namespace ARDV::Relay
