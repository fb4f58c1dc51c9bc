// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <json/json.h>

#include <sstream>
#include <stdexcept>
#include <string>

namespace ardv::test {

/** The JSON value of a whole text; throws std::runtime_error for anything else, text behind the value included. */
inline Json::Value ParseText(const std::string& text) {
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    builder["strictRoot"] = false;
    std::istringstream stream(text);
    Json::Value value;
    std::string problem;
    if (!Json::parseFromStream(builder, stream, &value, &problem)) {
        throw std::runtime_error("no JSON: " + text + ": " + problem);
    }
    return value;
}

}  // namespace ardv::test
