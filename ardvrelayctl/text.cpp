// SPDX-License-Identifier: Apache-2.0
#include "text.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "table.h"

namespace ardv::ctl {

namespace {

constexpr std::size_t kExcerptCharacters = 200;
constexpr std::string_view kReplacement = "\xEF\xBF\xBD";
constexpr char32_t kReplacementCode = 0xFFFD;
constexpr char32_t kAsciiEnd = 0x80;
constexpr char32_t kDelete = 0x7F;
constexpr char32_t kPlaneEnd = 0x10000;

struct Lead {
    unsigned char first;  // of the bytes that begin such a character
    unsigned char last;
    std::size_t size;
    unsigned char secondFirst;  // what may follow, so that nothing is overlong, a surrogate or beyond U+10FFFF
    unsigned char secondLast;
    unsigned char payload;  // bits of the first byte that belong to the code
};

constexpr Lead kLeads[] = {
    {0x00, 0x7F, 1, 0x00, 0xFF, 0x7F}, {0xC2, 0xDF, 2, 0x80, 0xBF, 0x1F}, {0xE0, 0xE0, 3, 0xA0, 0xBF, 0x0F},
    {0xE1, 0xEC, 3, 0x80, 0xBF, 0x0F}, {0xED, 0xED, 3, 0x80, 0x9F, 0x0F}, {0xEE, 0xEF, 3, 0x80, 0xBF, 0x0F},
    {0xF0, 0xF0, 4, 0x90, 0xBF, 0x07}, {0xF1, 0xF3, 4, 0x80, 0xBF, 0x07}, {0xF4, 0xF4, 4, 0x80, 0x8F, 0x07},
};

struct Range {
    char32_t first;
    char32_t last;
};

constexpr Range kUnprintable[] = {
    {0x0000, 0x001F},  // C0
    {0x007F, 0x009F},  // DEL and C1
    {0x061C, 0x061C},  // direction of writing
    {0x200E, 0x200F},  // likewise
    {0x2028, 0x202E},  // ends of lines and paragraphs, direction of writing
    {0x2066, 0x2069},  // direction of writing
};

struct Character {
    std::string_view bytes;  // a malformed one has one byte
    char32_t code;
    bool isWellFormed;
};

unsigned char ByteAt(std::string_view text, std::size_t at) {
    return static_cast<unsigned char>(text[at]);
}

bool IsWhole(std::string_view bytes, const Lead& lead) {
    if (bytes.size() != lead.size) {
        return false;
    }
    if (lead.size > 1 && (ByteAt(bytes, 1) < lead.secondFirst || ByteAt(bytes, 1) > lead.secondLast)) {
        return false;
    }
    const auto rest = bytes.substr(std::min<std::size_t>(2, lead.size));
    return std::all_of(rest.begin(), rest.end(),
                       [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U; });
}

Character FirstCharacter(std::string_view text) {
    const auto first = ByteAt(text, 0);
    const auto* lead = FindRow(kLeads, [first](const Lead& row) { return first >= row.first && first <= row.last; });
    if (!lead || !IsWhole(text.substr(0, lead->size), *lead)) {
        return {text.substr(0, 1), kReplacementCode, false};
    }
    char32_t code = first & lead->payload;
    for (std::size_t i = 1; i < lead->size; ++i) {
        code = (code << 6U) | (ByteAt(text, i) & 0x3FU);
    }
    return {text.substr(0, lead->size), code, true};
}

bool IsPrintable(const Character& character) {
    return character.isWellFormed && !FindRow(kUnprintable, [code = character.code](const Range& row) {
               return code >= row.first && code <= row.last;
           });
}

/** Hands on one character after the other until there is none, or `take` has enough and returns false. */
template <typename Take>
void ForEachCharacter(std::string_view text, Take take) {
    while (!text.empty()) {
        const Character character = FirstCharacter(text);
        if (!take(character)) {
            return;
        }
        text.remove_prefix(character.bytes.size());
    }
}

void AppendEscaped(std::string& json, char32_t code) {
    constexpr std::size_t kEscapeSize = sizeof "\\uXXXX";
    std::array<char, kEscapeSize> escape = {};
    std::snprintf(escape.data(), escape.size(), "\\u%04x", code & 0xFFFFU);
    json += escape.data();
}

void AppendAscii(std::string& json, const Character& character) {
    if (character.code < kAsciiEnd && character.code != kDelete) {
        json += character.bytes;
    } else if (character.code < kPlaneEnd) {
        AppendEscaped(json, character.code);
    } else {
        const char32_t offset = character.code - kPlaneEnd;
        AppendEscaped(json, 0xD800U + (offset >> 10U));
        AppendEscaped(json, 0xDC00U + (offset & 0x3FFU));
    }
}

}  // namespace

std::string Printable(std::string_view text) {
    std::string printable;
    ForEachCharacter(text, [&](const Character& character) {
        printable += IsPrintable(character) ? character.bytes : "?";
        return true;
    });
    return printable;
}

std::string Excerpt(std::string_view text) {
    std::size_t characters = 0;
    std::size_t length = 0;
    ForEachCharacter(text, [&](const Character& character) {
        if (characters++ == kExcerptCharacters) {
            return false;
        }
        length += character.bytes.size();
        return true;
    });
    return Printable(text.substr(0, length)) + (length < text.size() ? "..." : "");
}

std::string WellFormed(std::string_view text, std::size_t maxBytes) {
    std::string kept;
    ForEachCharacter(text, [&](const Character& character) {
        const auto bytes = character.isWellFormed ? character.bytes : kReplacement;
        if (kept.size() + bytes.size() > maxBytes) {
            return false;
        }
        kept += bytes;
        return true;
    });
    return kept;
}

std::string AsciiJson(std::string_view json) {
    std::string ascii;
    ForEachCharacter(json, [&](const Character& character) {
        AppendAscii(ascii, character);
        return true;
    });
    return ascii;
}

}  // namespace ardv::ctl
