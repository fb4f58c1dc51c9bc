// SPDX-License-Identifier: Apache-2.0
#include "http/test_interface.h"

#include <algorithm>
#include <utility>

#include "http/text.h"

namespace ARDV::Sandbox {

AdminReply Done() {
    return {200, "{}"};
}

AdminReply Show(const Json::Value& value) {
    return {200, ToJsonText(value)};
}

AdminReply Fail(int status, const std::string& reason) {
    Json::Value json(Json::objectValue);
    json["error"] = reason;
    return {status, ToJsonText(json)};
}

bool IsAdminPath(std::string_view path) {
    return path.starts_with("/sandbox/");
}

TestInterface::TestInterface(FaultBox& faults, RequestLog& requests, const FaultRules& rules)
    : faults_(faults), rules_(rules) {
    Add("POST", "/sandbox/fault", [this](const std::string& body) { return SetFault(body); });
    Add("DELETE", "/sandbox/fault", [&faults](const std::string&) {
        faults.Clear();
        return Done();
    });
    Add("GET", "/sandbox/requests", [&requests](const std::string&) { return Show(requests.ToJson()); });
    Add("DELETE", "/sandbox/requests", [&requests](const std::string&) {
        requests.Clear();
        return Done();
    });
}

void TestInterface::Add(std::string method, std::string path, Handler handle) {
    routes_.push_back({std::move(method), std::move(path), std::move(handle)});
}

AdminReply TestInterface::Handle(std::string_view method, std::string_view path, const std::string& body) const {
    const auto isPath = [&](const Route& route) { return route.path == path; };
    const auto isWanted = [&](const Route& route) { return isPath(route) && route.method == method; };
    const auto found = std::find_if(routes_.begin(), routes_.end(), isWanted);
    if (found != routes_.end()) {
        return found->handle(body);
    }
    const bool isKnown = std::any_of(routes_.begin(), routes_.end(), isPath);
    return isKnown ? Fail(405, "no such method here") : Fail(404, "no such path");
}

AdminReply TestInterface::SetFault(const std::string& body) const {
    std::string error;
    const auto order = ParseJson(body, error);
    auto fault = order ? ParseFault(*order, rules_, error) : std::nullopt;
    if (!fault) {
        return Fail(400, error);
    }
    faults_.Set(std::move(*fault));
    return Done();
}

}  // namespace ARDV::Sandbox
