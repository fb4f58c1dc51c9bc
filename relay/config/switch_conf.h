// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <relay/config/config_base.h>

namespace ARDV::Relay {

/** One switch, off at first. JSON: "enabled" (boolean), written in both modes. Always valid. */
class ARDVRELAYD_API SwitchConf : public Config {
public:
    bool Overwrite(const Json::Value& value) override;
    bool IsValid() const override;
    bool Write(Json::Value& value, bool full) const override;
    virtual ~SwitchConf();

    void SetEnabled(bool enabled) { enabled_ = enabled; }
    bool GetEnabled() const { return enabled_; }

protected:
    SwitchConf() = default;
    SwitchConf(const SwitchConf&) = default;
    SwitchConf& operator=(const SwitchConf&) = default;

private:
    bool enabled_ = false;
};

}  // namespace ARDV::Relay
