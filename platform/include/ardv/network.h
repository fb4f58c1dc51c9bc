// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <stddef.h>

#include <ardv/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/// The device's network: its interfaces and their addresses, the default gateway, the PPPoE connection.

/// The kinds of interface that the table tells apart.
enum ArdvInterfaceType {
    ARDV_INTERFACE_OTHER = 0,     ///< tunnel, bridge of containers, dummy: nothing of the device's own
    ARDV_INTERFACE_LOOPBACK = 1,  ///< the loopback interface
    ARDV_INTERFACE_WIRED = 2,     ///< a wired port of the device, or a bond, bridge or VLAN on one
    ARDV_INTERFACE_WIRELESS = 3,  ///< a wireless one
};

/// One IPv4 address of an interface.
struct _tag_ALIB_NETIF {
    char name[16];  ///< name of the interface
    int type;       ///< one of `ArdvInterfaceType`
    char ip[16];    ///< IPv4 address, dotted quad
    char mask[16];  ///< net mask, dotted quad
};
typedef struct _tag_ALIB_NETIF ALIB_NETIF;

/// Reads the table of interfaces.
ARDVPLATFORM_API int ALIBNetGetInterfaceInfo(ALIB_NETIF* table, int size);

/// Tells whether an address and a net mask make the address of a host.
ARDVPLATFORM_API int ALIBIsValidIpMask(const char* ip, const char* mask);

/// Where an IPv6 address comes from.
enum ArdvIPv6AddressType {
    ARDV_IPV6_STATIC = 0,     ///< set for good
    ARDV_IPV6_AUTOMATIC = 1,  ///< given for a time, by router advertisement or DHCP
    ARDV_IPV6_TEMPORARY = 2,  ///< a privacy address
};

/// One IPv6 address of an interface.
struct _tag_ARDV_IPV6_ADDRESS {
    char address[46];   ///< the text of RFC 5952
    int prefix_length;  ///< 0 to 128
    int addr_type;      ///< one of `ArdvIPv6AddressType`
};
typedef struct _tag_ARDV_IPV6_ADDRESS ARDV_IPV6_ADDRESS;

/// Reads the IPv6 addresses of an interface.
ARDVPLATFORM_API int ARDVLnxV6IPGet(const char* name, ARDV_IPV6_ADDRESS* addresses, int size);

/// Reads the address of the default gateway (IPv4).
ARDVPLATFORM_API int ARDVNetDefaultGatewayGet(char* gateway, size_t size);

/// Tells whether PPPoE is connected.
ARDVPLATFORM_API int ARDVPPPoECheckStatus(int flags);

/// Reads address and net mask of the PPPoE connection.
ARDVPLATFORM_API int ARDVPPPoeNetInfoGet(char* ip, size_t ipSize, char* mask, size_t maskSize);

/// Reads the name of the PPPoE connection's interface.
ARDVPLATFORM_API int ARDVPPPoeIntfGet(char* name, size_t size);

#ifdef __cplusplus
}
#endif
