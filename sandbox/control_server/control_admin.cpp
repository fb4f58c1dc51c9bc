// SPDX-License-Identifier: Apache-2.0
#include "control_admin.h"

#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "control_faults.h"
#include "http/text.h"

namespace ARDV::Sandbox {
namespace {

using Handler = TestInterface::Handler;

/// Serves a body that must be JSON.
template <class Take>
Handler OfJson(Take take) {
    return [take](const std::string& body) {
        std::string error;
        const auto json = ParseJson(body, error);
        return json ? take(*json) : Fail(400, error);
    };
}

template <class Part>
Handler Replacing(Part& part, bool (Part::*set)(const Json::Value&, std::string&)) {
    return OfJson([&part, set](const Json::Value& json) {
        std::string error;
        return (part.*set)(json, error) ? Done() : Fail(400, error);
    });
}

template <class Part>
Handler Showing(const Part& part, Json::Value (Part::*get)() const) {
    return [&part, get](const std::string&) { return Show((part.*get)()); };
}

Handler Clearing(SessionTable& sessions, void (SessionTable::*clear)()) {
    return [&sessions, clear](const std::string&) {
        (sessions.*clear)();
        return Done();
    };
}

std::string DeviceIn(const Json::Value& json) {
    return json.isObject() && json["serverID"].isString() ? json["serverID"].asString() : "";
}

AdminReply QueueCommand(const ControlParts& parts, const Json::Value& json) {
    const std::string serverId = DeviceIn(json);
    if (!parts.devices.Has(serverId)) {
        return Fail(400, "serverID is not of a known device");
    }
    std::string error;
    const auto id = parts.sessions.Queue(serverId, json["command"], error);
    if (!id) {
        return Fail(400, error);
    }
    Json::Value reply(Json::objectValue);
    reply["id"] = *id;
    return Show(reply);
}

AdminReply BreakWaits(const ControlParts& parts, const Json::Value& json) {
    std::string error;
    const auto fault = ParseFault(json, PlacedFaultRules(), error);
    if (!fault) {
        return Fail(400, error);
    }
    Json::Value reply(Json::objectValue);
    reply["waits"] = parts.sessions.MeetFault(*fault);
    return Show(reply);
}

// Called with the body of POST /sandbox/tunnel: {"serverID", "relay", "candidates", "forward"[, "inline"][, "queue"]}.
AdminReply AssignTunnel(const ControlParts& parts, const Json::Value& json) {
    const std::string serverId = DeviceIn(json);
    std::string error;
    if (!parts.devices.Has(serverId)) {
        return Fail(400, "serverID is not of a known device");
    }
    const auto assigned = parts.tunnels.Assign(serverId, parts.sessions.Alias(serverId), json, error);
    if (!assigned) {
        return Fail(400, error);
    }
    Json::Value reply = *assigned;
    if (json["queue"] == Json::Value(false)) {
        return Show(reply);
    }
    Json::Value command = json["inline"] == Json::Value(true) ? *assigned : Json::Value(Json::objectValue);
    command["command"] = "open_tunnel";
    const auto id = parts.sessions.Queue(serverId, std::move(command), error);
    reply["id"] = id.value_or("");
    return id ? Show(reply) : Fail(400, error);
}

AdminReply RemoveTunnel(const ControlParts& parts, const Json::Value& json) {
    const std::string serverId = DeviceIn(json);
    std::string error;
    if (!parts.devices.Has(serverId)) {
        return Fail(400, "serverID is not of a known device");
    }
    if (!parts.tunnels.Remove(serverId, error)) {
        return Fail(500, error);
    }
    Json::Value command(Json::objectValue);
    command["command"] = "close_tunnel";
    const auto id = parts.sessions.Queue(serverId, std::move(command), error);
    Json::Value reply(Json::objectValue);
    reply["id"] = id.value_or("");
    return id ? Show(reply) : Fail(400, error);
}

}  // namespace

void AddControlRequests(TestInterface& tests, const ControlParts& parts) {
    SessionTable& sessions = parts.sessions;
    tests.Add("GET", "/sandbox/devices", Showing(parts.devices, &DeviceBook::Snapshot));
    tests.Add("PUT", "/sandbox/devices", Replacing(parts.devices, &DeviceBook::Replace));
    tests.Add("GET", "/sandbox/sessions", Showing(sessions, &SessionTable::Sessions));
    tests.Add("DELETE", "/sandbox/sessions", Clearing(sessions, &SessionTable::Clear));
    tests.Add("POST", "/sandbox/command",
              OfJson([parts](const Json::Value& json) { return QueueCommand(parts, json); }));
    tests.Add("GET", "/sandbox/commands", Showing(sessions, &SessionTable::Commands));
    tests.Add("DELETE", "/sandbox/commands", Clearing(sessions, &SessionTable::ClearCommands));
    tests.Add("GET", "/sandbox/results", Showing(sessions, &SessionTable::Results));
    tests.Add("DELETE", "/sandbox/results", Clearing(sessions, &SessionTable::ClearResults));
    tests.Add("POST", "/sandbox/waits", OfJson([parts](const Json::Value& json) { return BreakWaits(parts, json); }));
    tests.Add("GET", "/sandbox/tunnel", Showing(parts.tunnels, &TunnelBook::Snapshot));
    tests.Add("POST", "/sandbox/tunnel",
              OfJson([parts](const Json::Value& json) { return AssignTunnel(parts, json); }));
    tests.Add("DELETE", "/sandbox/tunnel",
              OfJson([parts](const Json::Value& json) { return RemoveTunnel(parts, json); }));
    tests.Add("GET", "/sandbox/answers", Showing(parts.answers, &Answers::Snapshot));
    tests.Add("PUT", "/sandbox/answers", Replacing(parts.answers, &Answers::Set));
    tests.Add("GET", "/sandbox/scenario", Showing(parts.scenario, &Scenario::Progress));
    tests.Add("PUT", "/sandbox/scenario", Replacing(parts.scenario, &Scenario::Set));
}

}  // namespace ARDV::Sandbox
