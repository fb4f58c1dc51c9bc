// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "session.h"

namespace ardv::ctl {

/** Adds "tunnel" with its commands: the tunnel to the relay, and what it lets through. */
void AddTunnelCommand(CLI::App& app, Session& session);

}  // namespace ardv::ctl
