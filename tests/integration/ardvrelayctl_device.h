// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gmock/gmock.h>
#include <json/json.h>

#include <string>
#include <vector>

#include "support/program.h"
#include "support/service_device.h"

namespace ardv::test {

inline constexpr const char kPermissionFile[] = "/usr/ardv/etc/ardvrelayd/services.conf";

/** A device as it comes, with the management tool. It has no configuration and offers no service. */
class ArdvrelayctlDevice : public ServiceDevice {
protected:
    static ProgramResult Run(std::vector<std::string> arguments, const std::string& input = "") {
        arguments.insert(arguments.begin(), ARDV_RELAYCTL);
        return RunProgram(arguments, input);
    }

    /** What the tool prints with "--json", which must be JSON and nothing else. */
    static Json::Value RunJson(std::vector<std::string> arguments) {
        arguments.emplace_back("--json");
        return JsonOf(Run(std::move(arguments)).out);
    }

    /** The portal, the web service and the secure shell, each at its port. */
    static void OfferUsualServices() {
        Offer(R"([{"service":"dms","section":"HOS","title":"http","ports":["5000"]},
                  {"service":"dms_https","section":"HOS","title":"https","ports":["5001"]},
                  {"service":"http","display_name":"Web","ports":["80"]},
                  {"service":"ssh","display_name":"Secure shell","ports":["22"]}])");
    }

    static void InstallPackage(const std::string& name) { WriteText("/var/packages/" + name + "/enabled", ""); }
};

}  // namespace ardv::test
