// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ardv/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/// What a dynamic DNS provider keeps for this device.
struct _tag_ARDV_DDNS_CONFIG {
    char hostname[256];  ///< host name, NUL-terminated
};
typedef struct _tag_ARDV_DDNS_CONFIG ARDV_DDNS_CONFIG;

/// Reads the configuration of a dynamic DNS provider: `hostname` of "/etc/ardv/ddns/PROVIDER.conf" (a file of
/// <ardv/key_value_file.h>).
///
/// @param provider name of the provider: 1 to 128 bytes that make one file name, so without "/" and control characters
///        and not beginning with "."
/// @param config takes the configuration. Its host name is the empty text on failure
/// @return 0 on success; the host name has 1 to 253 bytes (RFC 1035), each a letter, a digit, "-", "_" or "."
/// @return negative on failure; the error triple is set: ARDV_ERR_INVALID_ARGUMENT for a null pointer or any other
///         provider, ARDV_ERR_NO_VALUE when the key is missing or empty, ARDV_ERR_BAD_VALUE when its value is no such
///         host name, and for a file that is missing or can't be read the codes of <ardv/key_value_file.h>
ARDVPLATFORM_API int ARDVDDNSConfigGet(const char* provider, ARDV_DDNS_CONFIG* config);

#ifdef __cplusplus
}
#endif
