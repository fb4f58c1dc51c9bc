// SPDX-License-Identifier: Apache-2.0
#include "service_side.h"

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <thread>

#include <relay/config/config.h>

#include "device.h"

namespace ardv::bench {

namespace {

using ARDV::Relay::RelaydConf;

constexpr const char kCertificate[] = "/tmp/certificates/valid.pem";
constexpr const char kKey[] = "/tmp/certificates/valid.key";
constexpr const char kControlFolder[] = "/tmp/control";
constexpr const char kInadynCache[] = "/tmp/inadyn";
constexpr const char kInterface[] = "wan0";
constexpr auto kPatience = std::chrono::seconds(20);
constexpr auto kGlance = std::chrono::milliseconds(5);

const char* NameOf(Scheme scheme) {
    return scheme == Scheme::kHttp ? "http" : "https";
}

std::vector<std::string> ControlCommand(const std::string& folder) {
    return {ARDV_CONTROL_SERVER,
            "--http-port",
            "0",
            "--https-port",
            "0",
            "--certificate",
            kCertificate,
            "--key",
            kKey,
            "--state",
            folder + "/devices.json",
            "--ports-file",
            folder + "/ports.json"};
}

std::string MadeFolder(const std::string& folder) {
    std::filesystem::create_directories(folder);
    return folder;
}

Json::Value Prepared() {
    MakeTrustedNames("/tmp/certificates");
    BecomeDevice();
    RunToEnd({"/usr/sbin/ip", "tuntap", "add", kInterface, "mode", "tap"});
    RunToEnd({"/usr/sbin/ip", "address", "add", "198.51.100.7/24", "dev", kInterface});
    RunToEnd({"/usr/sbin/ip", "link", "set", kInterface, "up"});
    return OfferEveryService();
}

}  // namespace

ControlServer::ControlServer(const std::string& folder)
    : process_(ControlCommand(MadeFolder(folder)), folder + "/log") {
    const auto ports = folder + "/ports.json";
    const auto end = Clock::now() + kPatience;
    while (!std::filesystem::exists(ports)) {
        if (Clock::now() > end) {
            throw std::runtime_error("the control server is not ready; see " + folder + "/log");
        }
        std::this_thread::sleep_for(kGlance);
    }
    Json::Value value;
    RelaydConf::ReadJsonFile(ports, value);
    httpPort_ = value["http"].asInt();
    httpsPort_ = value["https"].asInt();
}

ServiceSide::ServiceSide()
    : services_(Prepared()), http_("", ""), https_(kCertificate, kKey), control_(kControlFolder) {}

void ServiceSide::WriteDaemonConfiguration(Scheme scheme, const std::string& serverId) const {
    Json::Value value;
    for (const char* server : {"server_global", "server_control", "server_waitcmd"}) {
        value[server]["protocol"] = NameOf(scheme);
        value[server]["host"] = kHost;
        value[server]["port"] = control_.Port(scheme);
    }
    value["tethra"]["enabled"] = true;
    value["server_alias"]["alias"] = "attic";
    value["server_alias"]["url"] =
        NameOf(scheme) + std::string("://") + kHost + ":" + std::to_string(AliasPort(scheme));
    value["service"] = services_;
    if (!serverId.empty()) {
        value["serverID"] = serverId;
    }
    WriteFile(kMainFile, value.toStyledString());
}

int ServiceSide::AliasPort(Scheme scheme) const {
    return (scheme == Scheme::kHttp ? http_ : https_).Port();
}

std::string ServiceSide::StoredServerId() {
    Json::Value value;
    RelaydConf::ReadJsonFile(kMainFile, value);
    return value["serverID"].isString() ? value["serverID"].asString() : "";
}

std::vector<std::string> ServiceSide::DaemonCommand() {
    return {ARDV_DAEMON, "--foreground"};
}

std::vector<std::string> ServiceSide::InadynCommand(Scheme scheme) const {
    const auto file = std::string("/etc/inadyn-") + NameOf(scheme) + ".conf";
    std::string text = std::string("iface = ") + kInterface + "\nperiod = 300\ncustom attic@tethra {\n";
    text += std::string("    ssl = ") + (scheme == Scheme::kHttp ? "false" : "true") + "\n";
    text += "    username = box\n    password = example\n    hostname = attic\n";
    text += std::string("    ddns-server = ") + kHost + ":" + std::to_string(AliasPort(scheme)) + "\n";
    text += "    ddns-path = \"/update?hostname=%h&myip=%i\"\n}\n";
    WriteFile(file, text);
    std::filesystem::remove_all(kInadynCache);
    std::filesystem::create_directories(kInadynCache);
    return {"/usr/sbin/inadyn", "--foreground", "--config", file, "--cache-dir", kInadynCache, "--no-pidfile"};
}

}  // namespace ardv::bench
