// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "platform/linux/error.h"
#include "platform/linux/interface_type.h"

namespace ARDV::Platform {

/// The interfaces of the caller's network namespace, in the order of their indices.
Result<std::vector<NetworkLink>> ReadNetworkLinks();

}  // namespace ARDV::Platform
