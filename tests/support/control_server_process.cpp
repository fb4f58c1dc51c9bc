// SPDX-License-Identifier: Apache-2.0
#include "support/control_server_process.h"

namespace ardv::test {
namespace {

std::vector<std::string> OptionsOf(const ControlServerSettings& settings) {
    std::vector<std::string> options = settings.options;
    options.insert(options.end(), {"--state", settings.server.folder + "/state.json"});
    return options;
}

}  // namespace

ControlServerProcess::ControlServerProcess(const ControlServerSettings& settings)
    : ServerProcess(ARDV_CONTROL_SERVER, settings.server, OptionsOf(settings)),
      stateFile_(settings.server.folder + "/state.json") {}

std::string ControlServerProcess::Command(const std::string& serverId, const std::string& command) const {
    const std::string body = R"({"serverID":")" + serverId + R"(","command":)" + command + "}";
    return Ask("POST", "/sandbox/command", body)["id"].asString();
}

bool ControlServerProcess::AwaitWait(const std::string& serverId) const {
    return WaitFor([&] { return Sessions()[serverId]["waiting"].asBool(); });
}

int ControlServerProcess::BreakWaits(const std::string& fault) const {
    return Ask("POST", "/sandbox/waits", fault)["waits"].asInt();
}

}  // namespace ardv::test
