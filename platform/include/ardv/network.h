// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <stddef.h>

#include <ardv/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/// The device's network as it is now: its interfaces and their addresses, the default gateway, the PPPoE connection.
///
/// Nothing is kept from one call to the next. All functions may be called from several threads and processes at once,
/// and what they tell is that of the caller's network namespace. On a failure they set the error triple
/// (<ardv/error.h>): the codes that a function names, and ARDV_ERR_NO_MEMORY, ARDV_ERR_ACCESS_DENIED,
/// ARDV_ERR_TOO_LARGE (a table of more than 8192 entries) or ARDV_ERR_IO where the system doesn't tell, or changes
/// faster than it can be read.

/// The kinds of interface that the table tells apart.
enum ArdvInterfaceType {
    ARDV_INTERFACE_OTHER = 0,     ///< tunnel, bridge of containers, dummy: nothing of the device's own
    ARDV_INTERFACE_LOOPBACK = 1,  ///< the loopback interface
    ARDV_INTERFACE_WIRED = 2,     ///< one of the device's own wired interfaces
    ARDV_INTERFACE_WIRELESS = 3,  ///< a wireless one
};

/// One IPv4 address of an interface.
///
/// Wired are the Ethernet interfaces that aren't wireless and
/// - are the device's own hardware, or
/// - are a bond, team or bridge of which a port is wired, or
/// - are a VLAN, MACVLAN, IPVLAN or MACsec interface on a wired one, or a port of the device's own switch, or
/// - lead out of a container: one end of a virtual pair whose other end is in another network namespace, unless it is
///   itself the port of a bridge (then it is a host's way into a container); or a MACVLAN and the like on an interface
///   of another namespace.
///
/// So a bridge without a wired port, a dummy interface, a tunnel of any kind and PPP aren't wired.
struct _tag_ALIB_NETIF {  // NOLINT(readability-identifier-naming): an old name
    char name[16];        ///< name of the interface, NUL-terminated
    int type;             ///< one of `ArdvInterfaceType`
    char ip[16];          ///< IPv4 address, dotted quad, NUL-terminated
    char mask[16];        ///< net mask, dotted quad, NUL-terminated
};
typedef struct _tag_ALIB_NETIF ALIB_NETIF;  // NOLINT(modernize-use-using): for C

/// Reads the table of interfaces: one entry for each IPv4 address of each interface that is set up (whether or not its
/// cable is plugged in), in the order of the interfaces' indices. An interface's primary addresses come before its
/// secondary ones. An interface without an IPv4 address has no entry.
///
/// @param table takes the entries; may be null when `size` is 0
/// @param size how many entries `table` has room for. Of more than that, the first `size` are stored
/// @return how many entries were stored, 1 to `size`
/// @return 0 when there are none, or `size` is 0; the error triple is left alone
/// @return negative on failure; the error triple is set (ARDV_ERR_INVALID_ARGUMENT for a null pointer or a negative
///         size). `table` is untouched
ARDVPLATFORM_API int ALIBNetGetInterfaceInfo(ALIB_NETIF* table, int size);

/// Tells whether an address and a net mask make the address of a host: both are dotted quads of four decimal numbers
/// without leading zeros and with nothing around them; the mask is a run of one bits from the top, at least one;
/// the address is below 224.0.0.0 (no multicast, nothing reserved), not in 0.0.0.0/8, and neither the network nor the
/// broadcast address of its network. A network of two addresses (255.255.255.254, RFC 3021) or one (255.255.255.255)
/// has hosts only. Never touches the error triple.
///
/// @param ip the address; null counts as invalid
/// @param mask the net mask; null counts as invalid
/// @return 1 when they do
/// @return 0 otherwise
ARDVPLATFORM_API int ALIBIsValidIpMask(const char* ip, const char* mask);

/// Where an IPv6 address comes from.
enum ArdvIPv6AddressType {
    ARDV_IPV6_STATIC = 0,     ///< set for good; a link-local address too
    ARDV_IPV6_AUTOMATIC = 1,  ///< given for a time, by router advertisement or DHCP
    ARDV_IPV6_TEMPORARY = 2,  ///< a privacy address (RFC 8981)
};

