// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Text from elsewhere, made fit to be shown, printed or kept. It is taken for UTF-8 and may be anything; a byte that
 * belongs to no well-formed character is malformed.
 */
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace ardv::ctl {

/** The text in one line that a terminal shows as it stands: control characters, characters that turn the direction of
 * writing or end a line, and malformed bytes become "?". */
std::string Printable(std::string_view text);

/** `Printable`, and of more than 200 characters the first 200 with "..." behind them. */
std::string Excerpt(std::string_view text);

/** The text as well-formed UTF-8 of at most `maxBytes` bytes: malformed bytes become U+FFFD, and what is too long is cut
 * between two characters. */
std::string WellFormed(std::string_view text, std::size_t maxBytes);

/** JSON text in printable ASCII and line feeds alone: other characters become "\uXXXX", malformed bytes "\ufffd". */
std::string AsciiJson(std::string_view json);

}  // namespace ardv::ctl
