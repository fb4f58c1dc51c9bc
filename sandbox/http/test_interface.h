// SPDX-License-Identifier: Apache-2.0
// The test interface below /sandbox/ of a server of the sandbox.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "http/fault_box.h"
#include "http/request_log.h"

namespace ARDV::Sandbox {

/// An HTTP status and a JSON body.
struct AdminReply {
    int status;
    std::string body;
};

/// 200 and `{}`.
AdminReply Done();

/// 200 and `value`.
AdminReply Show(const Json::Value& value);

/// `status` and {"error": `reason`}.
AdminReply Fail(int status, const std::string& reason);

/// True when `path` belongs to the test interface.
bool IsAdminPath(std::string_view path);

/// Answers the requests of the test interface: faults and the requests seen, and what the server adds of its own.
class TestInterface {
public:
    using Handler = std::function<AdminReply(const std::string& body)>;

    /// One request that is served.
    struct Route {
        std::string method;
        std::string path;
        Handler handle;
    };

    /// Works on the given parts, which must outlive it.
    TestInterface(FaultBox& faults, RequestLog& requests, const FaultRules& rules);

    /// Serves `method` on `path` by `handle`, too.
    void Add(std::string method, std::string path, Handler handle);

    const std::vector<Route>& Routes() const { return routes_; }

    /// Does what `method` on `path` with `body` asks for. 200 and its result; 400 and {"error": reason} for a body that
    /// is wrong; 404 for a path and 405 for a method that isn't there; 500 when something can't be written.
    AdminReply Handle(std::string_view method, std::string_view path, const std::string& body) const;

private:
    AdminReply SetFault(const std::string& body) const;

    FaultBox& faults_;
    FaultRules rules_;
    std::vector<Route> routes_;
};

}  // namespace ARDV::Sandbox
