// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ardv/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/// The firewall's service list: what the device's packages serve, and on which ports.
///
/// # Files
///
/// The list is that of all files "/etc/ardv/services.d/*.json", one for each package as a rule, in the order of their
/// names. A file is a JSON array of objects:
///
///     [{"service": "dms", "section": "Management", "title": "Web pages", "display_name": "Management pages",
///       "ports": ["5000"]}]
///
/// - All members may be missing. A text that is empty, or a member of another type, counts as missing; other members
///   are ignored.
/// - `ports` is an array of texts; an integer from 1 to 65535 counts as its text, and any other item is left out. An
///   entry without `ports` has no port rules, which isn't the same as an empty array.
/// - An element of the file that is no object is left out.
/// - A text ends at a NUL.
///
/// A file must be a regular one (a symbolic link to one serves) of at most 1 MiB; its name mustn't begin with ".". Of
/// more than 64 files the first 64 count, of more than 4096 services the first 4096. A file that can't be read, or is
/// no JSON array, is left out, so that one damaged package doesn't hide the services of the others.
///
/// All functions may be called from several threads at once.

/// One service of the firewall's list. Texts are null where the list has none.
struct _tag_ARDV_FW_SERVICE {  // NOLINT(readability-identifier-naming): an old name
    const char* service;       ///< name of the service; null if the entry has none
    const char* section;       ///< group of services that it is shown in, or null
    const char* title;         ///< its title there, or null
    const char* display_name;  ///< name to show where section and title aren't both there, or null
    const char* const*
        ports;       ///< its port texts, each not null; null if it has no port rules, which isn't the same as no ports
    int port_count;  ///< how many texts `ports` has
};
typedef struct _tag_ARDV_FW_SERVICE ARDV_FW_SERVICE;  // NOLINT(modernize-use-using): for C

/// The firewall's service list.
typedef struct _tag_ARDV_FW_SERVICE_LIST ARDV_FW_SERVICE_LIST;  // NOLINT(modernize-use-using): for C

/// Reads the firewall's service list.
///
/// @param list takes the list, which the caller releases with `ARDVFWServiceFree`; null unless the result is positive
/// @return the number of services, at least 1
/// @return 0 when there are none: no folder, no file, or files without services; the error triple is left alone
/// @return negative on failure; the error triple is set: ARDV_ERR_INVALID_ARGUMENT for a null pointer; when there are
///         no services and a file was left out, the reason of the first one (ARDV_ERR_BAD_VALUE for one that is no JSON
///         array, ARDV_ERR_NOT_FOUND, ARDV_ERR_ACCESS_DENIED, ARDV_ERR_NOT_REGULAR, ARDV_ERR_TOO_LARGE, ARDV_ERR_IO);
///         the same codes when the folder can't be read; ARDV_ERR_NO_MEMORY
ARDVPLATFORM_API int ARDVFwServiceEnum(ARDV_FW_SERVICE_LIST** list);

/// Finds the first service of a list by its name, byte by byte. Never fails.
///
/// @param list a list of `ARDVFwServiceEnum`; null counts as an empty one
/// @param name name of the service; null is nobody's name
/// @return the service. It belongs to the list and is valid until that is released
/// @return null when there is none
ARDVPLATFORM_API const ARDV_FW_SERVICE* ARDVFWServiceFind(const ARDV_FW_SERVICE_LIST* list, const char* name);

/// Releases a list and the services found in it. Never fails.
///
/// @param list a list of `ARDVFwServiceEnum`, or null, which changes nothing
ARDVPLATFORM_API void ARDVFWServiceFree(ARDV_FW_SERVICE_LIST* list);

#ifdef __cplusplus
}
#endif
