// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>
#include <httplib.h>
#include <json/json.h>

#include <chrono>
#include <future>
#include <string>
#include <vector>

#include "support/control_server_process.h"
#include "support/file_text.h"
#include "support/json_parse.h"
#include "support/raw_exchange.h"
#include "support/scratch_folder.h"

namespace ardv::test {

using Clock = std::chrono::steady_clock;

inline constexpr const char* kPage = "/Serv.php";

/** What a device registers with. */
inline Json::Value Registration(const std::string& serial = "AV220-000001", const std::string& token = "hush-token") {
    Json::Value request = ParseText(R"({"version":1,"command":"register","alias":"attic",
        "identity":{"mac":"02:00:5e:10:00:01","key":"hush-key","model":"AV-220","timezone":"Europe/Berlin"},
        "service":[{"id":"hos_http","name":"System:Portal","port":5000,"ext_port":5000},{"id":"ssh","name":"","port":22}],
        "network":{"interface":[{"name":"eth0","ip":"192.0.2.5","mask":"255.255.255.0","ipv6":
            [{"address":"fe80::5eff:fe10:1","prefix_length":64,"scope":"link","addr_type":32}]}],
            "gateway":"192.0.2.1","ddns":"","mode":"","fqdn":"","ipv6_tunnel":[]},
        "smartdns":{"enabled":false},"daemon":{"version":"7.0.0"}})");
    request["identity"]["serial"] = serial;
    request["identity"]["token"] = token;
    return request;
}

/** One server, and a device that talks to it. */
class ControlServerFixture : public testing::Test {
protected:
    explicit ControlServerFixture(std::vector<std::string> options = {})
        : server({{.folder = folder.Path()}, std::move(options)}) {}

    /** The HTTP status and the body of an exchange, or what became of it in parentheses. */
    std::string PostText(const std::string& body) const {
        httplib::Client client(server.HttpUrl());
        // Longer than any test waits: a client that is held must be let go by the server.
        client.set_read_timeout(std::chrono::minutes(2));
        const auto answer = client.Post(kPage, body, "application/json");
        return answer ? std::to_string(answer->status) + " " + answer->body
                      : "(" + httplib::to_string(answer.error()) + ")";
    }

    /** The JSON answer; null where there is none with HTTP status 200. */
    Json::Value Post(const Json::Value& request) const {
        const std::string answer = PostText(request.toStyledString());
        return answer.starts_with("200 ") ? ParseText(answer.substr(4)) : Json::Value();
    }

    /** Registers, and keeps what the server names. */
    Json::Value Register(const Json::Value& request = Registration()) {
        const Json::Value answer = Post(request);
        EXPECT_EQ(answer["errno"], 0) << answer;
        id = answer["serverID"].asString();
        session = answer["session"].asString();
        channel = answer["channel"].asString();
        return answer;
    }

    Json::Value KeepAliveRequest() const {
        Json::Value request;
        request["version"] = 1;
        request["command"] = "keep_alive";
        request["serverID"] = id;
        request["session"] = session;
        return request;
    }

    Json::Value GetTunnelRequest() const {
        Json::Value request = KeepAliveRequest();
        request["command"] = "get_tunnel";
        return request;
    }

    Json::Value WaitRequest(const std::string& results = "") const {
        Json::Value request;
        request["version"] = 1;
        request["command"] = "wait";
        request["serverID"] = id;
        request["channel"] = channel;
        if (!results.empty()) {
            request["results"] = ParseText(results);
        }
        return request;
    }

    /** A wait that is held when this returns. */
    std::future<Json::Value> HeldWait(const std::string& results = "") const {
        auto answer = std::async(std::launch::async, [this, request = WaitRequest(results)] { return Post(request); });
        EXPECT_TRUE(server.AwaitWait(id));
        return answer;
    }

    httplib::Result Admin(const std::string& method, const std::string& path, const std::string& body) const {
        httplib::Client client(server.HttpUrl());
        httplib::Request request;
        request.method = method;
        request.path = path;
        request.body = body;
        return client.send(request);
    }

    ScratchFolder folder;
    ControlServerProcess server;
    std::string id;
    std::string session;
    std::string channel;
};

}  // namespace ardv::test
