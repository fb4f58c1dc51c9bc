// SPDX-License-Identifier: Apache-2.0
#include "output.h"

#include <algorithm>
#include <iostream>
#include <memory>

#include <json/writer.h>

namespace ardv::ctl {

namespace {

Json::StreamWriterBuilder Builder(const char* indentation) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = indentation;
    builder["emitUTF8"] = true;
    return builder;
}

std::string TextOf(const Json::Value& value) {
    return value.isString() ? value.asString() : Json::writeString(Builder(""), value);
}

}  // namespace

void PrintJson(const Json::Value& value) {
    std::cout << Json::writeString(Builder("  "), value) << '\n';
}

void PrintMembers(const Json::Value& object) {
    for (auto member = object.begin(); member != object.end(); ++member) {
        std::cout << "  " << Printable(member.name()) << ": " << Printable(TextOf(*member)) << '\n';
    }
}

void Complain(std::string_view text) {
    std::cerr << "ardvrelayctl: " << Printable(text) << '\n';
}

std::string Printable(std::string_view text) {
    constexpr unsigned char kFirstPrintable = 0x20;
    constexpr unsigned char kDelete = 0x7f;
    std::string printable(text);
    std::replace_if(
        printable.begin(), printable.end(),
        [](char c) {
            const auto byte = static_cast<unsigned char>(c);
            return byte < kFirstPrintable || byte == kDelete;
        },
        '?');
    return printable;
}

}  // namespace ardv::ctl
