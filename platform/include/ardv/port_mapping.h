// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ardv/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Which ports of the router lead to this device.
///
/// On generic Linux the router is the gateway of the default route (IPv4; the main table's, with the lowest metric). It
/// is asked as UPnP Internet Gateway Device version 1 or 2: found by SSDP, its mappings read from its services of type
/// WANIPConnection:1, WANIPConnection:2 and WANPPPConnection:1, two of them at most. Nothing is changed there. Only
/// answers from the gateway's own address count, and whatever it says leads nowhere but to that address.
///
/// # What a call costs
///
/// The first call asks the router for all of its mappings, which takes some milliseconds, or, where no router answers,
/// `ARDV_PORT_MAPPING_WAIT_MILLISECONDS` at most. The answer serves the calls after it for a time:
/// `ARDV_PORT_MAPPING_KEPT_SECONDS`, and `ARDV_PORT_MAPPING_ABSENCE_KEPT_SECONDS` when there was none or a bad one. A
/// change of the gateway, of the interface to it or of the device's address there ends this time, after
/// `ARDV_PORT_MAPPING_ROUTE_KEPT_SECONDS` at the latest. Callers in several threads wait for one another and share the
/// answer. Nothing happens between calls.

enum {
    /// The longest that a call waits, in milliseconds. A caller asks for some twenty services in a row while a person
    /// waits; all of them together must stay below a second.
    ARDV_PORT_MAPPING_WAIT_MILLISECONDS = 850,
    /// How long mappings are kept, in seconds: enough for all services of one reading of the configuration, and short
    /// enough for a person who has changed the router and looks again.
    ARDV_PORT_MAPPING_KEPT_SECONDS = 10,
    /// How long it is kept that no router answers, in seconds. Most networks without such a router stay so, and each new
    /// attempt costs the whole wait.
    ARDV_PORT_MAPPING_ABSENCE_KEPT_SECONDS = 60,
    /// How long the way to the router (gateway, interface, own address) is taken for granted, in seconds.
    ARDV_PORT_MAPPING_ROUTE_KEPT_SECONDS = 1,
};

/// Reads which external TCP port of the router is forwarded to a TCP port of this device: the first in the router's
/// order of its enabled mappings of protocol TCP with this internal port and, as internal client, the address that this
/// device has towards the router. (Mappings that leave the internal client to a host name, or with a port out of range,
/// don't count.)
///
/// @param port TCP port of this device, 1 to 65535
/// @param routerPort takes the router's port, 1 to 65535; 0 when none is forwarded, and on every failure
/// @return 0 when the router has answered: look at `*routerPort`; the error triple is left alone
/// @return negative on failure; the error triple (<ardv/error.h>) is set:
///         ARDV_ERR_INVALID_ARGUMENT (null pointer, port out of range);
///         ARDV_ERR_NO_DEVICE (no default gateway; nothing is sent then);
///         ARDV_ERR_NO_ANSWER (no router answers in time; also when it couldn't finish a slow list and the port wasn't
///         in the part that was read);
///         ARDV_ERR_BAD_VALUE (the router's answers make no sense: no description of a connection, no list, more than
///         1 MiB at once; also when the port isn't among the first 512 entries of a longer list);
///         ARDV_ERR_NO_MEMORY; ARDV_ERR_IO and the other failures of reading a file (the kernel's table of routes)
ARDVPLATFORM_API int ALibArdvPortMapGetRouterPort(int port, int* routerPort);

#ifdef __cplusplus
}
#endif
