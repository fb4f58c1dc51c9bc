// SPDX-License-Identifier: Apache-2.0
// Faults on demand: how the alias server is told to misbehave, and how it then does.
#pragma once

#include <json/json.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ARDV::Sandbox {

class Connection;

/// The kinds of fault; their names and members stand in docs/alias-protocol.md, "Faults".
enum class FaultKind {
    kStatus,
    kSlow,
    kSilent,
    kCut,
    kGarbageBody,
    kGarbageProtocol,
    kHugeBody,
    kCookies,
    kReply,
    kMaintenance
};

/// One fault as ordered. Members that its kind has no use for keep their initial values.
struct Fault {
    FaultKind kind = FaultKind::kStatus;
    uint64_t count = 1;                     ///< requests that meet it; 0: until it is cleared
    int status = 0;                         ///< kStatus: 100 to 999
    std::chrono::milliseconds delay{0};     ///< kSlow
    std::string body;                       ///< kStatus, kReply
    uint64_t bytes = 0;                     ///< kCut: the length promised; kHugeBody: the length sent
    std::vector<std::string> cookies = {};  ///< kCookies: values of Set-Cookie headers
};

/// Reads an order. Success: the fault. Failure: nothing, and `error` says what is wrong with which member.
std::optional<Fault> ParseFault(const Json::Value& order, std::string& error);

/// The name of `fault` for the log: its kind, as in an order.
std::string_view FaultName(const Fault& fault);

/// Plays `fault` on `connection` as far as it replaces or delays the answer. True: the connection has had all it will
/// get. False: the normal answer is still to be given (kCookies, kReply, kMaintenance change it; kSlow has waited).
bool PlayFault(const Fault& fault, Connection& connection);

}  // namespace ARDV::Sandbox
