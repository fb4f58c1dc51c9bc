// SPDX-License-Identifier: Apache-2.0
// The session's other half: waiting for commands.
#include <algorithm>
#include <utility>

#include "control_session.h"
#include "log.h"

DAEMON_LOG_SOURCE("control_wait.cpp");

namespace ardv::daemon {

using namespace ARDV::Relay;
using std::chrono::seconds;

namespace {

constexpr int kProbeSeconds = 60;  // of TCP keep-alive
constexpr seconds kShort{2};       // a server that has nothing to say and ends its waits sooner is asked less often
constexpr int kShortWaitsInARow = 3;
constexpr std::size_t kKnownCommands = 256;

// A wait may go over plain HTTP, so anybody could have written its answer: it can end the session and no more. Where the device is
// to move to, and whether it is refused, it learns from the control server.
Action AfterSessionEndedByWait(Action action) {
    return action == Action::kAgainWithFreshNetwork ? action : Action::kAgain;
}

}  // namespace

void ControlSession::Wait() {
    waitAgain_.Stop();
    auto request = std::make_shared<Request>(device_.Configuration().GetWaitCmdServer().GetUrl(nullptr),
                                             WithTunnel(WaitMessage(credentials_, results_), events_.tunnel()), true);
    if (request->IsValid()) {
        request->SetTcpKeepAlive(kProbeSeconds);
    }
    resultsSent_ = results_.size();
    waitingSince_ = Clock::now();
    wait_ = engine_.Start(
        std::move(request),
        [this](Request& finished) {
            const auto token = std::move(wait_);
            OnWaited(ReadAnswer(finished));
        },
        "wait", std::nullopt);
    if (hasWaitFailed_) {
        waitHolds_.Start(2 * plans_.usual.base);
    }
}

void ControlSession::WaitAnew() {
    if (phase_ == Phase::kStanding) {
        Wait();
    }
}

void ControlSession::TellTunnel() {
    if (wait_) {
        WaitAnew();
    }
}

void ControlSession::StopWaiting() {
    wait_.reset();
    waitAgain_.Stop();
    waitHolds_.Stop();
    waitBackOff_.Reset();
    hasWaitFailed_ = false;
    shortWaits_ = 0;
    resultsSent_ = 0;
}

void ControlSession::OnWaited(const Answer& answer) {
    const auto lasted = Clock::now() - waitingSince_;
    waitHolds_.Stop();
    if (lasted >= kLasting) {
        waitBackOff_.Reset();
    }
    if (answer.result != RELAYD_RET_SUCCESS) {
        OnWaitFailed(answer);
        return;
    }
    results_.erase(results_.begin(), results_.begin() + static_cast<std::ptrdiff_t>(resultsSent_));
    resultsSent_ = 0;
    ForgiveWait();
    shortWaits_ = lasted < kShort ? shortWaits_ + 1 : 0;
    CarryOut(ReadCommands(answer.body));
    if (phase_ != Phase::kStanding || wait_) {
        return;  // what was carried out has changed the session
    }
    if (shortWaits_ > kShortWaitsInARow) {
        waitAgain_.Start(waitBackOff_.Next(plans_.usual));
    } else {
        Wait();
    }
}

void ControlSession::OnWaitFailed(const Answer& answer) {
    const auto action = ActionFor(answer);
    const bool isOnlyLater =
        action == Action::kBackOff || action == Action::kBackOffSlowly || action == Action::kResolveAnew;
    if (!isOnlyLater) {
        Fail("wait", answer, AfterSessionEndedByWait(action));
        return;
    }
    Note("wait", answer);
    resultsSent_ = 0;
    hasWaitFailed_ = true;
    if (action == Action::kResolveAnew) {
        Request::CleanDnsCache();
    }
    waitAgain_.Start(waitBackOff_.Next(PlanFor(action)));
    if (!exchange_ && !answer.serverError) {
        next_.Start(Soon());  // a sign of life tells whether it is the wait alone
    }
    events_.changed();
}

// Called once a wait that follows a failed one has stood for a while, or was answered.
void ControlSession::ForgiveWait() {
    waitHolds_.Stop();
    if (!hasWaitFailed_) {
        return;
    }
    hasWaitFailed_ = false;  // the back-off counts on until a wait has lasted
    if (phase_ == Phase::kStanding) {
        error_ = RELAYD_RET_SUCCESS;
        events_.changed();
    }
}

ControlSession::KnownCommand* ControlSession::Find(const std::string& id) {
    const auto known = std::find_if(commands_.begin(), commands_.end(), [&id](const auto& c) { return c.id == id; });
    return known == commands_.end() ? nullptr : &*known;
}

void ControlSession::CarryOut(const std::vector<ServerCommand>& commands) {
    for (const auto& command : commands) {
        if (phase_ != Phase::kStanding) {
            return;  // the one before has ended the session
        }
        if (const auto* known = Find(command.id)) {
            if (known->result) {
                results_.emplace_back(command.id, *known->result);
            }
            continue;
        }
        if (commands_.size() == kKnownCommands) {
            commands_.pop_front();
        }
        commands_.push_back({command.id, std::nullopt});
        if (const auto result = events_.command(command)) {
            Finish(command.id, *result);
        }
    }
}

void ControlSession::Finish(const std::string& id, RELAYD_RET result) {
    auto* known = Find(id);
    if (!known || known->result) {
        return;
    }
    known->result = result;
    results_.emplace_back(id, result);
    if (phase_ == Phase::kStanding && wait_) {
        Wait();  // a new wait brings the result at once
    }
}

}  // namespace ardv::daemon
