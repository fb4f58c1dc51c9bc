// SPDX-License-Identifier: Apache-2.0
#include "fault.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <string_view>

#include "connection.h"
#include "text.h"

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

// The order being read and what came of it.
struct Reading {
    const Json::Value& order;
    Fault fault;
    std::string& error;
    std::vector<std::string> known{"kind", "count"};

    bool Refuse(const std::string& name, const std::string& problem) {
        error = name + " " + problem;
        return false;
    }

    bool Number(const char* name, std::optional<uint64_t> fallback, uint64_t low, uint64_t high, uint64_t& out) {
        known.emplace_back(name);
        const Json::Value& value = order[name];
        if (value.isNull() && !order.isMember(name) && fallback) {
            out = *fallback;
            return true;
        }
        if (!value.isUInt64() || value.asUInt64() < low || value.asUInt64() > high) {
            return Refuse(name, "must be a whole number, " + std::to_string(low) + " to " + std::to_string(high));
        }
        out = value.asUInt64();
        return true;
    }

    bool Text(const char* name, bool required, std::string& out) {
        known.emplace_back(name);
        if (!order.isMember(name) && !required) {
            return true;
        }
        if (!order[name].isString()) {
            return Refuse(name, "must be text");
        }
        out = order[name].asString();
        return true;
    }

    bool KnowsAll() {
        const auto names = order.getMemberNames();
        const auto stranger = std::find_if(names.begin(), names.end(), [&](const std::string& name) {
            return std::find(known.begin(), known.end(), name) == known.end();
        });
        return stranger == names.end() || Refuse(*stranger, "is not known for this kind");
    }
};

bool ReadStatus(Reading& reading) {
    uint64_t status = 0;
    const bool good = reading.Number("status", std::nullopt, 100, 999, status);
    reading.fault.status = static_cast<int>(status);
    return good && reading.Text("body", false, reading.fault.body);
}

bool ReadSlow(Reading& reading) {
    uint64_t delay = 0;
    const bool good = reading.Number("delay_ms", std::nullopt, 0, kMaxDelay, delay);
    reading.fault.delay = std::chrono::milliseconds(delay);
    return good;
}

bool ReadCut(Reading& reading) {
    return reading.Number("bytes", kDefaultCut, 2, kMaxCut, reading.fault.bytes);
}

bool ReadHuge(Reading& reading) {
    return reading.Number("bytes", kDefaultHuge, 1, kMaxHuge, reading.fault.bytes);
}

bool ReadGarbage(Reading& reading) {
    std::string variant = "body";
    if (!reading.Text("variant", false, variant)) {
        return false;
    }
    if (variant != "body" && variant != "protocol") {
        return reading.Refuse("variant", "must be \"body\" or \"protocol\"");
    }
    reading.fault.kind = variant == "body" ? FaultKind::kGarbageBody : FaultKind::kGarbageProtocol;
    return true;
}

bool IsCookie(const Json::Value& value) {
    return value.isString() && !value.asString().empty() && value.asString().size() <= kMaxCookieBytes &&
           !HasControlCharacter(value.asString());
}

bool ReadCookies(Reading& reading) {
    reading.known.emplace_back("cookies");
    const Json::Value& lines = reading.order["cookies"];
    if (!lines.isArray() || lines.empty() || lines.size() > kMaxCookies ||
        !std::all_of(lines.begin(), lines.end(), IsCookie)) {
        return reading.Refuse("cookies", "must be an array of 1 to 64 Set-Cookie values");
    }
    std::transform(lines.begin(), lines.end(), std::back_inserter(reading.fault.cookies),
                   [](const Json::Value& line) { return line.asString(); });
    return true;
}

bool ReadReply(Reading& reading) {
    return reading.Text("body", true, reading.fault.body);
}

bool ReadNothing(Reading&) {
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

bool PlayStatus(const Fault& fault, Connection& connection) {
    SendAll(connection, Head(fault.status, fault.body.size()) + fault.body);
    connection.FinishSending();
    return true;
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

bool PlayGarbageBody(const Fault&, Connection& connection) {
    const std::string noise = Noise(512);
    SendAll(connection, Head(200, noise.size()) + noise);
    connection.FinishSending();
    return true;
}

bool PlayGarbageProtocol(const Fault&, Connection& connection) {
    SendAll(connection, Noise(512));
    connection.FinishSending();
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

bool PlayNothing(const Fault&, Connection&) {
    return false;
}

struct Kind {
    std::string_view name;
    FaultKind kind;
    bool (*read)(Reading&);
    bool (*play)(const Fault&, Connection&);
};

constexpr std::array<Kind, 10> kKinds{{
    {"status", FaultKind::kStatus, ReadStatus, PlayStatus},
    {"slow", FaultKind::kSlow, ReadSlow, PlaySlow},
    {"silent", FaultKind::kSilent, ReadNothing, PlaySilent},
    {"cut", FaultKind::kCut, ReadCut, PlayCut},
    {"garbage", FaultKind::kGarbageBody, ReadGarbage, PlayGarbageBody},
    {"garbage", FaultKind::kGarbageProtocol, ReadGarbage, PlayGarbageProtocol},
    {"huge", FaultKind::kHugeBody, ReadHuge, PlayHuge},
    {"cookies", FaultKind::kCookies, ReadCookies, PlayNothing},
    {"reply", FaultKind::kReply, ReadReply, PlayNothing},
    {"maintenance", FaultKind::kMaintenance, ReadNothing, PlayNothing},
}};

const Kind& KindOf(const Fault& fault) {
    return *std::find_if(kKinds.begin(), kKinds.end(), [&](const Kind& kind) { return kind.kind == fault.kind; });
}

}  // namespace

std::optional<Fault> ParseFault(const Json::Value& order, std::string& error) {
    const std::string name = order.isObject() && order["kind"].isString() ? order["kind"].asString() : "";
    const auto* kind =
        std::find_if(kKinds.begin(), kKinds.end(), [&](const Kind& candidate) { return candidate.name == name; });
    if (kind == kKinds.end()) {
        error = order.isObject() ? "kind is missing or not known" : "a fault must be a JSON object";
        return std::nullopt;
    }
    Reading reading{order, {}, error};
    reading.fault.kind = kind->kind;
    const bool good =
        reading.Number("count", 1, 0, kMaxCount, reading.fault.count) && kind->read(reading) && reading.KnowsAll();
    return good ? std::optional(std::move(reading.fault)) : std::nullopt;
}

std::string_view FaultName(const Fault& fault) {
    return KindOf(fault).name;
}

bool PlayFault(const Fault& fault, Connection& connection) {
    return KindOf(fault).play(fault, connection);
}

}  // namespace ARDV::Sandbox
