// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The chain of the packet filter that guards the tunnel's interface: its rules, IPv4 first and then IPv6. Failures are
 * logged.
 */
#pragma once

namespace ARDV::Relay::PacketFilter {

/** Accepts TCP to a port, before all other rules. */
void AcceptPort(int port);

/** Drops everything, behind all other rules; then accepts ICMP, before all other rules. */
void InsertDefault();

/** Empties the chain. */
void Flush();

}  // namespace ARDV::Relay::PacketFilter
