// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ardv/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/// What a dynamic DNS provider keeps for this device.
struct _tag_ARDV_DDNS_CONFIG {
    char hostname[256];  ///< host name
};
typedef struct _tag_ARDV_DDNS_CONFIG ARDV_DDNS_CONFIG;

/// Reads the configuration of a dynamic DNS provider.
ARDVPLATFORM_API int ARDVDDNSConfigGet(const char* provider, ARDV_DDNS_CONFIG* config);

#ifdef __cplusplus
}
#endif
