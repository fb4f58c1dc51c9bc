// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstring>
#include <string>
#include <string_view>

#include "platform/linux/error.h"

namespace ARDV::Platform {

/// A caller's buffer for a text that must not be cut. Empty from the start, so that every failure leaves it so.
class TextBuffer {
public:
    TextBuffer(char* data, std::size_t size) : data_(data), size_(size) {
        if (IsUsable()) {
            *data_ = '\0';
        }
    }

    bool IsUsable() const { return data_ != nullptr && size_ > 0; }

    Failure CheckRoom(std::string_view value, SourcePlace where = SourcePlace::Here()) const {
        if (value.find('\0') != std::string_view::npos) {
            return MakeError(ARDV_ERR_BAD_VALUE, where);
        }
        return value.size() < size_ ? Failure{} : MakeError(ARDV_ERR_BUFFER_TOO_SMALL, where);
    }

    /// Stores a value that has room.
    void Store(std::string_view value) const {
        std::memcpy(data_, value.data(), value.size());
        data_[value.size()] = '\0';
    }

private:
    char* data_;
    std::size_t size_;
};

/// Stores a text as a whole, or says why not.
inline Failure StoreWhole(const Result<std::string>& value, const TextBuffer& buffer,
                          SourcePlace where = SourcePlace::Here()) {
    if (!value) {
        return value.Reason();
    }
    if (const Failure failure = buffer.CheckRoom(*value, where)) {
        return failure;
    }
    buffer.Store(*value);
    return {};
}

/// The result of a C function that has no value to return.
inline int Finish(const Failure& failure) {
    return failure ? Fail(*failure) : 0;
}

}  // namespace ARDV::Platform
