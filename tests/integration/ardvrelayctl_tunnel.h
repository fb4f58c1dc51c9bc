// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "ardvrelayctl_daemon.h"

namespace ardv::test {

inline constexpr const char kOpenPorts[] = R"([{"id":"hos","port":5000},{"id":"http","port":80}])";

/** A tunnel that is up, with these ports open: a member of the status file. */
inline std::string ReadyTunnel(const std::string& open = kOpenPorts) {
    return R"("state":6,"tunnel":{"status":"READY","pid":1,"relay_ip":"198.51.100.7",
        "candidate":{"protocol":"udp","host":"198.51.100.7","port":"1194"},"peer_ip":"10.8.0.1","local_ip":"10.8.0.2",
        "local_ip6":"fd78::2","since":86400,"open":)" +
           open + "}";
}

/** A tunnel that is not up: the inside of an object in the status file. */
inline std::string Tunnel(const std::string& members) {
    return R"("state":3,"tunnel":{)" + members + "}";
}

/** A device with three services in its list, of which the owner denies the last one. */
class ArdvrelayctlTunnel : public ArdvrelayctlDaemon {
protected:
    ArdvrelayctlTunnel() {
        OfferUsualServices();
        WriteText(kConfigFile,
                  R"({"tethra":{"enabled":true},"service":[{"id":"hos"},{"id":"http"},{"id":"dms_https"}]})");
        WriteText(kPermissionFile, R"([{"id":"mobile_apps","enabled":true},{"id":"file_sharing","enabled":false}])");
    }

    static ProgramResult Status() { return Run({"tunnel", "status"}); }
    static ProgramResult Rules() { return Run({"tunnel", "rules"}); }

    /** As somebody who is not root, if this machine lets anybody else run the tool. */
    static ProgramResult RunAsSomebody(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(),
                         {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", ARDV_RELAYCTL});
        return RunProgram(arguments);
    }
};

}  // namespace ardv::test
