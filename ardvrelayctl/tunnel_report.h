// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

#include <json/value.h>

#include "tunnel_state.h"

namespace ardv::ctl {

/** Prints everything that is known of the tunnel, one "label: text" a line. */
void PrintTunnel(const TunnelState& tunnel);

/** The tunnel for a program, with the names of the status file; what isn't known is left out. */
Json::Value TunnelAsJson(const TunnelState& tunnel);

/** The tunnel in a few words, for a line of the status: "READY, relay 198.51.100.7". No value stands for one that cannot be read. */
std::string TunnelInShort(const std::optional<TunnelState>& tunnel);

}  // namespace ardv::ctl
