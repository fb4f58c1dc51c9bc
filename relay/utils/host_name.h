// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <regex>
#include <string>

namespace ARDV::Relay::Utils {

/** The longest host name that is looked at: four times what DNS allows. The expression's matcher recurses for each byte. */
inline constexpr std::size_t kMaxHostNameBytes = 1024;

/**
 * Matches a whole host name with an ECMAScript expression, upper and lower case different. A longer name matches none.
 *
 * @param match takes the whole and the groups; it refers to `host`
 * @throws std::regex_error
 */
bool MatchHostName(const std::string& host, const std::string& expression, std::smatch& match);

}  // namespace ARDV::Relay::Utils
