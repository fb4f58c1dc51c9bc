// SPDX-License-Identifier: Apache-2.0
#include "control_session.h"

#include <cstdint>
#include <utility>

#include "address_text.h"
#include "log.h"

DAEMON_LOG_SOURCE("control_session.cpp");

namespace ardv::daemon {

using namespace ARDV::Relay;
using std::chrono::milliseconds;
using std::chrono::seconds;

namespace {

constexpr seconds kUsualKeepAlive{3600};
constexpr int kMaxMoves = 3;
constexpr std::uint32_t kFailuresBeforeGlobal = 3;

}  // namespace

ControlSession::ControlSession(EventLoop& loop, TransferEngine& engine, Device& device, RecentErrors& errors,
                               const RetryPlans& plans, Events events)
    : device_(device),
      engine_(engine),
      errors_(errors),
      plans_(plans),
      events_(std::move(events)),
      keepAlive_(kUsualKeepAlive),
      next_(loop, "control session", [this] { OnTimer(); }),
      waitAgain_(loop, "wait again", [this] { Wait(); }),
      waitHolds_(loop, "wait holds", [this] { ForgiveWait(); }) {}

void ControlSession::Start(milliseconds delay) {
    if (phase_ != Phase::kOff) {
        return;
    }
    error_ = RELAYD_RET_SUCCESS;
    backOff_.Reset();
    isHoldingOff_ = delay > milliseconds(0);
    next_.Start(delay);
    Enter(Phase::kRetrying);
}

void ControlSession::Stop() {
    isHoldingOff_ = false;
    next_.Stop();
    ForgetSession();
    error_ = RELAYD_RET_SUCCESS;
    Enter(Phase::kOff);
}

void ControlSession::RegisterNow() {
    if (phase_ != Phase::kOff) {
        backOff_.Reset();
        moves_ = 0;
        Register();
    }
}

void ControlSession::TryNow() {
    if ((phase_ == Phase::kRetrying || phase_ == Phase::kDoubtful) && !exchange_) {
        backOff_.Reset();
        OnTimer();
    } else if (phase_ == Phase::kStanding && waitAgain_.IsRunning()) {
        waitBackOff_.Reset();
        Wait();
    }
}

void ControlSession::OnTimer() {
    if (phase_ == Phase::kRetrying) {
        Register();
    } else if (phase_ == Phase::kStanding || phase_ == Phase::kDoubtful) {
        KeepAlive();
    }
}

void ControlSession::Send(const ServerConf& server, const Json::Value& message, const char* purpose,
                          void (ControlSession::*done)(const Answer&)) {
    next_.Stop();
    auto request = std::make_shared<Request>(server.GetUrl(nullptr), message, true);
    exchange_ = engine_.Start(
        std::move(request),
        [this, done](Request& finished) {
            const auto token = std::move(exchange_);  // gone also where the rest throws
            (this->*done)(ReadAnswer(finished));
        },
        purpose);
}

void ControlSession::RegisterAt(bool isGlobal) {
    ForgetSession();
    isHoldingOff_ = false;
    isAtGlobalServer_ = isGlobal;
    Enter(Phase::kRegistering);
    const AuthConf identity(true);
    if (!identity.HasCredentials()) {
        next_.Stop();
        const Answer nobody = {RELAYD_RET_ERR_CONFIG, std::nullopt, {}, "the device has no identity"};
        Fail("register", nobody, ActionFor(nobody));
        return;
    }
    const auto message = RegisterMessage(device_.Configuration(), device_.Network(), identity);
    Send(Server(), WithTunnel(message, events_.tunnel()), "register", &ControlSession::OnRegistered);
}

// The control server that was assigned may be gone for good; the global one knows where to go instead. Every second try: the
// reason may as well be that the device has no network.
bool ControlSession::MustAskGlobalServer() const {
    const auto& configuration = device_.Configuration();
    const auto failures = backOff_.Failures();
    return failures >= kFailuresBeforeGlobal && failures % 2 == 1 &&
           configuration.GetGlobalServer().GetHost() != configuration.GetControlServer().GetHost();
}

const ServerConf& ControlSession::Server() const {
    return isAtGlobalServer_ ? device_.Configuration().GetGlobalServer() : device_.Configuration().GetControlServer();
}

void ControlSession::OnRegistered(const Answer& answer) {
    if (answer.result != RELAYD_RET_SUCCESS) {
        Fail("register", answer, ActionFor(answer));
        return;
    }
    const auto host = ReadControlHost(answer.body);
    if (host && *host != device_.Configuration().GetControlServer().GetHost()) {
        if (!MoveTo(*host)) {
            Note("register", {RELAYD_RET_ERR_SERVER_CHANGED, std::nullopt, {}, {}});
            RetryAfter(plans_.usual);
        }
        return;
    }
    if (const auto registration = ReadRegistration(answer.body)) {
        Stand(*registration);
    } else {
        const Answer garbled;
        Fail("register", garbled, ActionFor(garbled));
    }
}

void ControlSession::Stand(const Registration& registration) {
    credentials_ = registration.credentials;
    device_.SetServerId(credentials_.serverId);
    keepAlive_ = kUsualKeepAlive;
    isReachable_ = false;
    Adopt(registration.terms);
    moves_ = 0;
    error_ = RELAYD_RET_SUCCESS;
    standingSince_ = Clock::now();
    next_.Start(keepAlive_);
    DAEMON_LOG(LOG_NOTICE, "logged in at %s", Server().GetHost().c_str());
    Enter(Phase::kStanding);
    Wait();
}

void ControlSession::Adopt(const Terms& terms) {
    keepAlive_ = terms.keepAlive.value_or(keepAlive_);
    isReachable_ = terms.reachable.value_or(isReachable_);
    if (terms.smartDns) {
        device_.SetSmartDns(*terms.smartDns);
    }
}

void ControlSession::KeepAlive() {
    Send(Server(), WithTunnel(KeepAliveMessage(credentials_), events_.tunnel()), "keep alive",
         &ControlSession::OnKeptAlive);
}

void ControlSession::OnKeptAlive(const Answer& answer) {
    if (answer.result != RELAYD_RET_SUCCESS) {
        answer.serverError ? Fail("keep alive", answer, ActionFor(answer)) : Doubt(answer);
        return;
    }
    Adopt(ReadTerms(answer.body));
    next_.Start(keepAlive_);
    const bool wasDoubtful = phase_ == Phase::kDoubtful;
    if (wasDoubtful) {
        standingSince_ = Clock::now();
    }
    if (!hasWaitFailed_) {
        error_ = RELAYD_RET_SUCCESS;
    }
    Enter(Phase::kStanding);
    if (wasDoubtful) {
        Wait();
    }
}

bool ControlSession::AskForTunnel(std::function<void(const Answer&)> done) {
    const auto url = Server().GetUrl(nullptr);
    if (phase_ != Phase::kStanding || !IsHttps(url)) {
        return false;
    }
    errand_ = engine_.Start(
        std::make_shared<Request>(url, TunnelMessage(credentials_), true),
        [this, done = std::move(done)](Request& finished) {
            const auto token = std::move(errand_);
            done(ReadAnswer(finished));
        },
        "tunnel");
    return true;
}

// The server does not answer. Whether the session is over, only the server can tell.
void ControlSession::Doubt(const Answer& answer) {
    Note("keep alive", answer);
    ForgiveAfterStanding();
    StopWaiting();
    const auto action = ActionFor(answer);
    if (action == Action::kResolveAnew) {
        Request::CleanDnsCache();
    }
    next_.Start(backOff_.Next(PlanFor(action)));
    Enter(Phase::kDoubtful);
}

Action ControlSession::ActionFor(const Answer& answer) {
    return answer.serverError ? daemon::ActionFor(*answer.serverError, answer.result)
                              : daemon::ActionFor(answer.result);
}

void ControlSession::Note(const char* what, const Answer& answer) {
    const bool isOnlyGlobalServerAway = isAtGlobalServer_ && phase_ == Phase::kRegistering && !answer.serverError;
    if (!isOnlyGlobalServerAway) {
        error_ = answer.result;  // else the failure of the control server remains what the user has to know
    }
    auto word = GetErrorStr(answer.result);
    const auto detail = answer.serverError ? GetServerErrorStr(*answer.serverError) : answer.reason;
    if (!detail.empty()) {
        word += " (" + detail + ")";
    }
    errors_.Add(what, word);
    DAEMON_LOG(LOG_NOTICE, "%s failed: %s", what, word.c_str());
}

void ControlSession::Fail(const char* what, const Answer& answer, Action action) {
    Note(what, answer);
    ForgiveAfterStanding();
    ForgetSession();
    Follow(action, answer);
}

void ControlSession::Follow(Action action, const Answer& answer) {
    switch (action) {
        case Action::kWaitForUser:
            next_.Stop();
            Enter(Phase::kRefused);
            return;
        case Action::kMove:
            if (const auto host = ReadControlHost(answer.body); host && MoveTo(*host)) {
                return;
            }
            break;
        case Action::kAgainWithFreshNetwork:
            device_.RefreshNetwork();
            [[fallthrough]];
        case Action::kAgain:
            if (backOff_.MayGoAtOnce()) {
                next_.Start(Soon());
                Enter(Phase::kRetrying);
                return;
            }
            break;
        case Action::kResolveAnew:
            Request::CleanDnsCache();
            break;
        case Action::kBackOff:
        case Action::kBackOffSlowly:
        case Action::kGoOn:
            break;
    }
    RetryAfter(PlanFor(action));
}

bool ControlSession::MoveTo(const std::string& host) {
    if (moves_ == kMaxMoves) {
        moves_ = 0;
        return false;
    }
    ++moves_;
    DAEMON_LOG(LOG_NOTICE, "moving to the control server %s", host.c_str());
    device_.SetControlHost(host);
    RegisterAt(false);
    return true;
}

void ControlSession::RetryAfter(const BackOffPlan& plan) {
    next_.Start(backOff_.Next(plan));
    Enter(Phase::kRetrying);
}

// A server that restarts ends all of its sessions in one moment. Their devices must not come back in one.
milliseconds ControlSession::Soon() const {
    return RandomTime(plans_.soon);
}

const BackOffPlan& ControlSession::PlanFor(Action action) const {
    return action == Action::kBackOffSlowly ? plans_.slow : plans_.usual;
}

void ControlSession::ForgetSession() {
    errand_.reset();
    exchange_.reset();  // a sign of life may be under way; its answer is no news of another session
    StopWaiting();
    credentials_ = {};
    commands_.clear();
    results_.clear();
}

void ControlSession::Enter(Phase phase) {
    phase_ = phase;
    events_.changed();
}

void ControlSession::ForgiveAfterStanding() {
    if (phase_ == Phase::kStanding && Clock::now() - standingSince_ >= kLasting) {
        backOff_.Reset();
    }
}

}  // namespace ardv::daemon
