// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>

#include <json/value.h>

#include <ardv/export.h>

#include <ardvw3/result.h>

namespace ardvw3 {

/// Something that is to be done to the web server's configuration.
class ARDVPLATFORM_API NginxConfRegAction {
public:
    virtual ~NginxConfRegAction();
    virtual Result<W3Code, Json::Value> Run(bool force) = 0;
};

/// Copies a fragment in under a name, enables it and reloads the server.
class ARDVPLATFORM_API NginxConfRegActionRegAndEnable : public NginxConfRegAction {
public:
    NginxConfRegActionRegAndEnable(std::string source, std::string name);
    Result<W3Code, Json::Value> Run(bool force) override;

private:
    std::string source_;
    std::string name_;
};

/// Disables a fragment, removes it and reloads the server.
class ARDVPLATFORM_API NginxConfRegActionDisableAndUnReg : public NginxConfRegAction {
public:
    explicit NginxConfRegActionDisableAndUnReg(std::string name);
    Result<W3Code, Json::Value> Run(bool force) override;

private:
    std::string name_;
};

/// Performs actions on the web server's configuration.
class ARDVPLATFORM_API NginxConfRegister {
public:
    Result<W3Code, Json::Value> DoAction(const std::shared_ptr<NginxConfRegAction>& action, bool force);
};

}  // namespace ardvw3
