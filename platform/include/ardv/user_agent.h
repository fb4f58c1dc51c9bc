// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <stddef.h>

#include <ardv/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Writes the device's HTTP user agent for a product: "PRODUCT/VERSION (Linux MACHINE)",
/// for example "Tethra/7.0.0 (Linux x86_64)".
///
/// VERSION is that of the whole system (the project's, as it was built, and not the number in the platform library's
/// file name); MACHINE is the kernel's name of the hardware. For one product the text stays the same for the life of
/// the process. Called for every request, so it must be cheap: generic Linux asks the kernel once, then only formats.
/// May be called from several threads at once.
///
/// @param product name of the product: not empty and without control characters, which could smuggle in a header of
///        their own
/// @param buffer buffer for the text and a NUL; a longer text is cut to `size` - 1 bytes, which is no failure
/// @param size its size in bytes, at least 1
/// @param flags 0; no flag is defined
/// @return 0 when the text, or its beginning, is stored
/// @return negative on failure; the buffer, if usable, holds the empty text and the error triple (<ardv/error.h>) is
///         set: ARDV_ERR_INVALID_ARGUMENT (null pointer, size 0, unknown flag, a product that is refused),
///         ARDV_ERR_INTERNAL
ARDVPLATFORM_API int ALIBHsinfoUserAgentGet(const char* product, char* buffer, size_t size, int flags);

#ifdef __cplusplus
}
#endif
