// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>

#include <ardv/export.h>

#include <ardvw3/engine.h>

namespace ardvw3 {

/// The web settings of the operating system.
class ARDVPLATFORM_API HOS {
public:
    explicit HOS(Engine& engine);
    ~HOS();
    HOS(const HOS&) = delete;
    HOS& operator=(const HOS&) = delete;

    int GetHttpPort() const;
    int GetHttpsPort() const;
    bool GetEnableSPDY() const;
    bool GetEnableHttpsRedirect() const;

    std::string GetRelayDDNS() const;
    int SetEnableRelayDDNS(const std::string& name);
    int SetDisableRelayDDNS();
    bool Set();

private:
    class Settings;
    std::unique_ptr<Settings> settings_;
};

}  // namespace ardvw3
