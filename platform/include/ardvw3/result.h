// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utility>

namespace ardvw3 {

/// The outcome of an action on the web server.
enum class W3Code : int {
    kSuccess = 0,
};

/// A code and what belongs to it.
template <typename Code, typename Value>
class Result {
public:
    explicit Result(Code code, Value value = Value()) : code_(code), value_(std::move(value)) {}

    Code GetCode() const { return code_; }
    const Value& GetValue() const { return value_; }

private:
    Code code_;
    Value value_;
};

}  // namespace ardvw3
