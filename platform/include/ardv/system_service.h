// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ardv/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Has a unit started at boot from now on.
ARDVPLATFORM_API int ARDVSystemdEnable(const char* unit);
/// No longer has a unit started at boot.
ARDVPLATFORM_API int ARDVSystemdDisable(const char* unit);
/// Starts a unit.
ARDVPLATFORM_API int ARDVSystemdStart(const char* unit);
/// Stops a unit.
ARDVPLATFORM_API int ARDVSystemdStop(const char* unit);
/// Has a unit read its configuration anew.
ARDVPLATFORM_API int ARDVSystemdReload(const char* unit);
/// Tells whether a unit is active.
ARDVPLATFORM_API int ARDVSystemdActiveStatusGet(const char* unit);

/// Tells whether an inetd service is on.
ARDVPLATFORM_API int ARDVInetdServiceIsEnable(const char* service);

#ifdef __cplusplus
}
#endif
