// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <json/value.h>

#include "exit_code.h"

namespace ardv::ctl {

/**
 * To be called before anything is opened: standard input, output and error become open descriptors, so that no file
 * takes the place of one that is missing, and a reader who leaves makes writing fail rather than end the process before
 * the outcome is recorded.
 */
void PrepareOutput();

/**
 * Flushes standard output.
 *
 * @return `exitCode`; `kExitIo`, with a message, if not all that was printed could be written
 */
ExitCode FinishOutput(ExitCode exitCode);

/** Prints a JSON value on standard output, indented, in ASCII. */
void PrintJson(const Json::Value& value);

/** Likewise in one line, which is out when this returns: for one of a series of values. False if it could not be written. */
bool PrintJsonLine(const Json::Value& value);

/**
 * Prints the members of an object as excerpts, one "key: value" a line, indented by two blanks; at most 100 of them.
 */
void PrintMembers(const Json::Value& object);

/**
 * Prints every member of nested objects and lists, one "dotted.key: value" a line; "[2]" is the third element of a
 * list.
 */
void PrintDotted(const Json::Value& object);

/** Prints rows below each other, the columns aligned, as excerpts. */
void PrintTable(const std::vector<std::vector<std::string>>& rows);

/** A value as text: that of a string as it is, of anything else as JSON in one line. */
std::string PlainText(const Json::Value& value);

/** Prints "ardvrelayctl: TEXT" on standard error. */
void Complain(std::string_view text);

/** Adds "error" and "exit_code" to a report. */
void AddFailure(Json::Value& report, std::string_view text, ExitCode exitCode);

/** Tells of a failure in words, and in JSON as well if `asJson`. Returns `exitCode`. */
ExitCode Fail(std::string_view text, ExitCode exitCode, bool asJson);

}  // namespace ardv::ctl
