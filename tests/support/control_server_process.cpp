// SPDX-License-Identifier: Apache-2.0
#include "support/control_server_process.h"

#include "support/json_parse.h"

namespace ardv::test {
namespace {

std::vector<std::string> OptionsOf(const ControlServerSettings& settings) {
    std::vector<std::string> options = settings.options;
    options.insert(options.end(), {"--state", settings.server.folder + "/state.json", "--relay-users",
                                   settings.server.folder + "/users"});
    return options;
}

}  // namespace

ControlServerProcess::ControlServerProcess(const ControlServerSettings& settings)
    : ServerProcess(ARDV_CONTROL_SERVER, settings.server, OptionsOf(settings)),
      stateFile_(settings.server.folder + "/state.json"),
      usersFile_(settings.server.folder + "/users") {}

std::string ControlServerProcess::Command(const std::string& serverId, const std::string& command) const {
    const std::string body = R"({"serverID":")" + serverId + R"(","command":)" + command + "}";
    return Ask("POST", "/sandbox/command", body)["id"].asString();
}

Json::Value ControlServerProcess::OpenTunnel(const std::string& serverId, const std::string& order) const {
    Json::Value body = ParseText(order);
    body["serverID"] = serverId;
    return Ask("POST", "/sandbox/tunnel", body.toStyledString());
}

std::string ControlServerProcess::CloseTunnel(const std::string& serverId) const {
    return Ask("DELETE", "/sandbox/tunnel", R"({"serverID":")" + serverId + "\"}")["id"].asString();
}

bool ControlServerProcess::AwaitWait(const std::string& serverId) const {
    return WaitFor([&] { return Sessions()[serverId]["waiting"].asBool(); });
}

int ControlServerProcess::BreakWaits(const std::string& fault) const {
    return Ask("POST", "/sandbox/waits", fault)["waits"].asInt();
}

}  // namespace ardv::test
