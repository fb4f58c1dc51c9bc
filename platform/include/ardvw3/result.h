// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utility>

namespace ardvw3 {

/// The outcome of an action on the web server's configuration. A port may use further codes; callers compare with
/// `kSuccess` and print the rest.
///
/// After every code but `kSuccess`, `kReloadFailed`, `kTimeout` and `kInternal` the configuration is as it was before.
enum class W3Code : int {
    kSuccess = 0,           ///< done, and in force if the server is running
    kInvalidArgument = 1,   ///< no action, or a name that can't be one of a fragment
    kSourceUnreadable = 2,  ///< the source is missing, too large, no regular file, a symbolic link or not trustworthy
    kFileSystem = 3,        ///< the folder of fragments can't be read or written, or others may write to it
    kServerMissing = 4,     ///< the server's program isn't installed or can't be started
    kRefused = 5,  ///< the server refuses the configuration, or doesn't judge it in time; its words are in the message
    kNotIncluded = 6,   ///< the server's configuration doesn't include the fragment, so it would never be served
    kReloadFailed = 7,  ///< the change is in place, but the server ended or couldn't be found or told
    kTimeout = 8,       ///< the change is in place, but the server didn't take it over in time
    kInternal = 9,      ///< a fault of the platform itself, such as no memory, or a change that can't be taken back; it
                        ///< may or may not be in place
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
