// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <json/json.h>

#include <string>
#include <vector>

#include "answering_server.h"
#include "process.h"

namespace ardv::bench {

enum class Scheme { kHttp, kHttps };

/** The control server of the sandbox, which knows every device and holds its waits; over HTTP and HTTPS. */
class ControlServer {
public:
    explicit ControlServer(const std::string& folder);

    int Port(Scheme scheme) const { return scheme == Scheme::kHttp ? httpPort_ : httpsPort_; }

private:
    Process process_;
    int httpPort_ = 0;
    int httpsPort_ = 0;
};

/** The servers that daemons talk to, and what daemons need to find them. */
class ServiceSide {
public:
    /** Takes the private root over: certificates, the device's identity, its services. */
    ServiceSide();

    /** Gets the alias updates of that scheme. */
    AnsweringServer& Alias(Scheme scheme) { return scheme == Scheme::kHttp ? http_ : https_; }

    /** @param serverId empty for a device that was never registered */
    void WriteDaemonConfiguration(Scheme scheme, const std::string& serverId) const;

    /** The identifier that the device has got by now; empty where it has none. */
    static std::string StoredServerId();

    /** The daemon in the foreground. */
    static std::vector<std::string> DaemonCommand();

    /** inadyn in the foreground, with nothing remembered. It takes its address from an interface and asks nobody for it. */
    std::vector<std::string> InadynCommand(Scheme scheme) const;

private:
    int AliasPort(Scheme scheme) const;

    Json::Value services_;
    AnsweringServer http_;
    AnsweringServer https_;
    ControlServer control_;
};

}  // namespace ardv::bench
