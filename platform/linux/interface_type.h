// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace ARDV::Platform {

/// An interface as the kernel lists it.
struct NetworkLink {
    int index = 0;
    std::string name;
    unsigned hardware = 0;        ///< ARPHRD_ number
    unsigned flags = 0;           ///< IFF_ bits
    std::string kind;             ///< "veth", "bridge" ...; empty for the device's own hardware
    int master = 0;               ///< index of the bond or bridge of which it is a port; 0 for none
    int lower = 0;                ///< index of the interface that carries it, or of its other end; 0 for none
    bool leadsElsewhere = false;  ///< `lower` is in another network namespace
    bool isWireless = false;
};

/// The interface's `ArdvInterfaceType`. What an interface is may depend on others, so all of them are needed.
int InterfaceType(const std::vector<NetworkLink>& links, const NetworkLink& link);

}  // namespace ARDV::Platform
