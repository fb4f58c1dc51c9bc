// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/key_value_text.h"

#include <algorithm>
#include <utility>

namespace ARDV::Platform {

namespace {

using std::string_view;

constexpr string_view kBlanks = " \t";

bool IsBlank(char c) {
    return kBlanks.find(c) != string_view::npos;
}

string_view SkipBlanks(string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
    return text;
}

string_view DropBlanksAtEnd(string_view text) {
    return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

/// Takes the first line off `text`, without its line end.
string_view TakeLine(string_view& text) {
    const std::size_t end = text.find('\n');
    string_view line = text.substr(0, end);
    text.remove_prefix(end == string_view::npos ? text.size() : end + 1);
    if (line.ends_with('\r')) {
        line.remove_suffix(1);
    }
    return line;
}

/// The two sides of an entry's first "=": the key without its blanks, and all that follows.
struct Entry {
    string_view key;
    string_view part;
};

/// Nothing for a line that is no entry; it begins after its blanks.
std::optional<Entry> SplitEntry(string_view line) {
    const std::size_t equals = line.find('=');
    if (equals == string_view::npos || equals == 0 || line.front() == '#') {
        return {};
    }
    return Entry{DropBlanksAtEnd(line.substr(0, equals)), line.substr(equals + 1)};
}

/// What follows the "=" of an entry of `key`; nothing for any other line.
std::optional<string_view> ValuePart(string_view line, string_view key) {
    line = SkipBlanks(line);
    if (!line.starts_with(key.front())) {
        return {};
    }
    const std::optional<Entry> entry = SplitEntry(line);
    return entry && entry->key == key ? std::optional(entry->part) : std::nullopt;
}

/// Where the quote that is open at the start of `text` is closed; npos when it isn't.
std::size_t ClosingQuote(string_view text, char quote) {
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] == quote) {
            return at;
        }
        const bool escape = quote == '"' && text[at] == '\\' && at + 1 < text.size();
        if (escape && (text[at + 1] == '"' || text[at + 1] == '\\')) {
            ++at;
        }
    }
    return string_view::npos;
}

/// A "#" counts as a comment only after a blank; `part` begins right after the "=".
string_view DropComment(string_view part) {
    for (std::size_t at = part.find('#'); at != string_view::npos; at = part.find('#', at + 1)) {
        if (at > 0 && IsBlank(part[at - 1])) {
            return part.substr(0, at);
        }
    }
    return part;
}

KeyValueToken QuotedToken(string_view text, string_view value) {
    const char quote = value.front();
    const string_view inner = value.substr(1);
    const std::size_t end = ClosingQuote(inner, quote);
    const std::size_t length = end == string_view::npos ? value.size() : end + 2;
    return {static_cast<std::size_t>(value.data() - text.data()), length, inner.substr(0, end), quote == '"'};
}

/// An empty value's token is right after the "=", before any comment.
KeyValueToken BareToken(string_view text, string_view part) {
    const string_view value = DropBlanksAtEnd(SkipBlanks(DropComment(part)));
    const string_view token = value.empty() ? part.substr(0, 0) : value;
    return {static_cast<std::size_t>(token.data() - text.data()), token.size(), token, false};
}

KeyValueToken Tokenize(string_view text, string_view part) {
    const string_view value = SkipBlanks(part);
    const bool quoted = value.starts_with('"') || value.starts_with('\'');
    return quoted ? QuotedToken(text, value) : BareToken(text, part);
}

std::string Quote(string_view value) {
    std::string quoted = "\"";
    for (const char c : value) {
        if (c == '"' || c == '\\') {
            quoted += '\\';
        }
        quoted += c;
    }
    return quoted += '"';
}

std::string Replace(string_view text, const KeyValueToken& token, string_view value) {
    std::string changed;
    changed.reserve(text.size() + 2 * value.size() + 2);
    changed.append(text.substr(0, token.offset)).append(Quote(value));
    return changed.append(text.substr(token.offset + token.length));
}

string_view LineEndOf(string_view text) {
    const std::size_t last = text.rfind('\n');
    const bool crlf = last != string_view::npos && text.substr(0, last).ends_with('\r');
    return crlf ? "\r\n" : "\n";
}

/// What the last line lacks; its CR may be there already.
string_view MissingLineEnd(string_view text, string_view lineEnd) {
    if (text.empty() || text.ends_with('\n')) {
        return {};
    }
    return text.ends_with('\r') ? "\n" : lineEnd;
}

std::string Append(string_view text, string_view key, string_view value) {
    const string_view lineEnd = LineEndOf(text);
    std::string changed(text);
    changed.append(MissingLineEnd(text, lineEnd)).append(key).append("=").append(Quote(value));
    return changed.append(lineEnd);
}

bool IsForbiddenInKey(char c) {
    return static_cast<unsigned char>(c) <= ' ' || c == '\x7f' || string_view("=#\"'").find(c) != string_view::npos;
}

}  // namespace

std::optional<KeyValueToken> FindKeyValue(string_view text, string_view key) {
    string_view rest = text;
    while (!rest.empty() && !key.empty()) {
        if (const std::optional<string_view> part = ValuePart(TakeLine(rest), key)) {
            return Tokenize(text, *part);
        }
    }
    return {};
}

std::string DecodeKeyValue(const KeyValueToken& token) {
    std::string value;
    value.reserve(token.content.size());
    for (std::size_t at = 0; at < token.content.size(); ++at) {
        const string_view pair = token.content.substr(at, 2);
        if (token.escaped && (pair == "\\\"" || pair == "\\\\")) {
            ++at;
        }
        value += token.content[at];
    }
    return value;
}

std::optional<std::string> GetKeyValue(string_view text, string_view key) {
    const std::optional<KeyValueToken> token = FindKeyValue(text, key);
    return token ? std::optional(DecodeKeyValue(*token)) : std::nullopt;
}

KeyValueIndex::KeyValueIndex(std::string text) : text_(std::move(text)) {
    string_view rest = text_;
    while (!rest.empty()) {
        if (const std::optional<Entry> entry = SplitEntry(SkipBlanks(TakeLine(rest)))) {
            parts_.emplace_back(entry->key, entry->part);
        }
    }
    const auto isBefore = [](const Part& left, const Part& right) { return left.first < right.first; };
    const auto isSame = [](const Part& left, const Part& right) { return left.first == right.first; };
    std::stable_sort(parts_.begin(), parts_.end(), isBefore);
    parts_.erase(std::unique(parts_.begin(), parts_.end(), isSame), parts_.end());
    parts_.shrink_to_fit();
}

std::optional<std::string> KeyValueIndex::Get(string_view key) const {
    const auto found = std::lower_bound(parts_.begin(), parts_.end(), key,
                                        [](const Part& part, string_view wanted) { return part.first < wanted; });
    if (found == parts_.end() || found->first != key) {
        return {};
    }
    return DecodeKeyValue(Tokenize(text_, found->second));
}

std::optional<std::string> SetKeyValue(string_view text, string_view key, string_view value) {
    const std::optional<KeyValueToken> token = FindKeyValue(text, key);
    if (!token) {
        return Append(text, key, value);
    }
    if (DecodeKeyValue(*token) == value) {
        return {};
    }
    return Replace(text, *token, value);
}

bool IsWritableKey(string_view key) {
    return !key.empty() && std::none_of(key.begin(), key.end(), IsForbiddenInKey);
}

bool IsWritableValue(string_view value) {
    return value.find_first_of(string_view("\n\r\0", 3)) == string_view::npos;
}

}  // namespace ARDV::Platform
