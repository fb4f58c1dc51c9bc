// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ardv/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/// One service of the firewall's list. Texts are null where the list has none.
struct _tag_ARDV_FW_SERVICE {
    const char* service;       ///< name of the service; null if the entry has none
    const char* section;       ///< group of services that it is shown in, or null
    const char* title;         ///< its title there, or null
    const char* display_name;  ///< name to show where section and title aren't both there, or null
    const char* const* ports;  ///< its port texts; null if it has no port rules, which isn't the same as no ports
    int port_count;            ///< how many
};
typedef struct _tag_ARDV_FW_SERVICE ARDV_FW_SERVICE;

/// The firewall's service list.
typedef struct _tag_ARDV_FW_SERVICE_LIST ARDV_FW_SERVICE_LIST;

/// Reads the firewall's service list.
ARDVPLATFORM_API int ARDVFwServiceEnum(ARDV_FW_SERVICE_LIST** list);

/// Finds the first service of a list by its name.
ARDVPLATFORM_API const ARDV_FW_SERVICE* ARDVFWServiceFind(const ARDV_FW_SERVICE_LIST* list, const char* name);

/// Releases a list.
ARDVPLATFORM_API void ARDVFWServiceFree(ARDV_FW_SERVICE_LIST* list);

#ifdef __cplusplus
}
#endif
