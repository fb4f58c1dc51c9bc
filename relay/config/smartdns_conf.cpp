// SPDX-License-Identifier: Apache-2.0
#include <relay/config/smartdns_conf.h>

namespace ARDV::Relay {

SmartDNSConf::~SmartDNSConf() = default;

}  // namespace ARDV::Relay
