// SPDX-License-Identifier: Apache-2.0
#include "http/text.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <exception>
#include <memory>

namespace ARDV::Sandbox {
namespace {

using Byte = unsigned char;

Byte At(std::string_view text, size_t index) {
    return static_cast<Byte>(text[index]);
}

// The length of the sequence that a first byte begins, with the bounds of the second byte.
struct Sequence {
    Byte first;
    Byte last;
    size_t length;
    Byte secondLow;
    Byte secondHigh;
};

constexpr Sequence kSequences[] = {
    {0x00, 0x7F, 1, 0x00, 0x00}, {0xC2, 0xDF, 2, 0x80, 0xBF}, {0xE0, 0xE0, 3, 0xA0, 0xBF},
    {0xE1, 0xEC, 3, 0x80, 0xBF}, {0xED, 0xED, 3, 0x80, 0x9F}, {0xEE, 0xEF, 3, 0x80, 0xBF},
    {0xF0, 0xF0, 4, 0x90, 0xBF}, {0xF1, 0xF3, 4, 0x80, 0xBF}, {0xF4, 0xF4, 4, 0x80, 0x8F},
};

bool IsContinued(std::string_view rest, const Sequence& sequence) {
    if (rest.size() < sequence.length) {
        return false;
    }
    for (size_t i = 1; i < sequence.length; ++i) {
        const Byte low = i == 1 ? sequence.secondLow : Byte{0x80};
        const Byte high = i == 1 ? sequence.secondHigh : Byte{0xBF};
        if (At(rest, i) < low || At(rest, i) > high) {
            return false;
        }
    }
    return true;
}

// 0 when `rest` doesn't begin with a well-formed sequence.
size_t SequenceLength(std::string_view rest) {
    const auto* found = std::find_if(std::begin(kSequences), std::end(kSequences), [&](const Sequence& sequence) {
        return At(rest, 0) >= sequence.first && At(rest, 0) <= sequence.last;
    });
    return found != std::end(kSequences) && IsContinued(rest, *found) ? found->length : 0;
}

bool IsPlain(Byte byte) {
    return byte > 0x20 && byte < 0x7F && byte != '"' && byte != '\\';
}

}  // namespace

std::string Timestamp() {
    const auto now = std::chrono::system_clock::now();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    const auto sinceEpoch = std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count();
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    char text[64];
    const size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
    std::snprintf(text + length, sizeof text - length, ".%03dZ", static_cast<int>(sinceEpoch % 1000));
    return text;
}

bool IsTimestamp(std::string_view text) {
    static constexpr std::string_view kShape = "dddd-dd-ddTdd:dd:dd.dddZ";
    return std::equal(text.begin(), text.end(), kShape.begin(), kShape.end(), [](char actual, char shape) {
        return shape == 'd' ? actual >= '0' && actual <= '9' : actual == shape;
    });
}

bool IsUtf8(std::string_view text) {
    while (!text.empty()) {
        const size_t length = SequenceLength(text);
        if (length == 0) {
            return false;
        }
        text.remove_prefix(length);
    }
    return true;
}

bool HasControlCharacter(std::string_view text) {
    return std::any_of(text.begin(), text.end(), [](char c) { return static_cast<Byte>(c) < 0x20 || c == 0x7F; });
}

std::string Printable(std::string_view text, size_t limit) {
    std::string out;
    for (const char c : text.substr(0, limit)) {
        if (IsPlain(static_cast<Byte>(c))) {
            out += c;
            continue;
        }
        char escaped[5];
        std::snprintf(escaped, sizeof escaped, "\\x%02X", static_cast<unsigned>(static_cast<Byte>(c)));
        out += escaped;
    }
    return text.size() > limit ? out + "..." : out;
}

std::string Lower(std::string_view text) {
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return out;
}

std::string ToJsonText(const Json::Value& value) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return Json::writeString(builder, value);
}

std::optional<Json::Value> ParseJson(std::string_view text, std::string& error) {
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    builder["stackLimit"] = 32;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value value;
    // The reader throws at its depth limit.
    try {
        if (!reader->parse(text.data(), text.data() + text.size(), &value, &error)) {
            return std::nullopt;
        }
    } catch (const std::exception& failure) {
        error = failure.what();
        return std::nullopt;
    }
    return value;
}

}  // namespace ARDV::Sandbox
