// SPDX-License-Identifier: Apache-2.0
#include "control_service.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <utility>

#include "control_faults.h"
#include "http/connection.h"
#include "http/json_file.h"
#include "http/text.h"
#include "masked_text.h"
#include "request_check.h"

namespace ARDV::Sandbox {
namespace {

constexpr size_t kMaxPageBody = size_t{1} << 20;

Json::Value ErrorAnswer(ControlError error) {
    Json::Value answer(Json::objectValue);
    answer["errno"] = static_cast<int>(error);
    return answer;
}

Json::Value RefusalAnswer(const Refusal& refusal) {
    Json::Value answer = ErrorAnswer(refusal.error);
    if (!refusal.member.empty()) {
        answer["member"] = refusal.member;
    }
    return answer;
}

Json::Value ParseOrNull(const std::string& text) {
    std::string ignored;
    auto json = ParseJson(text, ignored);
    return json ? std::move(*json) : Json::Value();
}

std::string TextOf(const Json::Value& object, const char* name) {
    return object.isObject() && object[name].isString() ? object[name].asString() : "";
}

// A device before its registration has no identifier.
std::string DeviceOf(const Json::Value& request) {
    const std::string serverId = TextOf(request, "serverID");
    return serverId.empty() && request.isObject() ? TextOf(request["identity"], "serial") : serverId;
}

std::string Mark(const Fault& fault) {
    return "fault:" + std::string(fault.kind->name);
}

}  // namespace

ControlService::ControlService(const ControlParts& parts, std::chrono::seconds hold)
    : Service({"/Serv.php"}, {kMaxPageBody, JsonFile::kMaxBytes}, ControlFaultRules()), parts_(parts), hold_(hold) {
    AddControlRequests(OwnTests(), parts_);
}

std::string ControlService::Answer(const SeenRequest& request, httplib::Response& response) {
    if (request.method != "POST") {
        response.status = 405;
        return "405";
    }
    Call call{request, response, ParseOrNull(request.body), {}};
    call.command = CommandOf(call.request);
    return PlayFault(call) ? Mark(*call.fault) : Serve(call);
}

std::string ControlService::LogWords(const SeenRequest& request, std::string_view reply) const {
    const Json::Value json = ParseOrNull(request.body);
    return "command=" + LogWord(TextOf(json, "command")) + " device=" + LogWord(DeviceOf(json)) +
           " reply=" + LogWord(reply) + " body=" + (json.isNull() ? "unreadable" : Masked(json));
}

// What was ordered goes before the scenario, which then doesn't see the request.
bool ControlService::PlayFault(Call& call) {
    const bool isDone = Faults().Play(*Connection::Current(), call.command, call.fault);
    return isDone || (!call.fault && PlayScenario(call));
}

bool ControlService::PlayScenario(Call& call) {
    Scenario::Act act = parts_.scenario.Next(call.command);
    const std::string serverId = TextOf(call.request, "serverID");
    std::string error;
    if (act.push && (!parts_.devices.Has(serverId) || !parts_.sessions.Queue(serverId, std::move(*act.push), error))) {
        std::fprintf(stderr, "a command of the scenario was not queued: %s\n",
                     error.empty() ? "no such device" : error.c_str());
    }
    call.fault = std::move(act.fault);
    return call.fault && Faults().PlayOnce(*call.fault, *Connection::Current());
}

std::string ControlService::Serve(Call& call) {
    const Refusal refusal = CheckRequest(call.request);
    if (refusal.error != ControlError::kSuccess) {
        return Send(call, RefusalAnswer(refusal));
    }
    if (call.command == kWait) {
        return Wait(call);
    }
    if (call.command == kGetTunnel) {
        return Send(call, GetTunnel(call));
    }
    return Send(call, call.command == kRegister ? Register(call) : KeepAlive(call));
}

// A device that leaves the member out has no order.
void ControlService::NoteTunnel(const std::string& serverId, const Call& call) {
    parts_.sessions.NoteTunnel(serverId, call.request["tunnel"]);
}

Json::Value ControlService::Register(const Call& call) {
    const Json::Value& identity = call.request["identity"];
    const DeviceBook::Claim claim{identity["serial"].asString(), identity["token"].asString(),
                                  TextOf(call.request, "serverID")};
    std::string serverId;
    std::string error;
    const DeviceBook::Verdict verdict = parts_.devices.Identify(claim, serverId, error);
    if (verdict == DeviceBook::Verdict::kFailed) {
        std::fprintf(stderr, "%s\n", error.c_str());
    }
    if (verdict != DeviceBook::Verdict::kKnown) {
        return ErrorAnswer(verdict == DeviceBook::Verdict::kRefused ? ControlError::kAuth : ControlError::kUnknown);
    }
    const SessionTable::Names names = parts_.sessions.Open(serverId, call.request);
    NoteTunnel(serverId, call);
    Json::Value answer = ErrorAnswer(ControlError::kSuccess);
    answer["serverID"] = serverId;
    answer["session"] = names.session;
    answer["channel"] = names.channel;
    parts_.answers.Tell(call.command, answer);
    return answer;
}

Json::Value ControlService::KeepAlive(const Call& call) {
    if (!parts_.sessions.KeepAlive(call.request["serverID"].asString(), call.request["session"].asString())) {
        return ErrorAnswer(ControlError::kSessionTimeout);
    }
    NoteTunnel(call.request["serverID"].asString(), call);
    Json::Value answer = ErrorAnswer(ControlError::kSuccess);
    parts_.answers.Tell(call.command, answer);
    return answer;
}

Json::Value ControlService::GetTunnel(const Call& call) {
    const std::string serverId = call.request["serverID"].asString();
    if (!parts_.sessions.Has(serverId, call.request["session"].asString())) {
        return ErrorAnswer(ControlError::kSessionTimeout);
    }
    auto assigned = parts_.tunnels.Of(serverId);
    if (!assigned) {
        return ErrorAnswer(ControlError::kNoTunnel);
    }
    (*assigned)["errno"] = static_cast<int>(ControlError::kSuccess);
    return std::move(*assigned);
}

std::string ControlService::Wait(Call& call) {
    const auto wait = parts_.sessions.Begin(call.request["serverID"].asString(), call.request["channel"].asString(),
                                            call.request["results"]);
    if (!wait) {
        return Send(call, ErrorAnswer(ControlError::kSessionTimeout));
    }
    NoteTunnel(call.request["serverID"].asString(), call);
    std::string reply = Hold(call, wait);
    parts_.sessions.End(wait);
    return reply;
}

std::string ControlService::Hold(Call& call, const std::shared_ptr<HeldWait>& wait) {
    const auto end = std::chrono::steady_clock::now() + hold_;
    bool isHeld = false;
    for (;;) {
        if (const auto answer = parts_.sessions.Look(*wait)) {
            return AnswerWait(call, *answer);
        }
        if (!std::exchange(isHeld, true)) {
            WriteLogLine(call.seen, LogWords(call.seen, "held"));
        }
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        const auto limit = std::min(left, parts_.sessions.UntilNextLook(*wait).value_or(left));
        switch (Connection::Current()->Wait(limit, wait->Descriptor())) {
            case Connection::WaitEnd::kPeerLeft:
                Connection::Current()->Cut();
                return Connection::Current()->IsAborted() ? "ended" : "left";
            case Connection::WaitEnd::kTime:
                if (limit == left) {
                    return AnswerWait(call, {});
                }
                break;
            case Connection::WaitEnd::kWoken:
                break;
        }
    }
}

std::string ControlService::AnswerWait(Call& call, const SessionTable::Answer& answer) {
    if (answer.reason == HeldWait::Reason::kOver) {
        return Send(call, ErrorAnswer(ControlError::kSessionTimeout));
    }
    if (answer.fault) {
        call.fault = answer.fault;
        if (Faults().PlayOnce(*call.fault, *Connection::Current())) {
            return Mark(*call.fault);
        }
    }
    Json::Value reply = ErrorAnswer(ControlError::kSuccess);
    reply["commands"] = Json::arrayValue;
    for (const Json::Value& command : answer.commands) {
        reply["commands"].append(command);
    }
    return Send(call, std::move(reply));
}

std::string ControlService::Send(const Call& call, Json::Value answer) {
    std::string word = "errno:" + answer["errno"].asString();
    if (answer.isMember("commands") && !answer["commands"].empty()) {
        word += ",commands:" + std::to_string(answer["commands"].size());
    }
    if (call.fault) {
        ChangeAnswer(*call.fault, answer);
        word = Mark(*call.fault) + "," + word;
        for (const std::string& cookie : call.fault->cookies) {
            call.response.set_header("Set-Cookie", cookie);
        }
    }
    call.response.status = 200;
    call.response.set_content(ToJsonText(answer), "application/json");
    return word;
}

}  // namespace ARDV::Sandbox
