// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ardv/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Has a unit started at boot from now on.
ARDVPLATFORM_API int ARDVSystemdEnable(const char* unit);
/// No longer has a unit started at boot.
ARDVPLATFORM_API int ARDVSystemdDisable(const char* unit);
/// Starts a unit.
ARDVPLATFORM_API int ARDVSystemdStart(const char* unit);
/// Stops a unit.
ARDVPLATFORM_API int ARDVSystemdStop(const char* unit);
/// Has a unit read its configuration anew.
ARDVPLATFORM_API int ARDVSystemdReload(const char* unit);
/// Tells whether a unit is active.
ARDVPLATFORM_API int ARDVSystemdActiveStatusGet(const char* unit);

/// Tells whether inetd (the Internet super-server) is set to run a service: an entry of "/etc/inetd.conf", or of a file
/// in "/etc/inetd.d", has a server program with the base name `service` or "in." and `service`. Where the program is
/// "tcpd" or "busybox", which run another one, the name that counts is that of its zeroth argument.
///
/// An entry is a line of words: service, socket type, protocol, wait or nowait, user, server program, arguments. A line
/// that begins with "#", after any blanks, is a comment. A file has at most 1 MiB; files whose names begin with "." are
/// left out, as is what comes, in the order of names, after the 256th, and what is no regular file. Whether inetd itself
/// is running isn't asked.
///
/// @param service base name of the server program, such as "telnetd"
/// @return 1 when inetd is set to run it
/// @return 0 when it isn't, or there is no such file; the error triple is left alone
/// @return negative on failure; the error triple is set: ARDV_ERR_INVALID_ARGUMENT for a null or empty name, and for a
///         file that can't be read ARDV_ERR_ACCESS_DENIED, ARDV_ERR_TOO_LARGE or ARDV_ERR_IO, unless the service was
///         found in a file before it
ARDVPLATFORM_API int ARDVInetdServiceIsEnable(const char* service);

#ifdef __cplusplus
}
#endif
