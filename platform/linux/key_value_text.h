// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ARDV::Platform {

// The key/value format of <ardv/key_value_file.h> as functions on text: no file, no state, any bytes.

/// A value as it stands in a text: where its token is, quotes included, and what is between the quotes.
struct KeyValueToken {
    std::size_t offset = 0;
    std::size_t length = 0;
    std::string_view content;
    bool escaped = false;  ///< in double quotes, so `content` may have escapes
};

/// Finds the first entry of `key`. Nothing when there is none; views point into `text`.
std::optional<KeyValueToken> FindKeyValue(std::string_view text, std::string_view key);

/// The value that a token stands for.
std::string DecodeKeyValue(const KeyValueToken& token);

/// The value of the first entry of `key`; nothing when there is none.
std::optional<std::string> GetKeyValue(std::string_view text, std::string_view key);

/// All entries of a text, for many lookups. Finds what `GetKeyValue` finds in the text.
class KeyValueIndex {
public:
    explicit KeyValueIndex(std::string text);
    KeyValueIndex(const KeyValueIndex&) = delete;
    KeyValueIndex& operator=(const KeyValueIndex&) = delete;

    std::optional<std::string> Get(std::string_view key) const;

private:
    using Part = std::pair<std::string_view, std::string_view>;  ///< a key, and what follows its "="

    std::string text_;
    std::vector<Part> parts_;  ///< the first entry of each key, in the order of the keys; views into `text_`
};

/// The text with `key` set to `value`, all else unchanged; nothing when it has that value already. Both must be
/// writable.
std::optional<std::string> SetKeyValue(std::string_view text, std::string_view key, std::string_view value);

/// True for a key that can be written: not empty and without "=", "#", quotes, blanks and control characters.
bool IsWritableKey(std::string_view key);

/// True for a value that can be written: without line ends and NUL bytes.
bool IsWritableValue(std::string_view value);

}  // namespace ARDV::Platform