/// One IPv6 address of an interface.
struct _tag_ARDV_IPV6_ADDRESS {  // NOLINT(readability-identifier-naming): an old name
    char address[46];            ///< the text of RFC 5952, NUL-terminated, without prefix length and zone
    int prefix_length;           ///< 0 to 128
    int addr_type;               ///< one of `ArdvIPv6AddressType`
};
typedef struct _tag_ARDV_IPV6_ADDRESS ARDV_IPV6_ADDRESS;  // NOLINT(modernize-use-using): for C

/// Reads the IPv6 addresses of an interface, set up or not, in the system's order. An address that is still being
/// probed for a second owner, or has one (RFC 4862), isn't the device's to tell and is left out, unless the system lets
/// it be used meanwhile (RFC 4429).
///
/// @param name name of the interface, 1 to 15 bytes
/// @param addresses takes the entries; may be null when `size` is 0
/// @param size how many entries `addresses` has room for. Of more than that, the first `size` are stored
/// @return how many entries were stored, 1 to `size`
/// @return 0 when the interface has none, the system has no IPv6, or `size` is 0; the error triple is left alone
/// @return negative on failure; the error triple is set: ARDV_ERR_INVALID_ARGUMENT for a null pointer, an empty or
///         longer name or a negative size; ARDV_ERR_NO_DEVICE when there is no such interface. `addresses` is untouched
ARDVPLATFORM_API int ARDVLnxV6IPGet(const char* name, ARDV_IPV6_ADDRESS* addresses, int size);

/// Reads the address of the default gateway (IPv4): that of the main table's default route with the lowest metric,
/// among the routes that have a gateway and that the system doesn't hold for dead. Of a route over several gateways it
/// is the first that isn't dead. A route of which the interface is set down doesn't exist.
///
/// @param gateway buffer that takes the address as dotted quad and a NUL, never cut. The empty text on failure
/// @param size size of `gateway` in bytes; 16 is enough for every address
/// @return 0 on success
/// @return negative on failure; the error triple is set: ARDV_ERR_INVALID_ARGUMENT for a null pointer or a size of 0,
///         ARDV_ERR_NO_VALUE when there is no such route, ARDV_ERR_BUFFER_TOO_SMALL
ARDVPLATFORM_API int ARDVNetDefaultGatewayGet(char* gateway, size_t size);

/// Tells whether PPPoE is connected: the kernel has a PPPoE session in the caller's network namespace (RFC 2516;
/// /proc/thread-self/net/pppoe), and there is a PPP interface that is set up, running and has an IPv4 address. Of
/// several such interfaces the one of lowest index counts, here and in the two functions below. A session that a program
/// carries itself, without the kernel's part, doesn't count, nor does PPP over anything else while there is no session.
///
/// @param flags 0; no flag is defined
/// @return 1 when it is connected
/// @return 0 when it isn't; the error triple is left alone
/// @return negative on failure; the error triple is set (ARDV_ERR_INVALID_ARGUMENT for an unknown flag)
ARDVPLATFORM_API int ARDVPPPoECheckStatus(int flags);

/// Reads address and net mask of the PPPoE connection, as dotted quads that are never cut.
///
/// @param ip buffer that takes the address and a NUL. The empty text on failure
/// @param ipSize size of `ip` in bytes; 16 is enough
/// @param mask buffer that takes the net mask and a NUL. The empty text on failure
/// @param maskSize size of `mask` in bytes; 16 is enough
/// @return 0 on success
/// @return negative on failure; the error triple is set: ARDV_ERR_INVALID_ARGUMENT for a null pointer or a size of 0,
///         ARDV_ERR_NO_DEVICE when PPPoE isn't connected, ARDV_ERR_BUFFER_TOO_SMALL
ARDVPLATFORM_API int ARDVPPPoeNetInfoGet(char* ip, size_t ipSize, char* mask, size_t maskSize);

/// Reads the name of the PPPoE connection's interface.
///
/// @param name buffer that takes the name and a NUL, never cut. The empty text on failure
/// @param size size of `name` in bytes; 16 is enough
/// @return 0 on success
/// @return negative on failure; the error triple is set: ARDV_ERR_INVALID_ARGUMENT for a null pointer or a size of 0,
///         ARDV_ERR_NO_DEVICE when PPPoE isn't connected, ARDV_ERR_BUFFER_TOO_SMALL
ARDVPLATFORM_API int ARDVPPPoeIntfGet(char* name, size_t size);

#ifdef __cplusplus
}
#endif
