// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include <json/value.h>

#include "http_server.h"

namespace ardv::test {

/**
 * A control and wait-command server whose answers a test writes beforehand. Without one, a registration and a sign of life
 * are answered as they should be, with "session" and "channel" numbered from 1, and a wait is held until there is an answer for
 * it, or until another wait comes.
 */
class ControlScript {
public:
    ControlScript();
    ~ControlScript();
    ControlScript(const ControlScript&) = delete;
    ControlScript& operator=(const ControlScript&) = delete;

    /** Puts an answer behind those that the next requests of a command get. One for "wait" goes out at once if one is held. */
    void Answer(const std::string& command, const std::string& body, int status = 200);

    /** From now on each request without an answer of its own gets this one; an empty body ends that. */
    void AlwaysAnswer(const std::string& command, const std::string& body, int status = 200);

    /** A registration's answer with further members, such as `,"keep_alive":60`. */
    static std::string Registered(const std::string& members = "");

    /** Each request so far: its body, in order of arrival. */
    std::vector<Json::Value> Seen() const;

    /** The same for one command. */
    std::vector<Json::Value> Seen(const std::string& command) const;

    /** How many requests of a command came. */
    std::size_t Count(const std::string& command) const { return Seen(command).size(); }

    /** A server of the configuration: "host", "port" and "protocol". */
    Json::Value Server() const;

private:
    struct Reply {
        int status;
        std::string body;
    };

    Reply ReplyTo(const Json::Value& message);
    Reply HeldReply(std::unique_lock<std::mutex>& lock);
    bool Take(const std::string& command, Reply& reply);

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::map<std::string, std::deque<Reply>> replies_;
    std::map<std::string, Reply> usual_;
    std::vector<Json::Value> seen_;
    std::uint64_t registrations_ = 0;
    std::uint64_t waits_ = 0;
    bool isStopping_ = false;
    HttpServer server_;
};

}  // namespace ardv::test
