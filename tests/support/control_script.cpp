// SPDX-License-Identifier: Apache-2.0
#include "control_script.h"

#include <algorithm>
#include <iterator>

#include <relay/utils/json_text.h>

namespace ardv::test {

using ARDV::Relay::JsonText::Parse;

namespace {

constexpr const char kPage[] = "/Serv.php";

}  // namespace

ControlScript::ControlScript() {
    server_.On(kPage, [this](const httplib::Request& request, httplib::Response& response) {
        Json::Value message;
        Parse(request.body, message);
        const auto reply = ReplyTo(message);
        response.status = reply.status;
        response.set_content(reply.body, "application/json");
    });
}

ControlScript::~ControlScript() {
    const std::lock_guard lock(mutex_);
    isStopping_ = true;
    changed_.notify_all();
}

void ControlScript::Answer(const std::string& command, const std::string& body, int status) {
    const std::lock_guard lock(mutex_);
    replies_[command].push_back({status, body});
    changed_.notify_all();
}

void ControlScript::AlwaysAnswer(const std::string& command, const std::string& body, int status) {
    const std::lock_guard lock(mutex_);
    if (body.empty()) {
        usual_.erase(command);
    } else {
        usual_[command] = {status, body};
    }
    changed_.notify_all();
}

std::string ControlScript::Registered(const std::string& members) {
    return R"({"errno":0,"serverID":"box-1","session":"s1","channel":"c1")" + members + "}";
}

std::vector<Json::Value> ControlScript::Seen() const {
    const std::lock_guard lock(mutex_);
    return seen_;
}

std::vector<Json::Value> ControlScript::Seen(const std::string& command) const {
    auto seen = Seen();
    std::vector<Json::Value> found;
    std::copy_if(seen.begin(), seen.end(), std::back_inserter(found),
                 [&](const Json::Value& message) { return message["command"] == command; });
    return found;
}

Json::Value ControlScript::Server() const {
    const auto url = server_.Url("");
    Json::Value server;
    server["protocol"] = "http";
    server["host"] = "127.0.0.1";
    server["port"] = std::stoi(url.substr(url.rfind(':') + 1));
    return server;
}

bool ControlScript::Take(const std::string& command, Reply& reply) {
    auto& replies = replies_[command];
    if (!replies.empty()) {
        reply = replies.front();
        replies.pop_front();
        return true;
    }
    const auto usual = usual_.find(command);
    if (usual == usual_.end()) {
        return false;
    }
    reply = usual->second;
    return true;
}

ControlScript::Reply ControlScript::ReplyTo(const Json::Value& message) {
    std::unique_lock lock(mutex_);
    seen_.push_back(message);
    const auto command = message["command"].asString();
    if (command == "wait") {
        return HeldReply(lock);
    }
    Reply reply = {200, R"({"errno":0})"};
    if (!Take(command, reply) && command == "register") {
        const auto number = std::to_string(++registrations_);
        reply.body = R"({"errno":0,"serverID":"box-1","session":"s)" + number + R"(","channel":"c)" + number + "\"}";
    }
    return reply;
}

ControlScript::Reply ControlScript::HeldReply(std::unique_lock<std::mutex>& lock) {
    const auto number = ++waits_;
    changed_.notify_all();  // an older wait, whose daemon has gone, ends
    Reply reply = {200, R"({"errno":0})"};
    changed_.wait(lock, [&] { return isStopping_ || number != waits_ || Take("wait", reply); });
    return reply;
}

}  // namespace ardv::test
