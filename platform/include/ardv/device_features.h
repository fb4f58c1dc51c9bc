// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ardv/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Tells whether the device has a feature: its factory defaults ("/etc.defaults/ardvinfo.conf", a file of
/// <ardv/key_value_file.h>) have the feature as a key with exactly the value "yes".
///
/// @param feature name of the feature: "supportddns" for dynamic DNS
/// @return 1 when the device has it
/// @return 0 otherwise. If the reason is a file that is missing or can't be read, or a null or empty name, the error
///         triple is set as <ardv/key_value_file.h> says; if it is an absent key or another value, the triple is left
///         alone
ARDVPLATFORM_API int ALIBCSupportGet(const char* feature);

#ifdef __cplusplus
}
#endif
