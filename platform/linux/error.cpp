// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/error.h"

#include <algorithm>
#include <array>

namespace ARDV::Platform {

namespace {

thread_local Error lastError;

struct ErrnoCode {
    int errnoValue;
    int code;
};

constexpr std::array<ErrnoCode, 13> kErrnoCodes = {{
    {ENOENT, ARDV_ERR_NOT_FOUND},
    {ENOTDIR, ARDV_ERR_NOT_FOUND},
    {EACCES, ARDV_ERR_ACCESS_DENIED},
    {EPERM, ARDV_ERR_ACCESS_DENIED},
    {EROFS, ARDV_ERR_ACCESS_DENIED},
    {ELOOP, ARDV_ERR_ACCESS_DENIED},
    {EISDIR, ARDV_ERR_NOT_REGULAR},
    {ENXIO, ARDV_ERR_NOT_REGULAR},
    {ENOSPC, ARDV_ERR_NO_SPACE},
    {EDQUOT, ARDV_ERR_NO_SPACE},
    {EFBIG, ARDV_ERR_NO_SPACE},
    {ENOMEM, ARDV_ERR_NO_MEMORY},
    {EINVAL, ARDV_ERR_INVALID_ARGUMENT},
}};

}  // namespace

Error MakeError(int code, SourcePlace where) {
    return {code, where};
}

Error ErrnoError(int errnoValue, SourcePlace where) {
    const auto* row = std::find_if(kErrnoCodes.begin(), kErrnoCodes.end(),
                                   [errnoValue](const ErrnoCode& entry) { return entry.errnoValue == errnoValue; });
    return {row == kErrnoCodes.end() ? ARDV_ERR_IO : row->code, where};
}

int Fail(const Error& error) {
    lastError = error;
    return -1;
}

int Fail(int code, SourcePlace where) {
    return Fail(MakeError(code, where));
}

}  // namespace ARDV::Platform

int ALIBCErrGet() {
    return ARDV::Platform::lastError.code;
}

const char* ALIBCErrorGetFile() {
    return ARDV::Platform::lastError.where.file;
}

int ALIBCErrorGetLine() {
    return ARDV::Platform::lastError.where.line;
}
