// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <json/value.h>

#include <relay/config/config.h>

namespace ardv::daemon {

/** What the daemon works for: the device's configuration and network, read when it is told to, and edited one key at a time. */
class Device {
public:
    /** @param path the main configuration file, from which `configuration` was loaded */
    Device(const ARDV::Relay::RelaydConf& configuration, std::string path);

    const ARDV::Relay::RelaydConf& Configuration() const { return configuration_; }
    const ARDV::Relay::NetworkConf& Network() const { return network_; }

    /** Whether the owner wants the service, for himself or for the support. */
    bool IsWanted() const;

    /**
     * Reads configuration and network again, and puts the log settings into force.
     *
     * @return false, with a message of level 3 and everything as it was, if there is no file, or it is damaged, or its settings are
     *         not valid
     */
    bool Reload();

    /** Reads the network again. Whether it is another one: interfaces, gateway, names, or an address of either family. */
    bool RefreshNetwork();

    /** Whether one of the device's interfaces has an IPv6 address that leads beyond its link. */
    bool HasIPv6() const;

    /** What an alias request carries, identity included; secrets. */
    Json::Value AliasData();

    /** What a registration shows but for the network, to tell whether it has changed. With secrets. */
    Json::Value Registered() const;

    /** Who serves the device, and as whom it is known there; with secrets. */
    Json::Value Account() const;

    /** Settings that a server assigns. Each is stored in the file as well, where it differs; a failure is logged. */
    void SetServerId(const std::string& id);
    void SetControlHost(const std::string& host);
    void SetSmartDns(bool enabled);

private:
    Json::Value NetworkFacts() const;

    ARDV::Relay::RelaydConf configuration_;
    std::string path_;
    ARDV::Relay::NetworkConf network_;
    Json::Value networkFacts_;
    Json::Value identity_;  // as of the last reload; with secrets
};

/** Puts the log settings of a configuration into force. In the foreground the log stays where it is, on standard error. */
void ApplyLogSettings(const ARDV::Relay::RelaydConf& configuration);

}  // namespace ardv::daemon
