// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <stddef.h>

#include <ardv/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Key/value files: the settings of the device and of its packages, one `key="value"` a line.
///
/// # Format
///
/// A file is bytes, in lines that end with LF; the last LF may be missing. One CR before the LF, or before the end of
/// the file, isn't part of its line. A blank is a space or a tab.
///
/// - A line whose first byte after leading blanks is `#` is a comment.
/// - Any other line with an `=` is an entry. The key is what stands before the first `=`, without blanks around it.
///   Keys are compared byte by byte. A line without `=`, or with nothing before it, is ignored.
/// - The value begins after the `=` and any blanks.
///   - In double quotes it ends at the next `"`. Inside, `\"` is a quote and `\\` a backslash;
///     any other backslash is itself.
///   - In single quotes it ends at the next `'`. There are no escapes.
///   - A quote that isn't closed takes the rest of the line, blanks and `#` included.
///   - Text after a closing quote is ignored.
///   - Without quotes it ends at a `#` that follows a blank, or at the end of the line, and loses its blanks at the
///     end. (`a= #x` is empty, `a=#x` is `#x`, `a=b#c` is `b#c`.)
/// - The first entry of a key counts, for every function here; later ones are never looked at.
/// - A NUL byte is a byte like any other. A value that contains one is seen by C callers up to it.
///
///     # what the device calls itself
///     upnpmodelname="AV-220"
///     motto = 'say "hello"'     # the value is: say "hello"
///     path="C:\\data \"x\""     # the value is: C:\data "x"
///     ssh_port=2222
///
/// # Files
///
/// A file must be a regular one (a symbolic link to one serves) of at most `ARDV_KEY_VALUE_FILE_MAX` bytes. Readers
/// take no lock: a file is only ever replaced as a whole, so a reader sees the old content or the new one. A platform
/// may keep what it read, but only as long as it can tell that the file hasn't changed: a call sees every change that
/// was finished before it.
///
/// All functions may be called from several threads and processes at once. On a failure they set the error triple
/// (<ardv/error.h>): ARDV_ERR_INVALID_ARGUMENT for the arguments, ARDV_ERR_NOT_FOUND, ARDV_ERR_ACCESS_DENIED,
/// ARDV_ERR_NOT_REGULAR, ARDV_ERR_TOO_LARGE or ARDV_ERR_IO for the file, ARDV_ERR_NO_MEMORY, and for writing
/// ARDV_ERR_NO_SPACE.

/// The largest key/value file that is read or written, in bytes.
enum { ARDV_KEY_VALUE_FILE_MAX = 64 * 1024 * 1024 };

/// Reads the value of a key.
///
/// @param file path of the file
/// @param key the key; not empty
/// @param value buffer that takes the value and a terminating NUL. A longer value is cut: its first `size` - 1 bytes
///        are stored, and the result is still 1. After an absence or a failure the buffer holds the empty text, if it's
///        usable at all.
/// @param size size of `value` in bytes, at least 1
/// @param flags 0; no flag is defined
/// @return 1 when the key is there, even with an empty value
/// @return 0 when the file can be read and the key isn't in it; the error triple is left alone
/// @return negative on failure, a missing file included; the error triple is set
ARDVPLATFORM_API int ALIBCFileGetKeyValue(const char* file, const char* key, char* value, size_t size, int flags);

/// Sets the value of a key, and nothing else in the file.
///
/// An existing value is replaced in its line by the new one in double quotes; every other byte stays: comments, order,
/// quoting of other lines, line ends, text after the value. A new key becomes a last line `key="value"`, with CR LF if
/// the last complete line ends so; a missing LF before it is added. A missing file is created with mode 0644. A value
/// that is already there, whatever its quoting, isn't written again.
///
/// The file is replaced as a whole by a temporary file in its folder that is flushed, renamed, and the folder flushed:
/// after a crash either content is there in full. Mode, owner and group are kept; where the system doesn't let the
/// caller keep them, the call fails. Hard links to the old file keep the old content, and extended attributes aren't
/// carried over. A symbolic link stays and its target is replaced; a link in a folder that everybody may write to is
/// followed only if it is the caller's own or belongs to the folder's owner (ARDV_ERR_ACCESS_DENIED otherwise).
///
/// Writers wait for each other, without a limit of time, on a lock file ".NAME.lock" (mode 0600) beside the file, which
/// stays there for good. So no change is lost when several processes or threads set different keys.
///
/// @param file path of the file; its folder must exist
/// @param key the key; not empty, and without `=`, `#`, quotes, blanks and control characters
/// @param value the value, in bytes up to its NUL; LF and CR are refused. It reads back exactly as given
/// @param flags 0; no flag is defined
/// @return 0 when the key has the value
/// @return negative on failure; the error triple is set. The file is as it was and no temporary file is left. (Only if
///         flushing the folder fails, the last step, the new content is in place although the result is negative.)
ARDVPLATFORM_API int ALIBCFileSetKeyValue(const char* file, const char* key, const char* value, int flags);

/// Tells whether a key has exactly a given value.
///
/// @param file path of the file
/// @param key the key; not empty
/// @param value the value to compare with, byte by byte, upper and lower case different
/// @param flags 0 or 1, which is how a caller's table marks what is on by default; it makes no difference here
/// @return 1 when the key is there and has this value; an empty `value` matches a key that is there and empty
/// @return 0 otherwise. If the reason is a missing or unreadable file, a null pointer, an empty key or an unknown flag,
///         the error triple is set; if it is an absent key or another value, the triple is left alone
ARDVPLATFORM_API int ALIBCFileCheckKeyValue(const char* file, const char* key, const char* value, int flags);

#ifdef __cplusplus
}
#endif
