// SPDX-License-Identifier: Apache-2.0
// The test interface below /sandbox/: faults, the requests seen, the registry.
#pragma once

#include <string>
#include <string_view>

#include "fault_box.h"
#include "registry.h"
#include "request_log.h"

namespace ARDV::Sandbox {

/// An HTTP status and a JSON body.
struct AdminReply {
    int status;
    std::string body;
};

/// True when `path` belongs to the test interface.
bool IsAdminPath(std::string_view path);

/// Answers the test interface's requests (docs/alias-protocol.md, "The test interface").
class Admin {
public:
    /// Works on the given parts, which must outlive it.
    Admin(FaultBox& faults, RequestLog& requests, Registry& registry);

    /// Does what `method` on `path` with `body` asks for. 200 and its result; 400 and {"error": reason} for a body that
    /// is wrong; 404 for a path and 405 for a method that isn't there; 500 when the registry can't be written.
    AdminReply Handle(std::string_view method, std::string_view path, const std::string& body);

private:
    struct Route;
    static const Route kRoutes[];

    AdminReply SetFault(const std::string& body);
    AdminReply ClearFault(const std::string& body);
    AdminReply GetRequests(const std::string& body);
    AdminReply ClearRequests(const std::string& body);
    AdminReply GetRegistry(const std::string& body);
    AdminReply PutRegistry(const std::string& body);

    FaultBox& faults_;
    RequestLog& requests_;
    Registry& registry_;
};

}  // namespace ARDV::Sandbox
