// SPDX-License-Identifier: Apache-2.0
// The control service: control and wait-command server in one page.
#pragma once

#include <json/json.h>

#include <chrono>
#include <optional>
#include <string>

#include "control_admin.h"
#include "http/service.h"

namespace ARDV::Sandbox {

/// Serves register, keep_alive, wait and get_tunnel.
class ControlService final : public Service {
public:
    /// Serves by `parts`, which must outlive it; a wait is held for `hold`.
    ControlService(const ControlParts& parts, std::chrono::seconds hold);

    std::string Answer(const SeenRequest& request, httplib::Response& response) override;
    std::string LogWords(const SeenRequest& request, std::string_view reply) const override;

private:
    /// One request, and what it has met.
    struct Call {
        const SeenRequest& seen;
        httplib::Response& response;
        Json::Value request;       ///< null where the body is no JSON
        std::string_view command;  ///< empty where it isn't known
        std::optional<Fault> fault = {};
    };

    bool PlayFault(Call& call);
    bool PlayScenario(Call& call);
    std::string Serve(Call& call);
    Json::Value Register(const Call& call);
    Json::Value KeepAlive(const Call& call);
    Json::Value GetTunnel(const Call& call);
    void NoteTunnel(const std::string& serverId, const Call& call);
    std::string Wait(Call& call);
    std::string Hold(Call& call, const std::shared_ptr<HeldWait>& wait);
    std::string AnswerWait(Call& call, const SessionTable::Answer& answer);
    static std::string Send(const Call& call, Json::Value answer);

    ControlParts parts_;
    const std::chrono::seconds hold_;
};

}  // namespace ARDV::Sandbox
