// SPDX-License-Identifier: Apache-2.0
#include <relay/config/support_channel_conf.h>

namespace ARDV::Relay {

SupportChannelConf::~SupportChannelConf() = default;

}  // namespace ARDV::Relay
