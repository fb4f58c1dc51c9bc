// SPDX-License-Identifier: Apache-2.0
#include "guarded_call.h"

#include "log.h"

DAEMON_LOG_SOURCE("guarded_call.cpp");

namespace ardv::daemon {

void LogEscaped(std::string_view who, const char* what) noexcept {
    DAEMON_LOG(LOG_ERR, "%.*s failed: %s", static_cast<int>(who.size()), who.data(), what);
}

}  // namespace ardv::daemon
