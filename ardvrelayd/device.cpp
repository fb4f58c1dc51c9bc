// SPDX-License-Identifier: Apache-2.0
#include "device.h"

#include <algorithm>
#include <utility>

#include <relay/daemon/daemon.h>

#include "log.h"

DAEMON_LOG_SOURCE("device.cpp");

namespace ardv::daemon {

using namespace ARDV::Relay;

namespace {

// What a registration carries of the configuration; a change of anything else is no reason for a new one.
constexpr const char* kRegistered[] = {"server_control", "server_waitcmd", "service", "server_smartdns", "serverID"};

Json::Value ReadIdentity() {
    Json::Value identity;
    AuthConf(true).Write(identity, true);
    return identity;
}

}  // namespace

Device::Device(const RelaydConf& configuration, std::string path)
    : configuration_(configuration),
      path_(std::move(path)),
      network_(true),
      networkFacts_(NetworkFacts()),
      identity_(ReadIdentity()) {}

bool Device::IsWanted() const {
    return configuration_.GetEnableConf() || configuration_.IsSupportChannelEnabled();
}

bool Device::Reload() {
    const RelaydConf fresh(path_.c_str());
    Json::Value settings;
    const bool isThere =
        RelaydConf::ReadJsonFile(path_, settings) && settings.isObject();  // else these are the defaults
    if (!isThere || !fresh.IsValid()) {
        DAEMON_LOG(LOG_ERR, "the configuration %s is not valid and is not taken over", path_.c_str());
        return false;
    }
    configuration_ = fresh;
    identity_ = ReadIdentity();
    ApplyLogSettings(configuration_);
    RefreshNetwork();
    return true;
}

bool Device::RefreshNetwork() {
    network_.ReadConf();
    auto facts = NetworkFacts();
    const bool isOther = facts != networkFacts_;
    networkFacts_ = std::move(facts);
    return isOther;
}

bool Device::HasIPv6() const {
    const auto& interfaces = networkFacts_["interface"];
    return std::any_of(interfaces.begin(), interfaces.end(), [](const Json::Value& interface) {
        const auto& addresses = interface["ipv6"];
        return std::any_of(addresses.begin(), addresses.end(),
                           [](const Json::Value& address) { return address["scope"] != "link"; });
    });
}

Json::Value Device::NetworkFacts() const {
    Json::Value facts;
    network_.Write(facts, true);
    return facts;
}

Json::Value Device::AliasData() {
    Json::Value data;
    configuration_.DumpDataForAliasReq(data);
    return data;
}

Json::Value Device::Registered() const {
    Json::Value all;
    configuration_.Write(all, true);
    Json::Value registered(Json::objectValue);
    for (const auto* key : kRegistered) {
        registered[key] = all[key];
    }
    registered["identity"] = identity_;
    registered["alias"] = configuration_.GetAliasConf().GetAliasName();
    return registered;
}

Json::Value Device::Account() const {
    Json::Value account;
    configuration_.GetGlobalServer().Write(account["server_global"], true);
    configuration_.GetControlServer().Write(account["server_control"], true);
    account["identity"] = identity_;
    return account;
}

void Device::SetServerId(const std::string& id) {
    if (id == configuration_.GetServerId()) {
        return;
    }
    configuration_.SetServerId(id);
    if (!configuration_.WriteServerId(path_)) {
        DAEMON_LOG(LOG_ERR, "the server identifier is not stored");
    }
}

void Device::SetControlHost(const std::string& host) {
    if (host != configuration_.GetControlServer().GetHost() && !configuration_.WriteControlServerHost(path_, host)) {
        DAEMON_LOG(LOG_ERR, "the control server's host is not stored");
    }
}

void Device::SetSmartDns(bool enabled) {
    if (enabled != configuration_.IsSmartDNSEnabled() && !configuration_.WriteSmartDNS(path_, enabled)) {
        DAEMON_LOG(LOG_ERR, "the SmartDNS setting is not stored");
    }
}

void ApplyLogSettings(const RelaydConf& configuration) {
    Daemon::SetLogFile(configuration.GetLogFile(), configuration.GetLogLevel());
}

}  // namespace ardv::daemon
