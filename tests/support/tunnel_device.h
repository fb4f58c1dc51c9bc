// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "support/handle.h"

namespace ardv::test {

inline constexpr const char kInformationFile[] = "/tmp/.ardv_tethra_tunnel_info";
inline constexpr const char kTunnelCertificate[] = "/usr/ardv/etc.defaults/ardvrelayd/ca/ca.crt";
inline constexpr const char kTunnelScripts[] = "/usr/ardv/etc.defaults/ardvrelayd/scripts";
inline constexpr const char kControlScript[] = "/usr/ardv/etc.defaults/ardvvpnclient/scripts/ovpnc.sh";
inline constexpr int kPage = 5000;         ///< a web page that tests permit
inline constexpr int kPhotos = 5009;       ///< one that they don't
inline constexpr int kClosed = 5010;       ///< where nothing listens
inline constexpr int kNameService = 5353;  ///< UDP, and answers

/** Puts what the tunnel needs of an installation into its fixed places, and the relay's certificate. */
void InstallTunnelFiles();

/** What a device serves to whoever reaches it: a web server on kPage and kPhotos, a UDP service on kNameService. */
class DeviceServices {
public:
    static constexpr const char kWeb[] = "/run/web";

    /** In the namespace "device". Waits, 10 seconds at most, until they serve. */
    DeviceServices();
    ~DeviceServices();
    DeviceServices(const DeviceServices&) = delete;
    DeviceServices& operator=(const DeviceServices&) = delete;

    /** The content of "/index.html" and "/1m" (1 MiB at random). */
    static std::string Page();
    static std::string Large();

private:
    void Answer() const;

    pid_t web_ = -1;
    Handle names_;
    std::atomic<bool> isEnding_ = false;
    std::thread answering_;
};

/** What somebody gets for "http://HOST:PORT/TARGET" in a namespace; empty without an answer within `seconds`. */
std::string Fetch(const std::string& network, const std::string& host, int port,
                  const std::string& target = "index.html", int seconds = 2);

/** The rules of one chain ("" for all) in the device, as the program lists them. */
std::vector<std::string> FilterRules(const std::string& program, const std::string& chain = "TETHRA_RELAY");

/** The TCP ports that the device's chain accepts in a family, in its order. */
std::vector<int> AcceptedPorts(const std::string& program);

}  // namespace ardv::test
