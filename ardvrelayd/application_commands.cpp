// SPDX-License-Identifier: Apache-2.0
// What the service asks of the daemon, and what it is told of it.
#include <algorithm>
#include <iterator>
#include <utility>

#include "address_text.h"
#include "application.h"

namespace ardv::daemon {

using namespace ARDV::Relay;

std::optional<RELAYD_RET> Application::CarryOut(const ServerCommand& command) {
    struct Row {
        const char* name;
        std::optional<RELAYD_RET> (*act)(Application& self, const ServerCommand& command);
    };
    static constexpr Row kCommands[] = {
        {"update_alias", [](Application& self, const ServerCommand& c) { return self.UpdateAliasFor(c.id); }},
        {"open_tunnel", [](Application& self, const ServerCommand& c) { return self.OpenTunnel(c); }},
        {"close_tunnel", [](Application& self, const ServerCommand& c) { return self.tunnel_.Close(c.id); }},
    };
    const auto* row = std::find_if(std::begin(kCommands), std::end(kCommands),
                                   [&command](const Row& r) { return command.name == r.name; });
    return row == std::end(kCommands) ? std::optional(RELAYD_RET_ERR_NOT_SUPPORT) : row->act(*this, command);
}

std::optional<RELAYD_RET> Application::UpdateAliasFor(const std::string& id) {
    alias_.UpdateNow([this, id](RELAYD_RET result) { session_.Finish(id, result); });
    return std::nullopt;
}

// What came over plain HTTP anybody could have written: it is no more than a hint to ask the control server.
std::optional<RELAYD_RET> Application::OpenTunnel(const ServerCommand& command) {
    const bool isSafe = IsHttps(device_.Configuration().GetWaitCmdServer().GetUrl(nullptr));
    if (isSafe && command.members.isMember("relay")) {
        const auto order = ReadTunnelOrder(command.members);
        return order ? tunnel_.Open(*order, command.id) : RELAYD_RET_ERR_UNKNOWN;
    }
    if (tunnelAskers_.empty() && !AskForTunnel()) {
        return RELAYD_RET_ERR_VIOLATION;
    }
    tunnelAskers_.push_back(command.id);
    return std::nullopt;
}

bool Application::AskForTunnel() {
    return session_.AskForTunnel([this](const Answer& answer) { OnTunnelOrder(answer); });
}

void Application::OnTunnelOrder(const Answer& answer) {
    const auto askers = std::exchange(tunnelAskers_, {});
    if (answer.serverError == RELAYSERVER_ERR_TL_FAIL) {
        tunnel_.Close();
    }
    const auto order = answer.result == RELAYD_RET_SUCCESS ? ReadTunnelOrder(answer.body) : std::nullopt;
    for (const auto& id : askers) {
        const auto failure = answer.result == RELAYD_RET_SUCCESS ? RELAYD_RET_ERR_UNKNOWN : answer.result;
        if (const auto result = order ? tunnel_.Open(*order, id) : failure) {
            session_.Finish(id, *result);
        }
    }
    tunnel_.Renew(order);  // which may have asked as well: the answer to the last question is for all
}

void Application::OnChildEnded() {
    tunnel_.OnChildEnded();
}

void Application::OnTunnelReady() {
    tunnel_.OnReady();
}

void Application::OnTunnelAlarm() {
    tunnel_.OnAlarm();
}

void Application::OnTunnelChange() {
    Publish();
    auto told = tunnel_.ToldToServer();
    if (told != tunnelTold_) {
        tunnelTold_ = std::move(told);
        session_.TellTunnel();
    }
}

}  // namespace ardv::daemon
