// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ardv/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Tells whether the web server runs with its default HTTP configuration: `http_default_conf` of "/etc/ardv/web.conf"
/// (a file of <ardv/key_value_file.h>) is exactly "yes".
///
/// @return 1 when it does
/// @return 0 when it doesn't, or the key or the file is missing; the error triple is left alone
/// @return negative when the file is there and can't be read; the error triple is set as <ardv/key_value_file.h> says
ARDVPLATFORM_API int ARDVServiceIsHttpDefaultConf(void);

#ifdef __cplusplus
}
#endif
