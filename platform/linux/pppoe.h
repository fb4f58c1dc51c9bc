// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "platform/linux/error.h"

namespace ARDV::Platform {

/// The interface of the PPPoE connection.
struct PppoeConnection {
    std::string name;
    std::string ip;
    std::string mask;
};

/// The connection as <ardv/network.h> defines it; ARDV_ERR_NO_DEVICE without one.
Result<PppoeConnection> FindPppoeConnection();

}  // namespace ARDV::Platform
