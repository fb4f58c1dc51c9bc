// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace ardv::daemon {

/** Whether a text can be the name of a host, or its IPv4 address: letters, digits, hyphens and dots, at most 253 (RFC 1035). */
bool IsHostName(const std::string& text);

/** Whether a text is an address of this family (AF_INET, AF_INET6). */
bool IsAddress(const std::string& text, int family);

/** Whether a URL is one of HTTPS. */
bool IsHttps(const std::string& url);

}  // namespace ardv::daemon
