// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace ARDV::Relay {

/**
 * Whether the web server redirects HTTP to HTTPS: its setting says so, and its HTTP configuration is not the default one. A
 * plain-HTTP service is of no use to a client of the relay then.
 */
bool IsHttpRedirectedToHttps();

}  // namespace ARDV::Relay
