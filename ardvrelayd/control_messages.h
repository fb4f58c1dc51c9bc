// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The messages of the control protocol (docs/control-protocol.md): the requests as they are sent, and the answers read from
 * what a server sent, which is believed in nothing.
 */
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <json/value.h>

#include <relay/common/vocabulary.h>
#include <relay/config/config.h>
#include <relay/request/request.h>

namespace ardv::daemon {

/** What came of an exchange. */
struct Answer {
    ARDV::Relay::RELAYD_RET result = ARDV::Relay::RELAYD_RET_ERR_UNKNOWN;
    std::optional<ARDV::Relay::RELAYSERVER_ERR> serverError;  ///< nothing where no server of this protocol answered
    Json::Value body;                                         ///< an object, where `serverError` is there
    std::string reason;                                       ///< what broke the transfer, in libcurl's words
};

/** Who may speak for the device, from its registration on. All but the identifier are secrets. */
struct Credentials {
    std::string serverId;
    std::string session;
    std::string channel;
};

/** What a control server says in any answer. */
struct Terms {
    std::optional<std::chrono::seconds> keepAlive;
    std::optional<bool> smartDns;
    std::optional<bool> reachable;
};

/** A registration's answer. */
struct Registration {
    Credentials credentials;
    Terms terms;
};

/** One thing that the service asks of the daemon. */
struct ServerCommand {
    std::string id;
    std::string name;     ///< may be anything
    Json::Value members;  ///< the whole command, an object
};

/** An outcome of a command. */
using CommandResult = std::pair<std::string, ARDV::Relay::RELAYD_RET>;

/** Reads the outcome of a finished transfer. */
Answer ReadAnswer(const ARDV::Relay::Request& request);

/** What the control server is told of the device, its secrets included. */
Json::Value RegisterMessage(const ARDV::Relay::RelaydConf& configuration, const ARDV::Relay::NetworkConf& network,
                            const ARDV::Relay::AuthConf& identity);
Json::Value KeepAliveMessage(const Credentials& credentials);
Json::Value WaitMessage(const Credentials& credentials, const std::vector<CommandResult>& results);
Json::Value TunnelMessage(const Credentials& credentials);

/** Adds how the tunnel is to one of the messages above; null: none is ordered. */
Json::Value WithTunnel(Json::Value message, const Json::Value& tunnel);

/** Nothing where a required member is missing or wrong. */
std::optional<Registration> ReadRegistration(const Json::Value& answer);
Terms ReadTerms(const Json::Value& answer);

/** "control_host", where it is the name of a host. */
std::optional<std::string> ReadControlHost(const Json::Value& answer);

/** At most 16; those without a usable identifier are passed over. */
std::vector<ServerCommand> ReadCommands(const Json::Value& answer);

}  // namespace ardv::daemon
