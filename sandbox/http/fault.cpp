// SPDX-License-Identifier: Apache-2.0
#include "http/fault.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "http/connection.h"
#include "http/text.h"

namespace ARDV::Sandbox {
namespace {

constexpr uint64_t kMaxCount = 1'000'000'000;
constexpr uint64_t kMaxDelay = 3'600'000;
constexpr uint64_t kDefaultHuge = 100'000'000;
constexpr uint64_t kMaxHuge = uint64_t{1} << 40;
constexpr uint64_t kDefaultCut = 1000;
constexpr uint64_t kMaxCut = 1'000'000;
constexpr size_t kMaxCookies = 64;
constexpr size_t kMaxCookieBytes = 4096;
constexpr size_t kBlock = 65536;

constexpr const char* kWholeBody = "body";

bool IsCookie(const Json::Value& value) {
    return value.isString() && !value.asString().empty() && value.asString().size() <= kMaxCookieBytes &&
           !HasControlCharacter(value.asString());
}

bool ReadStatus(FaultOrder& order) {
    uint64_t status = 0;
    const bool good = order.Number("status", std::nullopt, 100, 999, status);
    order.Result().status = static_cast<int>(status);
    return good && order.Text("body", false, order.Result().body);
}

bool ReadSlow(FaultOrder& order) {
    uint64_t delay = 0;
    const bool good = order.Number("delay_ms", std::nullopt, 0, kMaxDelay, delay);
    order.Result().delay = std::chrono::milliseconds(delay);
    return good;
}

bool ReadCut(FaultOrder& order) {
    return order.Number("bytes", kDefaultCut, 2, kMaxCut, order.Result().bytes);
}

bool ReadHuge(FaultOrder& order) {
    return order.Number("bytes", kDefaultHuge, 1, kMaxHuge, order.Result().bytes);
}

bool ReadGarbage(FaultOrder& order) {
    std::string& variant = order.Result().body = kWholeBody;
    if (!order.Text("variant", false, variant)) {
        return false;
    }
    return variant == kWholeBody || variant == "protocol" ||
           order.Refuse("variant", "must be \"body\" or \"protocol\"");
}

bool ReadCookies(FaultOrder& order) {
    const Json::Value& lines = order.Any("cookies");
    if (!lines.isArray() || lines.empty() || lines.size() > kMaxCookies ||
        !std::all_of(lines.begin(), lines.end(), IsCookie)) {
        return order.Refuse("cookies", "must be an array of 1 to 64 Set-Cookie values");
    }
    std::transform(lines.begin(), lines.end(), std::back_inserter(order.Result().cookies),
                   [](const Json::Value& line) { return line.asString(); });
    return true;
}

bool ReadReply(FaultOrder& order) {
    return order.Text("body", true, order.Result().body);
}

bool ReadNothing(FaultOrder&) {
    return true;
}

bool SendAll(Connection& connection, std::string_view text) {
    while (!text.empty()) {
        const ssize_t sent = connection.write(text.data(), text.size());
        if (sent <= 0) {
            return false;
        }
        text.remove_prefix(static_cast<size_t>(sent));
    }
    return true;
}

std::string Head(int status, uint64_t length) {
    return "HTTP/1.1 " + std::to_string(status) +
           " Ordered\r\nContent-Type: text/plain\r\nContent-Length: " + std::to_string(length) +
           "\r\nConnection: close\r\n\r\n";
}

// Bytes that are neither text, HTTP nor TLS; the same every time.
std::string Noise(size_t size) {
    std::string noise(size, '\0');
    uint32_t state = 0x9E3779B9;
    std::generate(noise.begin(), noise.end(), [&] {
        state = state * 1664525U + 1013904223U;
        return static_cast<char>(state >> 24);
    });
    return noise;
}

bool PlaySlow(const Fault& fault, Connection& connection) {
    return connection.WaitUntilPeerLeaves(fault.delay);
}

bool PlaySilent(const Fault&, Connection& connection) {
    connection.WaitUntilPeerLeaves(std::nullopt);
    connection.Cut();
    return true;
}

bool PlayCut(const Fault& fault, Connection& connection) {
    SendAll(connection, Head(200, fault.bytes) + std::string(fault.bytes / 2, 'x'));
    connection.Cut();
    return true;
}

bool PlayGarbage(const Fault& fault, Connection& connection) {
    const std::string noise = Noise(512);
    SendAll(connection, fault.body == kWholeBody ? Head(200, noise.size()) + noise : noise);
    connection.FinishSending();
    return true;
}

bool PlayReset(const Fault&, Connection& connection) {
    connection.Reset();
    return true;
}

bool PlayHuge(const Fault& fault, Connection& connection) {
    const std::string block(kBlock, 'x');
    uint64_t left = fault.bytes;
    bool more = SendAll(connection, Head(200, fault.bytes));
    while (more && left > 0) {
        const auto piece = std::string_view(block).substr(0, left);
        more = SendAll(connection, piece);
        left -= piece.size();
    }
    connection.FinishSending();
    return true;
}

constexpr FaultKind kKinds[] = {
    {"status", ReadStatus, PlayReply}, {"slow", ReadSlow, PlaySlow},          {"silent", ReadNothing, PlaySilent, true},
    {"cut", ReadCut, PlayCut},         {"reset", ReadNothing, PlayReset},     {"garbage", ReadGarbage, PlayGarbage},
    {"huge", ReadHuge, PlayHuge},      {"cookies", ReadCookies, PlayNothing}, {"reply", ReadReply, PlayReply},
};

const FaultKind* Find(std::span<const FaultKind> kinds, std::string_view name) {
    const auto found =
        std::find_if(kinds.begin(), kinds.end(), [&](const FaultKind& kind) { return kind.name == name; });
    return found == kinds.end() ? nullptr : &*found;
}

const FaultKind* KindOf(const Json::Value& order, const FaultRules& rules) {
    const std::string name = order.isObject() && order["kind"].isString() ? order["kind"].asString() : "";
    const FaultKind* common = Find(kKinds, name);
    return common ? common : Find(rules.kinds, name);
}

bool ReadTarget(FaultOrder& order, const FaultRules& rules) {
    if (rules.targets.empty()) {
        return true;
    }
    std::string& target = order.Result().target;
    const bool isText = order.Text("command", false, target);
    const bool isKnown =
        target.empty() || std::find(rules.targets.begin(), rules.targets.end(), target) != rules.targets.end();
    return isText && (isKnown || order.Refuse("command", "is not known"));
}

bool ReadCount(FaultOrder& order, const FaultRules& rules) {
    return !rules.isCounted || order.Number("count", 1, 0, kMaxCount, order.Result().count);
}

bool Read(FaultOrder& order, const FaultKind& kind, const FaultRules& rules) {
    return ReadCount(order, rules) && ReadTarget(order, rules) && kind.read(order) && order.KnowsAll();
}

}  // namespace

FaultOrder::FaultOrder(const Json::Value& order, const FaultKind& kind, std::string& error)
    : order_(order), error_(error) {
    fault_.kind = &kind;
}

bool FaultOrder::Number(const char* name, std::optional<uint64_t> fallback, uint64_t low, uint64_t high,
                        uint64_t& out) {
    const Json::Value& value = Any(name);
    if (!order_.isMember(name) && fallback) {
        out = *fallback;
        return true;
    }
    if (!value.isUInt64() || value.asUInt64() < low || value.asUInt64() > high) {
        return Refuse(name, "must be a whole number, " + std::to_string(low) + " to " + std::to_string(high));
    }
    out = value.asUInt64();
    return true;
}

bool FaultOrder::Text(const char* name, bool isRequired, std::string& out) {
    const Json::Value& value = Any(name);
    if (!order_.isMember(name) && !isRequired) {
        return true;
    }
    if (!value.isString()) {
        return Refuse(name, "must be text");
    }
    out = value.asString();
    return true;
}

const Json::Value& FaultOrder::Any(const char* name) {
    known_.emplace_back(name);
    return order_[name];
}

bool FaultOrder::Refuse(const std::string& name, const std::string& problem) {
    error_ = name + " " + problem;
    return false;
}

bool FaultOrder::KnowsAll() {
    const auto names = order_.getMemberNames();
    const auto stranger = std::find_if(names.begin(), names.end(), [&](const std::string& name) {
        return std::find(known_.begin(), known_.end(), name) == known_.end();
    });
    return stranger == names.end() || Refuse(*stranger, "is not known for this kind");
}

std::optional<Fault> ParseFault(const Json::Value& order, const FaultRules& rules, std::string& error) {
    const FaultKind* kind = KindOf(order, rules);
    if (!kind) {
        error = order.isObject() ? "kind is missing or not known" : "a fault must be a JSON object";
        return std::nullopt;
    }
    FaultOrder reading(order, *kind, error);
    return Read(reading, *kind, rules) ? std::optional(std::move(reading.Result())) : std::nullopt;
}

bool PlayFault(const Fault& fault, Connection& connection) {
    return fault.kind->play(fault, connection);
}

bool PlayReply(const Fault& fault, Connection& connection) {
    SendAll(connection, Head(fault.status, fault.body.size()) + fault.body);
    connection.FinishSending();
    return true;
}

bool PlayNothing(const Fault&, Connection&) {
    return false;
}

}  // namespace ARDV::Sandbox
