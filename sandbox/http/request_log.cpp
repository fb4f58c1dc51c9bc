// SPDX-License-Identifier: Apache-2.0
#include "http/request_log.h"

#include <cstdio>
#include <utility>

#include "http/text.h"

namespace ARDV::Sandbox {
namespace {

constexpr size_t kLoggedBytes = 80;

Json::Value ToJsonValue(const SeenRequest& request) {
    Json::Value json(Json::objectValue);
    json["time"] = request.time;
    json["client"] = request.client;
    json["method"] = request.method;
    json["path"] = request.path;
    json["query"] = request.query;
    json["body"] = request.body;
    json["tls"] = request.isTls;
    json["headers"] = Json::objectValue;
    for (const auto& [name, value] : request.headers) {
        json["headers"][name] = value;
    }
    return json;
}

}  // namespace

void RequestLog::Add(SeenRequest request) {
    const std::lock_guard lock(mutex_);
    if (requests_.size() == kCapacity) {
        requests_.pop_front();
    }
    requests_.push_back(std::move(request));
}

void RequestLog::Clear() {
    const std::lock_guard lock(mutex_);
    requests_.clear();
}

Json::Value RequestLog::ToJson() const {
    const std::lock_guard lock(mutex_);
    Json::Value json(Json::arrayValue);
    for (const SeenRequest& request : requests_) {
        json.append(ToJsonValue(request));
    }
    return json;
}

void WriteLogLine(const SeenRequest& request, std::string_view words) {
    std::string line = Timestamp() + " " + request.client + (request.isTls ? " https " : " http ") + request.method;
    line += " " + Printable(request.path, kLoggedBytes) + " ";
    line.append(words).append("\n");
    std::fputs(line.c_str(), stdout);
    std::fflush(stdout);
}

std::string LogWord(std::string_view text) {
    return text.empty() ? "-" : Printable(text, kLoggedBytes);
}

}  // namespace ARDV::Sandbox
