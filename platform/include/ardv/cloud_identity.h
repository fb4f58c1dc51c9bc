// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <stddef.h>

#include <ardv/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/// The device's identity at the relay service: serial number, token, API key and MAC address.
///
/// An identity is never cut: a value that doesn't fit into its buffer, or that contains a NUL byte, is a failure. On
/// every failure each buffer that is usable (not null, size at least 1) holds the empty text and the error triple
/// (<ardv/error.h>) is set. No function logs a value. All may be called from several threads at once.
///
/// On generic Linux the identity is in the key/value file "/etc/ardv/identity.conf" (keys `serial`, `token`, `api_key`,
/// `mac`), read anew by each call, so a changed file counts at once. It holds secrets and should have mode 0600. A file
/// whose owner is neither root nor the effective user of the process, or that group or others may write to, is refused
/// (ARDV_ERR_UNSAFE_FILE), since somebody else could have put another identity there; one that they may read is
/// accepted. Behind a symbolic link the target's owner and mode count.
///
/// Failures of reading it, called "an unreadable identity" below: ARDV_ERR_NOT_FOUND, ARDV_ERR_ACCESS_DENIED,
/// ARDV_ERR_NOT_REGULAR, ARDV_ERR_TOO_LARGE (more than 64 KiB), ARDV_ERR_UNSAFE_FILE, ARDV_ERR_IO, ARDV_ERR_NO_MEMORY.

enum {
    ARDV_TOKEN_SIZE = 33,      ///< a token that `ARDVCloudServiceHstokenGenerateToken` makes: 32 characters and the NUL
    ARDV_API_KEY_SIZE = 1024,  ///< what a buffer for `ARDVCloudServiceGetApiKey` must have
    ARDV_MAC_SIZE = 18,        ///< "02:00:5e:10:00:01" and the NUL
};

/// Reads the device's serial number and token.
///
/// @param serial buffer for the serial number and a NUL
/// @param serialSize its size in bytes, at least 1
/// @param token buffer for the token and a NUL
/// @param tokenSize its size in bytes, at least 1
/// @return 0 when both are stored; neither is empty
/// @return negative on failure, both buffers empty: ARDV_ERR_INVALID_ARGUMENT (null pointer, size 0),
///         ARDV_ERR_NO_VALUE (serial or token missing or empty), ARDV_ERR_BUFFER_TOO_SMALL,
///         ARDV_ERR_BAD_VALUE (NUL byte), or an unreadable identity
ARDVPLATFORM_API int ARDVCloudServiceHstokenGetToken(char* serial, size_t serialSize, char* token, size_t tokenSize);

/// Makes the token that belongs to a serial number on this device. The same serial and API key give the same token;
/// nothing is stored.
///
/// On generic Linux it is the first 32 lower-case hexadecimal digits of HMAC-SHA256 with the API key as key and the
/// serial's bytes as data.
///
/// @param serial the serial number, not empty
/// @param token buffer for the token's 32 characters and a NUL
/// @param size its size in bytes, at least `ARDV_TOKEN_SIZE`
/// @return 0 when the token is stored
/// @return negative on failure, the buffer empty: ARDV_ERR_INVALID_ARGUMENT (null pointer, empty serial, size 0),
///         ARDV_ERR_BUFFER_TOO_SMALL, ARDV_ERR_NO_VALUE (no API key), ARDV_ERR_CRYPTO, or an unreadable identity
ARDVPLATFORM_API int ARDVCloudServiceHstokenGenerateToken(const char* serial, char* token, size_t size);

/// Reads the device's API key, a secret.
///
/// @param key buffer of `ARDV_API_KEY_SIZE` bytes for the key and a NUL
/// @param flags 0; no flag is defined
/// @return 0 when the key is stored; it isn't empty
/// @return negative on failure, the buffer empty: ARDV_ERR_INVALID_ARGUMENT (null pointer, unknown flag),
///         ARDV_ERR_NO_VALUE (missing or empty), ARDV_ERR_BUFFER_TOO_SMALL, ARDV_ERR_BAD_VALUE (NUL byte),
///         or an unreadable identity
ARDVPLATFORM_API int ARDVCloudServiceGetApiKey(char* key, int flags);

/// Reads the MAC address by which the service knows the device. It is one for the whole device, not that of an
/// interface.
///
/// On generic Linux it is `mac` of the identity file, six pairs of hexadecimal digits joined by ":" or "-" or nothing.
/// Without a file, or without a (non-empty) `mac` in it, it is the address of the first wired interface: the one with
/// the lowest index among Ethernet interfaces that aren't loopback or wireless and have an address of their own. A
/// physical one goes before a virtual one (as a container has); bridges, bonds, tunnels and interfaces that speak no
/// ARP never count.
///
/// @param mac buffer for the address, in lower case with colons, and a NUL
/// @param size its size in bytes, at least `ARDV_MAC_SIZE`
/// @return 0 when the address is stored
/// @return negative on failure, the buffer empty: ARDV_ERR_INVALID_ARGUMENT (null pointer, size 0),
///         ARDV_ERR_BUFFER_TOO_SMALL,
///         ARDV_ERR_BAD_VALUE (`mac` isn't the address of one device: malformed, zero or a group address),
///         ARDV_ERR_NO_DEVICE (no such interface), or an identity file that is there and unreadable
ARDVPLATFORM_API int ARDVHsinfoCloudServiceGetMacAddress(char* mac, size_t size);

#ifdef __cplusplus
}
#endif
