// SPDX-License-Identifier: Apache-2.0
// Any bytes as a key/value file: reading never crashes, and setting a key does what it promises and nothing else.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/key_value_text.h"

namespace {

using namespace ARDV::Platform;
using std::string_view;

void Require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

/// One input carries a key, a value and a text, with a length byte before each of the first two.
string_view TakePiece(string_view& input) {
    if (input.empty()) {
        return {};
    }
    const auto length = static_cast<unsigned char>(input.front());
    input.remove_prefix(1);
    const string_view piece = input.substr(0, length);
    input.remove_prefix(piece.size());
    return piece;
}

/// The lines with their line ends.
std::vector<string_view> Lines(string_view text) {
    std::vector<string_view> lines;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        lines.push_back(text.substr(0, end == string_view::npos ? end : end + 1));
        text.remove_prefix(lines.back().size());
    }
    return lines;
}

/// In a line whose value was replaced everything up to the "=" stays, and the line end too.
void RequireSameBesidesValue(string_view before, string_view after) {
    const std::size_t equals = before.find('=');
    Require(equals != string_view::npos && after.substr(0, equals + 1) == before.substr(0, equals + 1));
    Require(before.ends_with('\n') == after.ends_with('\n'));
    Require(before.ends_with("\r\n") == after.ends_with("\r\n"));
}

void RequireOneLineReplaced(string_view before, string_view after) {
    const std::vector<string_view> old = Lines(before);
    const std::vector<string_view> now = Lines(after);
    Require(old.size() == now.size());
    int different = 0;
    for (std::size_t line = 0; line < old.size(); ++line) {
        if (old[line] != now[line]) {
            RequireSameBesidesValue(old[line], now[line]);
            ++different;
        }
    }
    Require(different <= 1);
}

void RequireOneLineAdded(string_view before, string_view after, string_view key) {
    Require(after.starts_with(before));
    const std::vector<string_view> old = Lines(before);
    const std::vector<string_view> now = Lines(after);
    Require(now.size() == old.size() + 1 && now.back().starts_with(std::string(key) + "=\""));
    Require(now.back().ends_with("\"\n") || now.back().ends_with("\"\r\n"));
}

/// Every other key that the text has reads as before.
void RequireOtherKeysKept(string_view before, string_view after, string_view key) {
    for (const string_view line : Lines(before)) {
        const string_view other = line.substr(0, line.find('='));
        Require(other == key || GetKeyValue(before, other) == GetKeyValue(after, other));
    }
}

void TestSet(string_view text, string_view key, string_view value) {
    const std::optional<std::string> old = GetKeyValue(text, key);
    const std::optional<std::string> changed = SetKeyValue(text, key, value);
    Require(changed.has_value() == (old != value));
    const string_view after = changed ? string_view(*changed) : text;
    Require(GetKeyValue(after, key) == value);
    Require(!SetKeyValue(after, key, value));
    old ? RequireOneLineReplaced(text, after) : RequireOneLineAdded(text, after, key);
    RequireOtherKeysKept(text, after, key);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(data, data + size);
    string_view text = bytes;
    const string_view key = TakePiece(text);
    const string_view value = TakePiece(text);
    (void)GetKeyValue(text, key);
    if (IsWritableKey(key) && IsWritableValue(value)) {
        TestSet(text, key, value);
    }
    return 0;
}
