// SPDX-License-Identifier: Apache-2.0
#include <ardv/key_value_file.h>

#include <algorithm>
#include <cstring>
#include <string_view>

#include "platform/linux/error.h"
#include "platform/linux/file.h"
#include "platform/linux/key_value_cache.h"
#include "platform/linux/key_value_text.h"

namespace ARDV::Platform {

namespace {

constexpr std::size_t kMaxFileBytes = ARDV_KEY_VALUE_FILE_MAX;

bool IsText(const char* text) {
    return text != nullptr && *text != '\0';
}

void StoreCut(std::string_view value, char* buffer, std::size_t size) {
    const std::size_t length = std::min(value.size(), size - 1);
    std::memcpy(buffer, value.data(), length);
    buffer[length] = '\0';
}

int Get(const char* file, const char* key, char* buffer, std::size_t size) {
    const Result<MaybeText> value = ReadKeyValue(file, key);
    if (!value) {
        return Fail(value.Reason());
    }
    if (!*value) {
        return 0;
    }
    StoreCut(**value, buffer, size);
    return 1;
}

int Check(const char* file, const char* key, const char* value) {
    const Result<MaybeText> found = ReadKeyValue(file, key);
    if (!found) {
        return Fail(found.Reason());
    }
    return *found == std::string_view(value) ? 1 : 0;
}

FileAttributes AttributesOf(const struct stat& status) {
    return {status.st_mode, true, status.st_uid, status.st_gid};
}

/// The text and attributes from which the new file is made: those of the old one, or of none.
struct Original {
    std::string text;
    FileAttributes attributes;
};

Result<Original> ReadOriginal(const FilePlace& place) {
    Result<FileContents> contents = ReadFile(place, kMaxFileBytes);
    if (contents) {
        return Original{std::move(contents->text), AttributesOf(contents->status)};
    }
    if (contents.Reason().code == ARDV_ERR_NOT_FOUND) {
        return Original{};
    }
    return contents.Reason();
}

Failure ReplaceValue(const FilePlace& place, std::string_view key, std::string_view value) {
    const Result<Original> original = ReadOriginal(place);
    if (!original) {
        return original.Reason();
    }
    const std::optional<std::string> changed = SetKeyValue(original->text, key, value);
    if (!changed) {
        return {};
    }
    if (changed->size() > kMaxFileBytes) {
        return MakeError(ARDV_ERR_TOO_LARGE);
    }
    return ReplaceFile(place, *changed, original->attributes);
}

Failure Set(const char* file, const char* key, const char* value) {
    const Result<FilePlace> place = LocateFile(file);
    if (!place) {
        return place.Reason();
    }
    const Result<FileDescriptor> lock = LockForWriting(*place);
    return lock ? ReplaceValue(*place, key, value) : lock.Reason();
}

}  // namespace

}  // namespace ARDV::Platform

using namespace ARDV::Platform;

int ALIBCFileGetKeyValue(const char* file, const char* key, char* value, size_t size, int flags) {
    const bool usable = value != nullptr && size > 0;
    if (usable) {
        *value = '\0';
    }
    if (!usable || !IsText(file) || !IsText(key) || flags != 0) {
        return Fail(ARDV_ERR_INVALID_ARGUMENT);
    }
    return Guarded([=] { return Get(file, key, value, size); });
}

int ALIBCFileSetKeyValue(const char* file, const char* key, const char* value, int flags) {
    const bool given = IsText(file) && key != nullptr && value != nullptr && flags == 0;
    if (!given || !IsWritableKey(key) || !IsWritableValue(value)) {
        return Fail(ARDV_ERR_INVALID_ARGUMENT);
    }
    return Guarded([=] {
        const Failure failure = Set(file, key, value);
        return failure ? Fail(*failure) : 0;
    });
}

int ALIBCFileCheckKeyValue(const char* file, const char* key, const char* value, int flags) {
    if (!IsText(file) || !IsText(key) || value == nullptr || (flags != 0 && flags != 1)) {
        Fail(ARDV_ERR_INVALID_ARGUMENT);
        return 0;
    }
    return std::max(Guarded([=] { return Check(file, key, value); }), 0);
}
