// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "support/server_process.h"
#include "support/test_certificates.h"

namespace ardv::test {

using AliasServerSettings = ServerSettings;

/** The sandbox's alias server. */
class AliasServerProcess : public ServerProcess {
public:
    explicit AliasServerProcess(const AliasServerSettings& settings)
        : ServerProcess(ARDV_ALIAS_SERVER, settings, {"--registry", settings.folder + "/registry.json"}),
          registryFile_(settings.folder + "/registry.json") {}

    /** The registry, secrets included. */
    Json::Value Registry() const { return Ask("GET", "/sandbox/registry"); }
    void SetRegistry(const Json::Value& registry) const { Ask("PUT", "/sandbox/registry", registry.toStyledString()); }

    std::string RegistryFile() const { return registryFile_; }

private:
    std::string registryFile_;
};

}  // namespace ardv::test
