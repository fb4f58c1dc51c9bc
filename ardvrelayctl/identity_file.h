// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace ardv::ctl {

/** Where this machine's platform keeps the identity; see <ardv/cloud_identity.h>. */
inline constexpr const char kIdentityFile[] = "/etc/ardv/identity.conf";

struct Identity {
    std::string serial;
    std::string apiKey;
    std::string mac;  ///< empty: that of the first wired interface
};

/**
 * What is wrong with a serial number, an API key or a MAC address, in words that do not repeat it; null if nothing is.
 */
const char* SerialFault(const std::string& serial);
const char* ApiKeyFault(const std::string& apiKey);
const char* MacFault(const std::string& mac);

/** A random serial number, easy to read out: "ARDV-" and three groups of four letters and digits. */
std::string RandomSerial();

/** A random API key: 64 hexadecimal digits. */
std::string RandomApiKey();

/**
 * Makes the identity file, with the token that belongs to serial number and API key: mode 0600 from its first byte on,
 * complete when it appears under its name. Its folder is made if there is none.
 *
 * @param replace whether a file that is there is replaced
 * @throws CommandError if it cannot be written, or if there is one and it is not to be replaced
 */
void WriteIdentity(const Identity& identity, bool replace);

}  // namespace ardv::ctl
