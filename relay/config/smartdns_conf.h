// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <relay/config/switch_conf.h>

namespace ARDV::Relay {

/** Whether the service's DNS may answer with the address that suits the asker, the one in the home network included. */
class ARDVRELAYD_API SmartDNSConf : public SwitchConf {
public:
    SmartDNSConf() = default;
    SmartDNSConf(const SmartDNSConf&) = default;
    SmartDNSConf& operator=(const SmartDNSConf&) = default;
    ~SmartDNSConf() override;
};

}  // namespace ARDV::Relay
