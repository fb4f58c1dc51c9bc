// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

#include <json/value.h>

namespace ardv::ctl {

/** Prints a JSON value on standard output, indented, with non-ASCII text as it is. */
void PrintJson(const Json::Value& value);

/** Prints the members of an object, one "key: value" a line, indented by two blanks. Control characters are shown as
 * "?". */
void PrintMembers(const Json::Value& object);

/** Prints "ardvrelayctl: TEXT" on standard error. */
void Complain(std::string_view text);

/** A text from elsewhere made fit for a terminal: control characters become "?". */
std::string Printable(std::string_view text);

}  // namespace ardv::ctl
