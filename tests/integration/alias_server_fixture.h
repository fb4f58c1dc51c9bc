// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <string>

#include "support/alias_server_process.h"
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

/** Notices when a file of a folder is written to. */
class FolderWatch {
public:
    explicit FolderWatch(const std::string& folder) : notifier_(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
        ::inotify_add_watch(notifier_, folder.c_str(), IN_MODIFY);
    }
    FolderWatch(const FolderWatch&) = delete;
    FolderWatch& operator=(const FolderWatch&) = delete;
    ~FolderWatch() { ::close(notifier_); }

    /** Returns once something was written since the last call, or after `limit`. */
    void AwaitChange(std::chrono::milliseconds limit) const {
        pollfd entry{notifier_, POLLIN, 0};
        ::poll(&entry, 1, static_cast<int>(limit.count()));
        char events[4096];
        while (::read(notifier_, events, sizeof events) > 0) {
        }
    }

private:
    int notifier_;
};

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
    std::string Raw(const std::string& bytes) {
        const int socket = Connect(server.HttpPort());
        ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        ::shutdown(socket, SHUT_WR);
        std::string answer;
        char block[4096];
        for (ssize_t count; (count = ::recv(socket, block, sizeof block, 0)) > 0;) {
            answer.append(block, static_cast<size_t>(count));
        }
        ::close(socket);
        return answer;
    }

public:
    /** A TCP connection to `port` of this machine, for the caller to close. */
    static int Connect(int port) {
        const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const timeval limit{20, 0};
        ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(::connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        return socket;
    }

protected:
    /**
     * Waits, 10 seconds at most, until `isTrue`. Looks again whenever the server wrote to its log, and now and then for
     * what it does not log: a request that it holds.
     */
    bool WaitFor(const std::function<bool()>& isTrue) {
        const FolderWatch watch(folder.Path());
        const auto end = Clock::now() + std::chrono::seconds(10);
        while (!isTrue()) {
            if (Clock::now() > end) {
                return false;
            }
            watch.AwaitChange(std::chrono::milliseconds(50));
        }
        return true;
    }

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
