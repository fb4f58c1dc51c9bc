// SPDX-License-Identifier: Apache-2.0
// What the keeper of the tunnel tells of it.
#include "json_member.h"
#include "tunnel_keeper.h"

namespace ardv::daemon {

using namespace ARDV::Relay;
using std::chrono::duration_cast;
using std::chrono::seconds;

namespace {

constexpr seconds kLongestTry{60};  // twice what the alarm grants

// What a candidate says of itself is a server's text, of any type and length.
std::string Shown(const Json::Value& candidate, const char* key) {
    constexpr std::size_t kMaxSize = 16;
    const auto* value = Member(candidate, key);
    std::string text = value && !value->isObject() && !value->isArray() ? value->asString().substr(0, kMaxSize) : "";
    for (char& c : text) {
        c = c >= ' ' && c <= '~' ? c : '?';
    }
    return text;
}

Json::Value ListOf(const std::vector<OpenService>& services) {
    Json::Value list(Json::arrayValue);
    for (const auto& service : services) {
        auto& row = list.append(Json::Value(Json::objectValue));
        row["id"] = service.id;
        row["port"] = service.port;
    }
    return list;
}

void SetUnlessEmpty(Json::Value& object, const char* key, const std::string& text) {
    if (!text.empty()) {
        object[key] = text;
    }
}

}  // namespace

const char* TunnelKeeper::NameOf(Phase phase) {
    struct Row {
        Phase phase;
        const char* name;
    };
    static constexpr Row kNames[] = {
        {Phase::kIdle, "idle"},     {Phase::kTrying, "trying"},   {Phase::kUp, "up"},
        {Phase::kEnding, "ending"}, {Phase::kResting, "resting"}, {Phase::kInvalid, "invalid"},
    };
    for (const auto& row : kNames) {
        if (row.phase == phase) {
            return row.name;
        }
    }
    return "unknown";
}

std::string TunnelKeeper::StatusText() const {
    return tunnel_ ? Tunnel::GetStatusStr(tunnel_->GetStatus()) : std::string();
}

// The one that runs, or ran.
Json::Value TunnelKeeper::Candidate() const {
    const auto next = tunnel_->GetCandidateIndex();
    if (child_ <= 0 || !order_ || next <= 0) {
        return Json::nullValue;
    }
    const auto& row = order_->candidates[static_cast<Json::ArrayIndex>(next - 1)];
    Json::Value candidate;
    candidate["protocol"] = Shown(row, "protocol");
    candidate["port"] = Shown(row, "port");
    const bool isIPv6 = candidate["protocol"].asString().find('6') != std::string::npos;
    candidate["host"] = order_->relay[isIPv6 ? "relay_ipv6" : "relay_ip"];
    return candidate;
}

Json::Value TunnelKeeper::Published() const {
    if (!tunnel_) {
        return Json::nullValue;
    }
    Json::Value value;
    tunnel_->Write(value, false);
    value["status"] = StatusText();
    value["since"] = Number(since_);
    value["open"] = ListOf(open_);
    if (child_ > 0) {
        value["pid"] = child_;
    }
    if (auto candidate = Candidate(); !candidate.isNull()) {
        value["candidate"] = std::move(candidate);
    }
    if (phase_ == Phase::kUp) {
        SetUnlessEmpty(value, "peer_ip", info_.peer);
        SetUnlessEmpty(value, "local_ip", info_.local);
        SetUnlessEmpty(value, "local_ip6", info_.localIPv6);
    }
    if (phase_ == Phase::kResting) {
        value["retry_at"] = Number(retryAt_);
    }
    SetUnlessEmpty(value, "error", error_);
    return value;
}

Json::Value TunnelKeeper::ToldToServer() const {
    if (!tunnel_ || !order_) {
        return Json::nullValue;
    }
    Json::Value value;
    tunnel_->Write(value, false);
    value["status"] = StatusText();
    return value;
}

Json::Value TunnelKeeper::Describe() const {
    auto value = Published();
    value["phase"] = NameOf(phase_);
    value["failures"] = backOff_.Failures();
    if (order_) {
        value["candidates"] = Count(order_->candidates.size());
    }
    if (phase_ == Phase::kUp) {
        value["up_seconds"] = Number(duration_cast<seconds>(Clock::now() - upSince_).count());
    }
    return value;
}

bool TunnelKeeper::IsHealthy(std::string& why) const {
    const bool isLost = (phase_ == Phase::kTrying && Clock::now() - triedAt_ > kLongestTry) ||
                        (phase_ == Phase::kEnding && !endLimit_.IsToBeExpected()) ||
                        (phase_ == Phase::kResting && !retry_.IsToBeExpected());
    if (isLost) {
        why = std::string("the tunnel is ") + NameOf(phase_) + " and nothing leads on";
    }
    return !isLost;
}

}  // namespace ardv::daemon
