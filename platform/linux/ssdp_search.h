// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "platform/linux/deadline.h"
#include "platform/linux/error.h"
#include "platform/linux/router_link.h"

namespace ARDV::Platform {

/// Asks the gateway of `link` where it describes itself as a UPnP router: to its own address and to the group that all
/// routers listen to, on its interface. The first answer that serves is taken: one from the gateway's address,
/// that says to be a router and names a description on that address. Anybody else's answer is passed over.
///
/// Returns the URL of the description. Failures: ARDV_ERR_NO_ANSWER (none until the deadline), ARDV_ERR_NO_DEVICE
/// (nothing can be sent).
Result<std::string> FindGatewayDescription(const RouterLink& link, const Deadline& deadline);

}  // namespace ARDV::Platform
