// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>
#include <httplib.h>

#include <chrono>
#include <functional>
#include <string>

#include "support/alias_server_process.h"
#include "support/raw_exchange.h"
#include "support/scratch_folder.h"

namespace ardv::test {
using Clock = std::chrono::steady_clock;
using Fields = httplib::Params;

inline constexpr const char* kUpdate = "/alias_update.php";
inline constexpr const char* kQuery = "/alias_query.php";

/** What a device sends with every update. */
inline Fields Device(const std::string& serial, const std::string& alias) {
    return {{"alias", alias},      {"serial", serial},           {"token", "token-" + serial}, {"id", "id-" + serial},
            {"key", "api-key-42"}, {"mac", "02:00:5e:00:00:01"}, {"model", "AV-220"}};
}

inline Fields With(Fields fields, const std::string& name, const std::string& value) {
    fields.erase(name);
    fields.emplace(name, value);
    return fields;
}

inline Fields Without(Fields fields, const std::string& name) {
    fields.erase(name);
    return fields;
}

/** One server with an empty registry, and the ways to talk to it. */
class AliasServerFixture : public testing::Test {
protected:
    std::string Post(const std::string& action, Fields fields, const char* page = kUpdate) {
        fields.emplace("action", action);
        httplib::Client client(server.HttpUrl());
        const auto answer = client.Post(page, fields);
        return answer ? answer->body : "(" + httplib::to_string(answer.error()) + ")";
    }

    std::string PostText(const std::string& body, const std::string& type = "application/x-www-form-urlencoded") {
        httplib::Client client(server.HttpUrl());
        // Longer than any test waits: a client that is held must be let go by the server.
        client.set_read_timeout(std::chrono::minutes(2));
        const auto answer = client.Post(kUpdate, body, type);
        return answer ? std::to_string(answer->status) + " " + answer->body : httplib::to_string(answer.error());
    }

    /** What comes back to raw bytes until the server closes the connection. */
    std::string Raw(const std::string& bytes) { return RawExchange(server.HttpPort(), bytes); }

    bool WaitFor(const std::function<bool()>& isTrue) { return server.WaitFor(isTrue); }

    void EditRegistry(const char* list, const std::string& entry) {
        Json::Value registry = server.Registry();
        registry[list].append(entry);
        server.SetRegistry(registry);
    }

    httplib::Result Admin(const std::string& method, const std::string& path, const std::string& body) {
        httplib::Client client(server.HttpUrl());
        httplib::Request request;
        request.method = method;
        request.path = path;
        request.body = body;
        return client.send(request);
    }

    ScratchFolder folder;
    AliasServerProcess server{{folder.Path()}};
};

}  // namespace ardv::test
