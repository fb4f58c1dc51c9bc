// SPDX-License-Identifier: Apache-2.0
#include "alias_service.h"

#include <optional>
#include <utility>

#include "form.h"
#include "http/connection.h"
#include "http/text.h"

namespace ARDV::Sandbox {
namespace {

constexpr size_t kMaxPageBody = size_t{64} << 10;

bool ReadMaintenance(FaultOrder& order) {
    order.Result().body = MaintenanceReply().body;
    return true;
}

constexpr FaultKind kFaultKinds[] = {{"maintenance", ReadMaintenance, PlayReply}};

}  // namespace

AliasService::AliasService(Registry& registry)
    : Service(AliasPages(), {kMaxPageBody, JsonFile::kMaxBytes}, {kFaultKinds, {}}), registry_(registry) {
    OwnTests().Add("GET", "/sandbox/registry", [this](const std::string&) { return Show(registry_.Snapshot()); });
    OwnTests().Add("PUT", "/sandbox/registry", [this](const std::string& body) { return PutRegistry(body); });
}

std::string AliasService::Answer(const SeenRequest& request, httplib::Response& response) {
    std::optional<Fault> fault;
    const bool isDone = Faults().Play(*Connection::Current(), "", fault);
    std::string mark = fault ? "fault:" + std::string(fault->kind->name) : "";
    if (isDone) {
        return mark;
    }
    const AliasReply reply =
        ARDV::Sandbox::Answer(registry_, {request.method, request.path, request.body, request.address});
    for (const std::string& cookie : fault ? fault->cookies : std::vector<std::string>()) {
        response.set_header("Set-Cookie", cookie);
    }
    response.status = 200;
    response.set_content(reply.body, reply.contentType);
    const std::string word = reply.contentType == "application/json" ? "json" : reply.body;
    return mark.empty() ? word : mark + "," + word;
}

std::string AliasService::LogWords(const SeenRequest& request, std::string_view reply) const {
    const auto form = Form::Parse(request.body);
    return "action=" + LogWord(form ? form->Get("action") : "") + " alias=" + LogWord(form ? form->Get("alias") : "") +
           " reply=" + LogWord(reply) + " form=" + (form ? form->Masked() : "unreadable");
}

AdminReply AliasService::PutRegistry(const std::string& body) {
    std::string error;
    const auto json = ParseJson(body, error);
    auto data = json ? FromJson(*json, error) : std::nullopt;
    if (!data) {
        return Fail(400, error);
    }
    const auto replace = [&](RegistryData& current) {
        current = std::move(*data);
        return true;
    };
    return registry_.Transact(replace, error) ? Done() : Fail(500, error);
}

}  // namespace ARDV::Sandbox
