// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ardv/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/// The device's services: the units of its service manager, and the services of its inetd.
///
/// # Units
///
/// A unit is named without a path, for example "ardvrelayd". A name that ends with none of the manager's kinds of unit
/// (".service", ".socket", ".device", ".mount", ".automount", ".swap", ".target", ".path", ".timer", ".slice", ".scope")
/// gets ".service" at its end. It has 1 to 255 characters then, out of ASCII letters, digits and `:-_.\@`.
///
/// On generic Linux these functions speak with systemd over the system bus (D-Bus interface
/// "org.freedesktop.systemd1.Manager"). Each call opens a connection of its own and closes it. A caller that isn't root
/// needs the rights that systemd asks for (polkit); only the state of a unit is for everybody. Nobody is asked for a
/// password. All functions may be called from several threads at once.
///
/// On a failure they set the error triple (<ardv/error.h>). Failures of every function, called "the common failures"
/// below:
///
/// - ARDV_ERR_INVALID_ARGUMENT: null pointer, or a text that is no name of a unit (a template without instance, too)
/// - ARDV_ERR_NO_ANSWER: no bus, no manager on it, no answer to a question within 10 s, or the connection is lost
/// - ARDV_ERR_ACCESS_DENIED: the bus or the manager refuses the caller
/// - ARDV_ERR_SERVICE_FAILED: any other error that the manager answers
/// - ARDV_ERR_NO_MEMORY

/// How long starting, stopping and reloading wait for their end, in seconds: a little more than the 90 s after which the
/// manager itself gives up (DefaultTimeoutStartSec and DefaultTimeoutStopSec of systemd-system.conf(5)).
enum { ARDV_SYSTEMD_JOB_SECONDS = 100 };

/// Has a unit started at boot from now on, and the manager read its unit files anew. Doesn't start it now. A unit that
/// is enabled already stays so, which is a success.
///
/// @param unit name of the unit
/// @return 0 when it is enabled
/// @return negative on failure: ARDV_ERR_NOT_FOUND (there is no such unit), ARDV_ERR_SERVICE_FAILED (it is masked, or
///         says nothing on when it is to be started: no [Install] section), or a common failure
ARDVPLATFORM_API int ARDVSystemdEnable(const char* unit);

/// No longer has a unit started at boot, and has the manager read its unit files anew. Doesn't stop it now.
///
/// @param unit name of the unit
/// @return 0 when it is not enabled (any more), also when there is no such unit
/// @return negative on a common failure
ARDVPLATFORM_API int ARDVSystemdDisable(const char* unit);

/// Starts a unit and waits until it has started, `ARDV_SYSTEMD_JOB_SECONDS` at most. What "started" means is up to the
/// unit: with Type=forking its first process has ended well, with Type=simple its process exists and may still end at
/// once. A unit that is active stays so, which is a success.
///
/// @param unit name of the unit
/// @return 0 when it has started
/// @return negative on failure: ARDV_ERR_NOT_FOUND (there is no such unit), ARDV_ERR_SERVICE_FAILED (it didn't start, or
///         is masked), ARDV_ERR_NO_ANSWER (also: it hasn't started yet when the time is over; the manager goes on), or
///         another common failure
ARDVPLATFORM_API int ARDVSystemdStart(const char* unit);

/// Stops a unit and waits until it has stopped, `ARDV_SYSTEMD_JOB_SECONDS` at most.
///
/// @param unit name of the unit
/// @return 0 when it doesn't run: it was stopped, wasn't active, or there is no such unit
/// @return negative on failure: ARDV_ERR_SERVICE_FAILED, ARDV_ERR_NO_ANSWER (also: it hasn't stopped yet when the time
///         is over; the manager goes on), or another common failure
ARDVPLATFORM_API int ARDVSystemdStop(const char* unit);

/// Has a unit read its configuration anew and waits until its reload command has ended, `ARDV_SYSTEMD_JOB_SECONDS` at
/// most. A unit that isn't active isn't started.
///
/// @param unit name of the unit
/// @return 0 when the unit has reloaded
/// @return negative on failure: ARDV_ERR_NOT_FOUND (there is no such unit), ARDV_ERR_SERVICE_FAILED (it isn't active, has
///         no way to reload, or its reload command failed), ARDV_ERR_NO_ANSWER (also: not over in time), or another
///         common failure
ARDVPLATFORM_API int ARDVSystemdReload(const char* unit);

/// Tells whether a unit is active. Changes nothing.
///
/// @param unit name of the unit
/// @return 1 when its state is "active" or "reloading"
/// @return 0 in every other state ("inactive", "failed", "activating", "deactivating"), or when there is no such unit;
///         the error triple is left alone
/// @return negative on a common failure
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
