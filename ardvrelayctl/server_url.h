// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace ardv::ctl {

/**
 * What keeps a text from being an alias server's base URL: "http://" or "https://", a host, optionally a port and a
 * path; neither user name and password, which would end up in logs, nor query or fragment, behind which no page can be
 * named.
 *
 * @return words for the user that do not repeat the text; null if it is one
 */
const char* WhatIsWrongWithUrl(const std::string& url);

/**
 * A text with "***" in the place of all that stands between the first "://" and the last "@" in it: a URL's user name and
 * password.
 */
std::string WithoutCredentials(std::string text);

}  // namespace ardv::ctl
