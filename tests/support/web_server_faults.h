// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Answers of the web server configuration engine that a real one can't be made to give, and a record of what was asked
 * of it. Its functions are interposed in the program that links this; the settings' delegate to the real ones unless a
 * fault is set, registrations are never carried out.
 */
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <ardvw3/nginx_conf_register.h>

namespace ardv::test {

/** What the interposed functions do while one of these lives, which must be at most one at a time. */
class WebServerFaults {
public:
    WebServerFaults();
    ~WebServerFaults();
    WebServerFaults(const WebServerFaults&) = delete;
    WebServerFaults& operator=(const WebServerFaults&) = delete;

    bool enableFails = false;   ///< HOS::SetEnableRelayDDNS fails
    bool disableFails = false;  ///< HOS::SetDisableRelayDDNS fails
    bool setFails = false;      ///< HOS::Set fails

    /** Gives the code of a registration; what it throws comes out of NginxConfRegister::DoAction. */
    std::function<ardvw3::W3Code()> onAction = [] { return ardvw3::W3Code::kSuccess; };

    /** The settings' changes that were asked for, in order: "enable NAME", "disable", "set". */
    std::vector<std::string> calls;

    /** The registrations that were asked for, with their second argument. */
    std::vector<std::pair<std::shared_ptr<ardvw3::NginxConfRegAction>, bool>> actions;
};

}  // namespace ardv::test
