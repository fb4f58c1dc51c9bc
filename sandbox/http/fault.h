// SPDX-License-Identifier: Apache-2.0
// Faults on demand: how a server of the sandbox is told to misbehave, and how it then does.
#pragma once

#include <json/json.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace ARDV::Sandbox {

class Connection;
class FaultOrder;
struct FaultKind;

/// One fault as ordered. Members that its kind has no use for keep their initial values.
struct Fault {
    const FaultKind* kind = nullptr;
    uint64_t count = 1;                     ///< requests that meet it; 0: until it is cleared
    std::string target = {};                ///< the command that meets it; empty: any
    int status = 200;                       ///< HTTP status of `body`
    std::chrono::milliseconds delay{0};     ///< before the normal answer
    std::string body = {};                  ///< what is answered
    uint64_t bytes = 0;                     ///< a length that is promised or sent
    std::vector<std::string> cookies = {};  ///< values of Set-Cookie headers for the normal answer
    Json::Value members = {};               ///< what a kind of one server alone needs
};

/// A kind of fault. The table of those that every server knows, with their members, stands in docs/alias-protocol.md, "Faults".
struct FaultKind {
    std::string_view name;
    bool (*read)(FaultOrder& order);                           ///< takes the kind's members; false when one is wrong
    bool (*play)(const Fault& fault, Connection& connection);  ///< as PlayFault()
    bool isHeld = false;                                       ///< whether it keeps its connection until it is cleared
};

/// What a server knows besides the kinds that all know.
struct FaultRules {
    std::span<const FaultKind> kinds;           ///< kinds of its own
    std::span<const std::string_view> targets;  ///< values of "command"; none: an order has no such member
    bool isCounted = true;                      ///< whether an order may have "count"
};

/// An order that is being read: the JSON object, and the fault that comes of it.
class FaultOrder {
public:
    /// Reads `order`, which must outlive this. `error` gets the reason of the first refusal.
    FaultOrder(const Json::Value& order, const FaultKind& kind, std::string& error);

    /// Takes the whole number `name`, or `fallback` where there is no such member. False: it is not from `low` to `high`.
    bool Number(const char* name, std::optional<uint64_t> fallback, uint64_t low, uint64_t high, uint64_t& out);

    /// Takes the text `name`. False: it is none, or missing though `isRequired`.
    bool Text(const char* name, bool isRequired, std::string& out);

    /// Takes the member `name` as it stands; null where there is none.
    const Json::Value& Any(const char* name);

    /// False, and the reason: the member `name` has `problem`.
    bool Refuse(const std::string& name, const std::string& problem);

    /// False when the order has a member that nothing took.
    bool KnowsAll();

    Fault& Result() { return fault_; }

private:
    const Json::Value& order_;
    Fault fault_;
    std::string& error_;
    std::vector<std::string> known_{"kind"};
};

/// Reads an order. Success: the fault. Failure: nothing, and `error` says what is wrong with which member.
std::optional<Fault> ParseFault(const Json::Value& order, const FaultRules& rules, std::string& error);

/// Plays `fault` on `connection` as far as it replaces or delays the answer. True: the connection has had all it will
/// get. False: the normal answer is still to be given, perhaps changed.
bool PlayFault(const Fault& fault, Connection& connection);

/// For kinds that are told the whole answer: sends `fault.body` with `fault.status`. True.
bool PlayReply(const Fault& fault, Connection& connection);

/// For kinds that change the normal answer: does nothing. False.
bool PlayNothing(const Fault& fault, Connection& connection);

}  // namespace ARDV::Sandbox
