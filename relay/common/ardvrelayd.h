/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * The library for programs in C. Everything is read from "/usr/ardv/etc/ardvrelayd/ardvrelayd.conf"; a file that is no JSON is moved aside
 * by that, to the same name with ".bad" at its end. Nothing throws: want of memory is a failure, -1.
 */
#pragma once

#include <stddef.h>

#include <relay/common/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Switches the daemon's debug log on: sets "log_level" to 7 and "log_file" in the configuration, and has a running daemon read it again. If
 * none runs, which is then said on standard error, the setting counts from its next start. The configuration is not locked meanwhile: of
 * two writers the last one wins.
 *
 * @param logFile path of the log file, not checked
 * @return 0; -1 for null, and if the configuration cannot be read, is no JSON object, or cannot be written
 */
ARDVRELAYD_API int ALIBRelaydLogStart(const char* logFile);

/**
 * Switches the debug log off: removes "log_level" and "log_file" from the configuration, and has a running daemon read it again, as
 * `ALIBRelaydLogStart`. Where there is no configuration, a damaged one, or one that the caller may not read, an empty one is written; one
 * that is no object is written back as it is.
 *
 * @return 0; -1 if the configuration cannot be written, and for want of memory, which leaves it as it was
 */
ARDVRELAYD_API int ALIBRelaydLogStop(void);

/**
 * The device's server identifier, and whether a service is offered through the relay.
 *
 * @param service identifier of a service, or null to ask for the server identifier alone
 * @param buffer takes the server identifier, cut to `size` - 1 bytes and always terminated; may be null. Empty where
 * there is none; filled also where the result is 0 because the service is not offered.
 * @param size size of `buffer` in bytes
 * @return 1 if there is a server identifier and the service, if one is named, is offered; 0 if not; -1, with an empty text in `buffer`, if
 * the configuration cannot be read or is no JSON object
 */
ARDVRELAYD_API int ALIBRelaydGetServerId(const char* service, char* buffer, size_t size);

/**
 * The portal domain of the service: of a global control host "label.tethra.zz", the text "tethra.zz".
 *
 * @param buffer takes the domain, cut to `size` - 1 bytes and terminated; untouched on failure
 * @param size size of `buffer` in bytes
 * @return 0; -1, with a message of priority 3 in the system's log, if the host is none of the service's (none longer
 * than 1,024 bytes is); -1 also for a null buffer
 */
ARDVRELAYD_API int ALIBRelaydGetPortalDomain(char* buffer, size_t size);

#ifdef __cplusplus
}
#endif
