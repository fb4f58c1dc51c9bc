// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace ardv::test {

/**
 * Puts stand-ins in the place of OpenVPN, the packet filter's programs and the control script. OpenVPN does as the port of its candidate says,
 * and notes each try; the others note what they are called with.
 */
void InstallTunnelStandIns();

/** What the stand-in of OpenVPN does at a port. */
inline constexpr const char kEndsAtOnce[] = "1001";
inline constexpr const char kComesUp[] = "1002";
inline constexpr const char kHangs[] = "1003";
inline constexpr const char kIsStubborn[] = "1004";  ///< comes up, and does not end when it is told to

/** Port and user of each try so far, e.g. "1002 box-1". */
std::vector<std::string> TunnelTries();

/** Process of the last try; -1 where there was none. */
int TunnelChild();

/** What the other programs were called with, e.g. "iptables -F TETHRA_RELAY", since the last call. */
std::vector<std::string> TunnelCalls();

/** Forgets the tries. */
void ForgetTunnelTries();

}  // namespace ardv::test
