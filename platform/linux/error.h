// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cerrno>
#include <exception>
#include <new>
#include <optional>
#include <utility>
#include <variant>

#include <ardv/error.h>

namespace ARDV::Platform {

/// A place in the sources; the file without its folders, which are those of the build. As a default argument, `Here()` is the place of the call. (The standard's own type of this
/// kind isn't offered by every compiler that builds the fuzz targets.)
struct SourcePlace {
    const char* file = "";
    int line = 0;

    static constexpr SourcePlace Here(const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
        return {BaseName(file), line};
    }

private:
    static constexpr const char* BaseName(const char* path) {
        const char* name = path;
        for (const char* at = path; *at != '\0'; ++at) {
            name = *at == '/' ? at + 1 : name;
        }
        return name;
    }
};

/// What failed and where it was found. A value that travels up to the C function, which alone writes the thread's error
/// triple: a failure that is handled on the way leaves no trace there.
struct Error {
    int code = ARDV_ERR_NONE;
    SourcePlace where;
};

/// An operation without a value: nothing on success.
using Failure = std::optional<Error>;

/// A value, or why there is none.
template <typename Value>
class Result {
public:
    Result(Value value) : content_(std::move(value)) {}  // NOLINT(google-explicit-constructor): return either
    Result(Error error) : content_(error) {}             // NOLINT(google-explicit-constructor)

    /// True when there is a value; only then may it be taken.
    explicit operator bool() const { return std::holds_alternative<Value>(content_); }
    Value& operator*() { return std::get<Value>(content_); }
    const Value& operator*() const { return std::get<Value>(content_); }
    Value* operator->() { return &std::get<Value>(content_); }
    const Value* operator->() const { return &std::get<Value>(content_); }

    /// The reason; only when there is no value.
    const Error& Reason() const { return std::get<Error>(content_); }

private:
    std::variant<Value, Error> content_;
};

/// An error found at the place of the call.
Error MakeError(int code, SourcePlace where = SourcePlace::Here());

/// The error for an errno value of a system call, found at the place of the call.
Error ErrnoError(int errnoValue = errno, SourcePlace where = SourcePlace::Here());

/// Makes `error` the calling thread's last error. Returns -1, the result of every C function that fails.
int Fail(const Error& error);

/// `Fail` for an error found at the place of the call.
int Fail(int code, SourcePlace where = SourcePlace::Here());

/// Runs the body of a C function: no exception passes its border, each becomes -1 with the error triple set.
template <typename Body>
int Guarded(Body&& body, SourcePlace where = SourcePlace::Here()) {
    try {
        return std::forward<Body>(body)();
    } catch (const std::bad_alloc&) {
        return Fail(ARDV_ERR_NO_MEMORY, where);
    } catch (const std::exception&) {
        return Fail(ARDV_ERR_INTERNAL, where);
    }
}

}  // namespace ARDV::Platform
