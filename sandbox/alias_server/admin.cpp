// SPDX-License-Identifier: Apache-2.0
#include "admin.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "text.h"

namespace ARDV::Sandbox {
namespace {

AdminReply Fail(int status, const std::string& reason) {
    Json::Value json(Json::objectValue);
    json["error"] = reason;
    return {status, ToJsonText(json)};
}

AdminReply Done() {
    return {200, "{}"};
}

}  // namespace

struct Admin::Route {
    std::string_view method;
    std::string_view path;
    AdminReply (Admin::*handle)(const std::string&);
};

const Admin::Route Admin::kRoutes[] = {
    {"POST", "/sandbox/fault", &Admin::SetFault},      {"DELETE", "/sandbox/fault", &Admin::ClearFault},
    {"GET", "/sandbox/requests", &Admin::GetRequests}, {"DELETE", "/sandbox/requests", &Admin::ClearRequests},
    {"GET", "/sandbox/registry", &Admin::GetRegistry}, {"PUT", "/sandbox/registry", &Admin::PutRegistry},
};

bool IsAdminPath(std::string_view path) {
    return path.starts_with("/sandbox/");
}

Admin::Admin(FaultBox& faults, RequestLog& requests, Registry& registry)
    : faults_(faults), requests_(requests), registry_(registry) {}

AdminReply Admin::Handle(std::string_view method, std::string_view path, const std::string& body) {
    const auto isPath = [&](const Route& route) { return route.path == path; };
    const auto isWanted = [&](const Route& route) { return isPath(route) && route.method == method; };
    const auto* found = std::find_if(std::begin(kRoutes), std::end(kRoutes), isWanted);
    if (found != std::end(kRoutes)) {
        return (this->*found->handle)(body);
    }
    const bool isKnown = std::any_of(std::begin(kRoutes), std::end(kRoutes), isPath);
    return isKnown ? Fail(405, "no such method here") : Fail(404, "no such path");
}

AdminReply Admin::SetFault(const std::string& body) {
    std::string error;
    const auto order = ParseJson(body, error);
    auto fault = order ? ParseFault(*order, error) : std::nullopt;
    if (!fault) {
        return Fail(400, error);
    }
    faults_.Set(std::move(*fault));
    return Done();
}

AdminReply Admin::ClearFault(const std::string&) {
    faults_.Clear();
    return Done();
}

AdminReply Admin::GetRequests(const std::string&) {
    return {200, ToJsonText(requests_.ToJson())};
}

AdminReply Admin::ClearRequests(const std::string&) {
    requests_.Clear();
    return Done();
}

AdminReply Admin::GetRegistry(const std::string&) {
    return {200, ToJsonText(registry_.Snapshot())};
}

AdminReply Admin::PutRegistry(const std::string& body) {
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
