// SPDX-License-Identifier: Apache-2.0
#include "network_command.h"

#include <iostream>

#include <CLI/CLI.hpp>

#include <relay/config/network_conf.h>

#include "output.h"
#include "text.h"

namespace ardv::ctl {

using namespace ARDV::Relay;

namespace {

struct Line {
    const char* key;
    const char* label;
};

constexpr Line kLines[] = {{"gateway", "gateway"}, {"ddns", "dynamic DNS name"}, {"fqdn", "external host name"}};

void PrintAddresses(const Json::Value& addresses) {
    for (const auto& address : addresses) {
        std::cout << "  " << Excerpt(address["address"].asString()) << '/' << address["prefix_length"].asInt() << " ("
                  << Excerpt(address["scope"].asString()) << ")\n";
    }
}

void PrintNetwork(const Json::Value& network) {
    for (const auto& interface : network["interface"]) {
        std::cout << Excerpt(interface["name"].asString()) << "\n  " << Excerpt(interface["ip"].asString()) << " mask "
                  << Excerpt(interface["mask"].asString()) << '\n';
        PrintAddresses(interface["ipv6"]);
    }
    if (network["interface"].empty()) {
        std::cout << "no wired interface has an address\n";
    }
    if (!network["ipv6_tunnel"].empty()) {
        std::cout << "relay tunnel\n";
        PrintAddresses(network["ipv6_tunnel"]);
    }
    for (const auto& [key, label] : kLines) {
        const auto text = network[key].asString();
        std::cout << label << ": " << (text.empty() ? "(none)" : Excerpt(text)) << '\n';
    }
}

ExitCode Show(const Session& session) {
    Json::Value network;
    NetworkConf(true).Write(network, true);
    if (session.json) {
        PrintJson(network);
    } else {
        PrintNetwork(network);
    }
    return kExitSuccess;
}

}  // namespace

void AddNetworkCommand(CLI::App& app, Session& session) {
    auto* network = AddGroup(app, "network", "Show the device's network");
    AddCommand(*network, "show", "Show the network as the servers are told it", session)->callback([&session] {
        session.exitCode = Show(session);
    });
}

}  // namespace ardv::ctl
