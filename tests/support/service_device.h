// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <string>

#include "device_test.h"

namespace ardv::test {

inline constexpr const char kFirewallFolder[] = "/etc/ardv/services.d";
inline constexpr const char kFirewallServices[] = "/etc/ardv/services.d/device.json";
inline constexpr const char kWebSettings[] = "/etc/ardv/web.conf";
inline constexpr const char kPackages[] = "/var/packages";
inline constexpr const char kPhotoSettings[] = "/var/packages/Pictara/etc/settings.conf";

/** Tests on a device that at first offers no service, has no web settings and no packages, and leaves it so. */
class ServiceDevice : public DeviceTest {
protected:
    ServiceDevice() { Clear(); }
    ~ServiceDevice() override { Clear(); }

    /** Makes this array the firewall's service list. */
    static void Offer(const std::string& services) { WriteText(kFirewallServices, services); }

    /** Makes the firewall's service list one service that has this one port. */
    static void OfferAtPort(const std::string& name, const std::string& port) {
        Offer(R"([{"service":")" + name + R"(","display_name":"shown","ports":[")" + port + "\"]}]");
    }

private:
    static void Clear() {
        for (const char* path : {kFirewallFolder, kWebSettings, kPackages}) {
            std::filesystem::remove_all(path);
        }
    }
};

}  // namespace ardv::test
