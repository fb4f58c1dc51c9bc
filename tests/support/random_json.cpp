// SPDX-License-Identifier: Apache-2.0
#include "random_json.h"

#include <cstdint>
#include <limits>

namespace ardv::test {

std::size_t RandomJson::Number(std::size_t below) {
    return std::uniform_int_distribution<std::size_t>(0, below - 1)(engine_);
}

Json::Value RandomJson::Value(int depth) {
    switch (depth > 0 ? Number(4) : 0) {
        case 1:
            return Array(depth);
        case 2:
            return Object(depth);
        default:
            return Scalar();
    }
}

Json::Value RandomJson::Object(int depth) {
    Json::Value object(Json::objectValue);
    for (const auto& key : keys_) {
        if (Number(3) != 0) {
            object[key] = Value(depth - 1);
        }
    }
    object[Text()] = Scalar();
    return object;
}

Json::Value RandomJson::Array(int depth) {
    Json::Value array(Json::arrayValue);
    for (auto count = Number(4); count > 0; --count) {
        array.append(Value(depth - 1));
    }
    return array;
}

Json::Value RandomJson::Scalar() {
    switch (Number(9)) {
        case 0:
            return {};
        case 1:
            return Number(2) == 0;
        case 2:
            return std::numeric_limits<std::int32_t>::min();
        case 3:
            return Json::Value::Int64{5'000'000'000};
        case 4:
            return std::numeric_limits<Json::Value::UInt64>::max();
        case 5:
            return 0.1 * static_cast<double>(Number(100));
        case 6:
            return static_cast<std::int32_t>(Number(100'000));
        default:
            return Text();
    }
}

std::string RandomJson::Text() {
    std::string text;
    for (auto count = Number(12); count > 0; --count) {
        text += static_cast<char>(1 + Number(255));
    }
    return text;
}

}  // namespace ardv::test
