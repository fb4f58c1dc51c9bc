// SPDX-License-Identifier: Apache-2.0
#include <relay/config/switch_conf.h>

#include <relay/utils/json_text.h>

namespace ARDV::Relay {

SwitchConf::~SwitchConf() = default;

bool SwitchConf::Overwrite(const Json::Value& value) {
    JsonText::Take(value, "enabled", enabled_);
    return true;
}

bool SwitchConf::IsValid() const {
    return true;
}

bool SwitchConf::Write(Json::Value& value, bool /*full*/) const {
    JsonText::EnsureObject(value)["enabled"] = enabled_;
    return true;
}

}  // namespace ARDV::Relay
