// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

#include <json/value.h>

namespace ardv::ctl {

/** A JSON file of the system, and what it is called when the tool speaks of it. */
struct JsonFile {
    const char* what;  ///< "the configuration", for example
    std::string path;

    std::string Name() const { return std::string(what) + " " + path; }
};

/** Where a text stops being JSON. Nothing of the text is quoted. */
struct JsonFault {
    std::size_t line = 0;    ///< from 1; 0 if it is no matter of a place (too many values within each other)
    std::size_t column = 0;  ///< in bytes, from 1
    std::string reason;
};

/**
 * Reads a file's text. The file itself stays as it is, whatever it holds: one that the user named by mistake must not
 * be moved aside as the library does with a damaged one.
 *
 * @return no value if there is no such file
 * @throws CommandError unless it is a regular file of at most `kMaxJsonFileSize` bytes that can be read. In a folder
 *         that everybody may write to it must belong to this user or to root, have one name, and be no symbolic link.
 */
std::optional<std::string> ReadText(const JsonFile& file);

/** What a parser does with comments: those that are kept are written again with the value. */
enum class Comments { kDrop, kKeep };

/**
 * Parses a text as the library does.
 *
 * @return no value if it is JSON; else where it isn't, with `value` null
 */
std::optional<JsonFault> Parse(const std::string& text, Json::Value& value, Comments comments = Comments::kDrop);

/**
 * What stands behind the first value of a text that is JSON, other than blanks and comments. The library passes over it,
 * and it is lost when the file is written again.
 *
 * @param value as `Parse` made it of this text
 * @return no value if nothing does; else where it begins
 */
std::optional<JsonFault> TextBehind(const std::string& text, const Json::Value& value);

/** Whether a text that is JSON has a key twice in one object. */
bool HasKeyTwice(const std::string& text);

/** Throws CommandError, with words for the user, unless this user may write to the file's folder. */
void CheckFolder(const JsonFile& file);

/**
 * Replaces a file by a value, as `RelaydConf::WriteJsonFile` does, and makes sure that it is there now.
 *
 * @throws CommandError if it cannot be written
 */
void Write(const JsonFile& file, const Json::Value& value);

}  // namespace ardv::ctl
