// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ardv/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Tells whether the web server runs with its default HTTP configuration.
ARDVPLATFORM_API int ARDVServiceIsHttpDefaultConf(void);

#ifdef __cplusplus
}
#endif
