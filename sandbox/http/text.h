// SPDX-License-Identifier: Apache-2.0
// Small text helpers shared by the servers' parts.
#pragma once

#include <json/json.h>

#include <optional>
#include <string>
#include <string_view>

namespace ARDV::Sandbox {

/// The time now, UTC, to the millisecond: "2026-01-31T08:15:00.123Z".
std::string Timestamp();

/// True when `text` has the form that Timestamp() gives; the calendar is not checked.
bool IsTimestamp(std::string_view text);

/// True when `text` is well-formed UTF-8 (no overlong forms, no surrogates, nothing above U+10FFFF).
bool IsUtf8(std::string_view text);

/// True when `text` holds a byte below 0x20 or the byte 0x7F.
bool HasControlCharacter(std::string_view text);

/// `text` fit for one log line: bytes outside printable ASCII, blanks, quotes and backslashes as \xNN, and cut
/// after `limit` source bytes ("..." then marks the cut).
std::string Printable(std::string_view text, size_t limit);

/// `text` with the ASCII letters made small.
std::string Lower(std::string_view text);

/// `value` as JSON on one line, without a line feed.
std::string ToJsonText(const Json::Value& value);

/// Reads exactly one JSON value. Success: the value. Failure (no JSON, something after it, a key twice, nested too
/// deep): nothing, and `error` holds the reason.
std::optional<Json::Value> ParseJson(std::string_view text, std::string& error);

}  // namespace ARDV::Sandbox
