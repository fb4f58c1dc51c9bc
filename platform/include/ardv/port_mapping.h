// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ardv/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Reads which port of the router is forwarded to a TCP port of this device.
ARDVPLATFORM_API int ALibArdvPortMapGetRouterPort(int port, int* routerPort);

#ifdef __cplusplus
}
#endif
