// SPDX-License-Identifier: Apache-2.0
#include <relay/tunnel/openvpn_command.h>

#include <array>

#include <relay/tunnel/tunnel_names.h>

namespace ARDV::Relay {

namespace {

/** What differs from one tunnel to the next. */
struct Values {
    std::string protocol;
    std::string host;
    std::string port;
    std::string mtu;
    std::string passFile;
    std::string verbosity;
    std::string logFile;
    std::string upCommand;
};

/** An option, and its value if it has one: always the same text, or one of the `Values`. */
struct Argument {
    const char* option;
    const char* text = nullptr;
    std::string Values::*value = nullptr;
};

constexpr std::array<Argument, 22> kArguments = {{
    {"--client"},
    {"--mute-replay-warnings"},
    {"--auth-nocache"},
    {"--nobind"},
    {"--tun-mtu", nullptr, &Values::mtu},
    {"--ping-exit", "10"},
    {"--connect-retry-max", "1"},
    {"--proto", nullptr, &Values::protocol},
    {"--remote", nullptr, &Values::host},
    {"--port", nullptr, &Values::port},
    {"--dev", TunnelNames::kInterface},
    {"--ca", TunnelNames::kCertificateAuthority},
    {"--script-security", "2"},
    {"--auth-user-pass", nullptr, &Values::passFile},
    {"--remap-usr1", "SIGTERM"},
    {"--comp-lzo", "no"},
    {"--reneg-sec", "0"},
    {"--verb", nullptr, &Values::verbosity},
    {"--route-up", nullptr, &Values::upCommand},
    {"--down", TunnelNames::kDownScript},
    {"--allow-recursive-routing"},
    {"--log-append", nullptr, &Values::logFile},
}};
constexpr std::array<const char*, 2> kMtuDiscovery = {"--mtu-disc", "yes"};

}  // namespace

std::vector<std::string> OpenVpnCommand(const TunnelCandidate& candidate, const std::string& passFile, pid_t daemon,
                                        bool isLogged) {
    const Values values = {
        .protocol = candidate.protocol->name,
        .host = candidate.host,
        .port = candidate.port,
        .mtu = candidate.mtu,
        .passFile = passFile,
        .verbosity = isLogged ? "4" : "0",
        .logFile = isLogged ? "/var/log/openvpn.log" : "/dev/null",
        .upCommand = std::string(TunnelNames::kUpScript) + " " + std::to_string(daemon),
    };
    std::vector<std::string> command = {"openvpn"};
    for (const Argument& argument : kArguments) {
        command.emplace_back(argument.option);
        if (argument.text) {
            command.emplace_back(argument.text);
        } else if (argument.value) {
            command.push_back(values.*argument.value);
        }
    }
    if (candidate.isMtuDiscovered) {
        command.insert(command.end(), kMtuDiscovery.begin(), kMtuDiscovery.end());
    }
    return command;
}

}  // namespace ARDV::Relay
