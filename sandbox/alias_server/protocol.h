// SPDX-License-Identifier: Apache-2.0
// The alias protocol: what is answered to a request (docs/alias-protocol.md).
#pragma once

#include <string>
#include <vector>

#include "registry.h"

namespace ARDV::Sandbox {

/// One request to a page of the protocol.
struct AliasCall {
    std::string method;  ///< the HTTP method
    std::string page;    ///< the path, "/" first
    std::string body;    ///< the form, encoded
    std::string client;  ///< the client's address, without port
};

/// What is answered, always with HTTP status 200.
struct AliasReply {
    std::string body;
    std::string contentType;
};

/// The paths of the protocol's pages.
std::vector<std::string> AliasPages();

/// Answers `call` from `registry` and records in it what the call changes, durably, before it returns. Every call gets
/// an answer: a reply word ("good", or the word of what is wrong, most with ":" and a detail), or for a query that
/// finds its alias a JSON object. A registry that can't be written gives "badsys".
AliasReply Answer(Registry& registry, const AliasCall& call);

/// What a server that is in maintenance answers.
AliasReply MaintenanceReply();

}  // namespace ARDV::Sandbox
