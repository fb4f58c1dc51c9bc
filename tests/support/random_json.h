// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <random>
#include <string>
#include <vector>

#include <json/value.h>

namespace ardv::test {

/** Makes JSON values of every type, nested at random; the same seed makes the same values. */
class RandomJson {
public:
    /** @param keys names that members get, so that they meet the settings of the class under test */
    RandomJson(unsigned seed, std::vector<std::string> keys) : engine_(seed), keys_(std::move(keys)) {}

    /** A value nested at most `depth` deep. */
    Json::Value Value(int depth);

    /** An object. */
    Json::Value Object(int depth);

    /** A number from 0 to `below` - 1. */
    std::size_t Number(std::size_t below);

private:
    Json::Value Scalar();
    Json::Value Array(int depth);
    std::string Text();

    std::mt19937 engine_;
    std::vector<std::string> keys_;
};

}  // namespace ardv::test
