// SPDX-License-Identifier: Apache-2.0
// What a server of the sandbox serves: its pages, and its test interface.
#pragma once

#include <httplib.h>

#include <string>
#include <string_view>
#include <vector>

#include "http/fault_box.h"
#include "http/request_log.h"
#include "http/test_interface.h"

namespace ARDV::Sandbox {

/// The base of the servers' own parts. Answer() and LogWords() are called by several threads at once.
class Service {
public:
    /// Largest bodies, in bytes; a larger one is answered 413.
    struct Limits {
        size_t page;
        size_t admin;
    };

    /// Serves `pages`, paths that take POST requests.
    Service(std::vector<std::string> pages, const Limits& limits, const FaultRules& rules);
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;
    virtual ~Service() = default;

    /// Answers `request` to one of the pages, by any method, on Connection::Current(): plays a fault, or fills
    /// `response`. Gives the reply in a word or two for the log.
    virtual std::string Answer(const SeenRequest& request, httplib::Response& response) = 0;

    /// What the log says of `request`, answered by `reply`, without secrets and printable.
    virtual std::string LogWords(const SeenRequest& request, std::string_view reply) const = 0;

    const std::vector<std::string>& Pages() const { return pages_; }
    bool IsPage(std::string_view path) const;
    const Limits& BodyLimits() const { return limits_; }
    const TestInterface& Tests() const { return tests_; }
    RequestLog& Requests() { return requests_; }

protected:
    /// For the server's own requests.
    TestInterface& OwnTests() { return tests_; }

    FaultBox& Faults() { return faults_; }

private:
    std::vector<std::string> pages_;
    Limits limits_;
    FaultBox faults_;
    RequestLog requests_;
    TestInterface tests_;
};

}  // namespace ARDV::Sandbox
