// SPDX-License-Identifier: Apache-2.0
#include "tunnel_keeper.h"

#include <csignal>
#include <set>
#include <utility>

#include "log.h"
#include "openvpn_process.h"

DAEMON_LOG_SOURCE("tunnel_keeper.cpp");

namespace ardv::daemon {

using namespace ARDV::Relay;
using std::chrono::milliseconds;
using std::chrono::seconds;

namespace {

constexpr seconds kSetUpLimit{29};  // of the tunnel's alarm, which counts whole seconds
constexpr seconds kEndLimit{2};     // then OpenVPN is killed
constexpr seconds kAnswerLimit{30};
constexpr const char kUnprepared[] = "the machine could not be prepared for a tunnel";
constexpr seconds kLasting{60};  // a tunnel that was up for so long was a success

}  // namespace

TunnelKeeper::TunnelKeeper(EventLoop& loop, Device& device, RecentErrors& errors, const RetryPlans& plans,
                           Events events)
    : device_(device),
      errors_(errors),
      plans_(plans),
      events_(std::move(events)),
      endLimit_(loop, "end of the tunnel", [this] { KillChild(); }),
      retry_(loop, "tunnel", [this] { OnRetry(); }) {}

TunnelKeeper::~TunnelKeeper() {
    Stop();
}

std::optional<RELAYD_RET> TunnelKeeper::Open(const TunnelOrder& order, const std::string& id) {
    if (order_ && *order_ == order && phase_ == Phase::kUp) {
        return RELAYD_RET_SUCCESS;
    }
    if (order_ && *order_ == order && phase_ != Phase::kInvalid) {
        openers_.push_back(id);
        TryNow();
        return std::nullopt;
    }
    Answer(openers_, RELAYD_RET_ERR_UNKNOWN);
    openers_.push_back(id);
    order_ = order;
    error_.clear();
    backOff_.Reset();
    Leave(&TunnelKeeper::Begin);
    return std::nullopt;
}

std::optional<RELAYD_RET> TunnelKeeper::Close(const std::string& id) {
    if (phase_ == Phase::kIdle) {
        return RELAYD_RET_SUCCESS;
    }
    closers_.push_back(id);
    Close();
    return std::nullopt;
}

void TunnelKeeper::Close() {
    if (phase_ == Phase::kIdle) {
        return;
    }
    Answer(openers_, RELAYD_RET_ERR_UNKNOWN);
    order_.reset();
    Leave(&TunnelKeeper::Closed);
}

void TunnelKeeper::Renew(const std::optional<TunnelOrder>& order) {
    if (phase_ != Phase::kResting || !hasAsked_) {
        return;
    }
    if (order && *order != *order_) {
        order_ = order;
        Begin();
    } else {
        StartRound();
    }
}

void TunnelKeeper::Stop() {
    EndNow();
    phase_ = Phase::kIdle;
    order_.reset();
    tunnel_.reset();
    retry_.Stop();
    endLimit_.Stop();
}

void TunnelKeeper::EndNow() {
    if (!tunnel_) {
        return;
    }
    EndChildAndWait(std::exchange(child_, -1));
    if (tunnel_->GetStatus() == TUNNEL_STATUS_CREATING) {
        tunnel_->UpdateTunnelStatus();  // takes the alarm back
    }
    tunnel_->CheckStatusChanged();  // one that stayed READY would not be made anew
    tunnel_->Destroy();
    open_.clear();
}

void TunnelKeeper::Begin() {
    retry_.Stop();
    tunnel_ = std::make_unique<Tunnel>(order_->relay);
    if (tunnel_->IsValid()) {
        StartRound();
        return;
    }
    phase_ = Phase::kInvalid;
    tunnel_->SetStatus(TUNNEL_STATUS_INVALID_CONF);
    Note("the relay's address, user or password is missing");
    Answer(openers_, RELAYD_RET_ERR_UNKNOWN);
    Tell();
}

void TunnelKeeper::StartRound() {
    retry_.Stop();
    hasAsked_ = false;
    phase_ = Phase::kTrying;
    tunnel_->ResetTunnelData();
    Tell();  // before there is anything: whoever clears away after a daemon that was killed learns of it here
    Try();
}

void TunnelKeeper::Try() {
    phase_ = Phase::kTrying;
    triedAt_ = Clock::now();
    if (!tunnel_->Create(order_->candidates, true, device_.HasIPv6())) {
        FailRound();
        return;
    }
    child_ = tunnel_->GetPid();
    if (!tunnel_->IsPrepared()) {
        FailUnguarded();
        return;
    }
    Tell();
}

// The machine's guard of the interface may not stand. Killed in its first millisecond, OpenVPN has no interface yet.
void TunnelKeeper::FailUnguarded() {
    KillChildAndWait(std::exchange(child_, -1));
    tunnel_->UpdateTunnelStatus();
    Note(kUnprepared);
    FailRound();
}

void TunnelKeeper::FailTry(const char* why) {
    Note(why);
    tunnel_->UpdateTunnelStatus();
    Try();
}

void TunnelKeeper::FailRound() {
    if (error_.empty()) {
        Note("no candidate can be used");
    }
    Answer(openers_, RELAYD_RET_ERR_NETWORK);
    Rest(backOff_.Next(plans_.usual));
}

// The connection of a tunnel that was up.
void TunnelKeeper::Lose() {
    tunnel_->CheckStatusChanged();
    tunnel_->Destroy();
    open_.clear();
    Note("the connection to the relay was lost");
    if (Clock::now() - upSince_ >= kLasting) {
        backOff_.Reset();
    }
    Rest(backOff_.MayGoAtOnce() ? RandomTime(plans_.soon) : backOff_.Next(plans_.usual));
}

void TunnelKeeper::Rest(milliseconds delay) {
    phase_ = Phase::kResting;
    retryAt_ = std::time(nullptr) + std::chrono::ceil<seconds>(delay).count();
    retry_.Start(delay);
    Tell();
}

void TunnelKeeper::OnRetry() {
    if (!hasAsked_ && events_.refresh()) {
        hasAsked_ = true;
        retry_.Start(kAnswerLimit);
        return;
    }
    StartRound();
}

void TunnelKeeper::TryNow() {
    if (phase_ == Phase::kResting && !hasAsked_) {
        backOff_.Reset();
        retry_.Start(milliseconds(0));
    }
}

// A tunnel, whatever it is at, before `then`.
void TunnelKeeper::Leave(Step then) {
    retry_.Stop();
    afterEnd_ = then;
    if (phase_ == Phase::kEnding) {
        return;
    }
    if (child_ <= 0) {
        Ended();
        return;
    }
    phase_ = Phase::kEnding;
    kill(child_, SIGTERM);
    endLimit_.Start(kEndLimit);
}

void TunnelKeeper::KillChild() const {
    if (child_ > 0) {
        kill(child_, SIGKILL);
    }
}

void TunnelKeeper::Ended() {
    endLimit_.Stop();
    EndNow();
    (this->*afterEnd_)();
    Answer(closers_, RELAYD_RET_SUCCESS);
}

void TunnelKeeper::Closed() {
    phase_ = Phase::kIdle;
    tunnel_.reset();
    error_.clear();
    DAEMON_LOG(LOG_NOTICE, "the tunnel is closed");
    Tell();
}

void TunnelKeeper::OnChildEnded() {
    if (!ReapIfEnded(child_)) {
        return;
    }
    child_ = -1;
    if (phase_ == Phase::kTrying) {
        FailTry("OpenVPN ended before the tunnel was up");
    } else if (phase_ == Phase::kUp) {
        Lose();
    } else if (phase_ == Phase::kEnding) {
        Ended();
    }
}

void TunnelKeeper::OnReady() {
    OnChildEnded();  // one that has ended and wasn't taken note of would still pass for alive
    const auto info = ReadTunnelInfo();
    if (phase_ != Phase::kTrying || info.process != child_ || !tunnel_->UpdateTunnelStatus() ||
        tunnel_->GetStatus() != TUNNEL_STATUS_READY) {
        return;
    }
    info_ = info;
    phase_ = Phase::kUp;
    upSince_ = Clock::now();
    error_.clear();
    Admit();
    DAEMON_LOG(LOG_NOTICE, "the tunnel to %s is up", tunnel_->GetHost().c_str());
    Answer(openers_, RELAYD_RET_SUCCESS);
    Tell();
}

// The state of OpenVPN is not asked for here: one that hangs is alive, and would pass for a tunnel.
void TunnelKeeper::OnAlarm() {
    OnReady();
    if (phase_ == Phase::kTrying && Clock::now() - triedAt_ >= kSetUpLimit) {
        Note("the relay did not answer in time");
        Leave(&TunnelKeeper::Try);
    }
}

// All is made anew, guard included, as somebody else's firewall may have been loaded meanwhile. Nothing passes while there are no rules.
void TunnelKeeper::OnReload() {
    if (phase_ != Phase::kUp) {
        return;
    }
    tunnel_->InsertKernelModule();
    if (!tunnel_->IsPrepared()) {
        Note(kUnprepared);
        Leave(&TunnelKeeper::FailRound);
        return;
    }
    tunnel_->RemoveIptableRules();
    tunnel_->InsertIptableDefaultRule();
    Admit();
    Tell();
}

void TunnelKeeper::Admit() {
    open_ = PermittedServices(device_.Configuration());
    std::set<std::uint16_t> ports;
    for (const auto& service : open_) {
        if (ports.insert(service.port).second) {
            tunnel_->InsertIptableAcceptRule(service.port);
        }
    }
}

void TunnelKeeper::Note(const char* why) {
    error_ = why;
    errors_.Add("tunnel", why);
    DAEMON_LOG(LOG_NOTICE, "tunnel: %s", why);
}

void TunnelKeeper::Answer(std::vector<std::string>& askers, RELAYD_RET result) const {
    for (const auto& id : std::exchange(askers, {})) {
        events_.finished(id, result);
    }
}

void TunnelKeeper::Tell() {
    if (auto status = StatusText(); status != toldStatus_) {
        toldStatus_ = std::move(status);
        since_ = std::time(nullptr);
    }
    events_.changed();
}

}  // namespace ardv::daemon
