// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <relay/config/switch_conf.h>

namespace ARDV::Relay {

/** Whether the maker's support may reach the device through the relay. */
class ARDVRELAYD_API SupportChannelConf : public SwitchConf {
public:
    SupportChannelConf() = default;
    SupportChannelConf(const SupportChannelConf&) = default;
    SupportChannelConf& operator=(const SupportChannelConf&) = default;
    ~SupportChannelConf() override;
};

}  // namespace ARDV::Relay
