// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace ardv::test {

/** A TCP connection to `port` of this machine, for the caller to close; a receive takes 20 seconds at most. */
int ConnectTo(int port);

/** What comes back to raw bytes, after which nothing more is sent, until the server closes the connection. */
std::string RawExchange(int port, const std::string& bytes);

}  // namespace ardv::test
