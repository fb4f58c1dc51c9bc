// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ardv/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Tells whether the device has a feature.
ARDVPLATFORM_API int ALIBCSupportGet(const char* feature);

#ifdef __cplusplus
}
#endif
