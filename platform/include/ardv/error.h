// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ardv/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/// The last error of the platform: a triple of code, source file and line.
///
/// A platform function that fails returns a negative value and leaves here what failed and where it was found. The
/// relay library prints the triple as "[0x%04X %s:%d]", so that one line of a log leads to one line of the platform.
///
/// Rules that every platform function keeps:
/// - a failure sets all three values;
/// - success and plain absence (result 0 of a query) leave them as they were: look at the triple only after a failure;
/// - the triple belongs to the calling thread; another thread's failure never shows in it;
/// - `errno` may be changed by any platform function and carries no promise.

/// The codes of libardvplatform. All are positive and below 0x10000, because messages print four hexadecimal digits.
/// A port may use further codes. Callers print a code and decide by none but ARDV_ERR_ACCESS_DENIED, which only changes
/// the words and the exit code of a tool.
enum ArdvErrorCode {
    ARDV_ERR_NONE = 0x0000,              ///< nothing has failed on this thread yet
    ARDV_ERR_INVALID_ARGUMENT = 0x0100,  ///< null pointer, size 0, unknown flag, or a text that the function refuses
    ARDV_ERR_NO_MEMORY = 0x0200,         ///< memory ran out
    ARDV_ERR_INTERNAL = 0x0300,          ///< a fault of the platform itself
    ARDV_ERR_NOT_FOUND = 0x0400,         ///< the file, or a folder on its path, doesn't exist
    ARDV_ERR_ACCESS_DENIED = 0x0500,     ///< permissions, a read-only file system, a stranger's symbolic link
    ARDV_ERR_NOT_REGULAR = 0x0600,       ///< the path names something other than a regular file
    ARDV_ERR_TOO_LARGE = 0x0700,         ///< the file is, or would become, larger than the documented bound
    ARDV_ERR_IO = 0x0800,                ///< opening, reading, writing or renaming failed for another reason
    ARDV_ERR_NO_SPACE = 0x0900,          ///< the disk, the quota or the process's file size limit is exhausted
    ARDV_ERR_NO_VALUE = 0x0A00,          ///< a needed setting is missing or empty
    ARDV_ERR_BAD_VALUE = 0x0B00,         ///< a setting is there and makes no sense
    ARDV_ERR_BUFFER_TOO_SMALL = 0x0C00,  ///< the caller's buffer can't hold a value that must not be cut
    ARDV_ERR_UNSAFE_FILE = 0x0D00,       ///< a file of secrets belongs to others, or they may write to it
    ARDV_ERR_NO_DEVICE = 0x0E00,         ///< no suitable network interface, or no default gateway
    ARDV_ERR_CRYPTO = 0x0F00,            ///< the cryptographic library failed
    ARDV_ERR_NO_ANSWER = 0x1000,         ///< the router, or the service manager, can't be reached or is silent
    ARDV_ERR_SERVICE_FAILED = 0x1100,    ///< the service manager couldn't do with a unit what was asked
    ARDV_ERR_PROGRAM_FAILED = 0x1200,    ///< a program that was run ended with a failure, was killed, or took too long
};

/// The code of the calling thread's last platform failure. Never fails, changes nothing.
///
/// @return one of `ArdvErrorCode`, or a port's own code below 0x10000
/// @return ARDV_ERR_NONE when nothing has failed on this thread
ARDVPLATFORM_API int ALIBCErrGet(void);

/// The base name of the source file in which the calling thread's last platform failure was found. Never fails, changes
/// nothing.
///
/// @return a NUL-terminated text such as "file.cpp" that stays valid for the life of the process
/// @return the empty text when nothing has failed on this thread; never a null pointer
ARDVPLATFORM_API const char* ALIBCErrorGetFile(void);

/// The line in the file of `ALIBCErrorGetFile`. Never fails, changes nothing.
///
/// @return the line, from 1
/// @return 0 when nothing has failed on this thread
ARDVPLATFORM_API int ALIBCErrorGetLine(void);

#ifdef __cplusplus
}
#endif
