// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "session.h"

namespace ardv::ctl {

/** Adds "server-id" and "portal-domain" to the tool. */
void AddLookupCommand(CLI::App& app, Session& session);

}  // namespace ardv::ctl
