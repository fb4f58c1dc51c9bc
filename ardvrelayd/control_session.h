// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <json/value.h>

#include <relay/common/vocabulary.h>
#include <relay/request/request.h>

#include "back_off.h"
#include "control_messages.h"
#include "device.h"
#include "event_loop.h"
#include "policy.h"
#include "recent_errors.h"
#include "transfer_engine.h"

namespace ardv::daemon {

/**
 * The session with the control servers: it registers the device, keeps the session alive, waits for commands, and after each
 * failure does what the policy says. docs/control-protocol.md tells the whole of it.
 */
class ControlSession {
public:
    /** What the session tells its owner. */
    struct Events {
        /** State, error or identifier may have changed. */
        std::function<void()> changed;
        /** Carries a command out. Its result, or nothing where `Finish` will be called for it later. */
        std::function<std::optional<ARDV::Relay::RELAYD_RET>(const ServerCommand&)> command;
        /** What the servers are told of the tunnel; null where none is ordered. */
        std::function<Json::Value()> tunnel;
    };

    /** Begins nothing yet. Everything that it is given must outlive it. */
    ControlSession(EventLoop& loop, TransferEngine& engine, Device& device, RecentErrors& errors,
                   const RetryPlans& plans, Events events);

    /** Registers after `delay`. Does nothing unless the session is off. */
    void Start(std::chrono::milliseconds delay);

    /** Ends the session. The service learns it from the wait's connection. */
    void Stop();

    /** Registers anew, now: what the servers are told has changed, or somebody asks for another try. */
    void RegisterNow();

    /**
     * Does at once what is waiting for another try: the network or the clock, which may have been the reason, has changed. A
     * refusal is not tried again.
     */
    void TryNow();

    /**
     * Waits for commands over another connection, where the session stands: that of the wait under way may be dead, and would tell only
     * after minutes. The answer tells whether the session stands still.
     */
    void WaitAnew();

    /** Tells the servers how the tunnel is now: by another wait in place of the one under way. Without one, the next will tell. */
    void TellTunnel();

    /**
     * Asks the control server for the tunnel that it has ordered.
     *
     * @param done called once from the loop, unless the session is over before
     * @return false where there is no session or the control server is not asked by HTTPS: who opens the device's door must be known
     */
    bool AskForTunnel(std::function<void(const Answer&)> done);

    /** The result of a command that was carried out in the background. */
    void Finish(const std::string& id, ARDV::Relay::RELAYD_RET result);

    ARDV::Relay::RELAYD_STATE State() const;

    /** The last failure, as long as it is not over. */
    ARDV::Relay::RELAYD_RET Error() const { return error_; }
    bool IsOff() const { return phase_ == Phase::kOff; }

    /** Whether the first registration is still to come, at a time drawn so that devices that start together don't come together. */
    bool IsHoldingOff() const { return isHoldingOff_; }
    bool IsStanding() const { return phase_ == Phase::kStanding; }

    /** Whether there is a session, be it one whose server does not answer at the moment. */
    bool HasSession() const { return phase_ == Phase::kStanding || phase_ == Phase::kDoubtful; }

    /** Whether something is under way or due that leads on. */
    bool IsHealthy(std::string& why) const;

    /** For the report: phase, failures in a row, keep-alive interval, and how long the session stands. No secret. */
    Json::Value Describe() const;

private:
    using Clock = std::chrono::steady_clock;

    static constexpr std::chrono::seconds kLasting{60};  // a session, or a wait, that stood for so long was a success

    enum class Phase {
        kOff,          // not wanted
        kRetrying,     // no session; the timer leads to a registration
        kRegistering,  // no session; the exchange is under way
        kStanding,     // a session; the timer leads to a keep-alive, or the exchange is one
        kDoubtful,     // a session whose server does not answer; as above
        kRefused,      // no session, until somebody acts
    };
    static const char* NameOf(Phase phase);

    void OnTimer();
    void Send(const ARDV::Relay::ServerConf& server, const Json::Value& message, const char* purpose,
              void (ControlSession::*done)(const Answer&));
    void Register() { RegisterAt(MustAskGlobalServer()); }
    void RegisterAt(bool isGlobal);
    bool MustAskGlobalServer() const;
    const ARDV::Relay::ServerConf& Server() const;
    void OnRegistered(const Answer& answer);
    void Stand(const Registration& registration);
    void KeepAlive();
    void OnKeptAlive(const Answer& answer);
    void Doubt(const Answer& answer);
    void Adopt(const Terms& terms);

    void Wait();
    void OnWaited(const Answer& answer);
    void OnWaitFailed(const Answer& answer);
    void CarryOut(const std::vector<ServerCommand>& commands);
    void ForgiveWait();
    void StopWaiting();

    static Action ActionFor(const Answer& answer);
    void Note(const char* what, const Answer& answer);
    void Fail(const char* what, const Answer& answer, Action action);
    void Follow(Action action, const Answer& answer);
    bool MoveTo(const std::string& host);
    void RetryAfter(const BackOffPlan& plan);
    std::chrono::milliseconds Soon() const;
    void ForgetSession();
    void Enter(Phase phase);
    void ForgiveAfterStanding();
    const BackOffPlan& PlanFor(Action action) const;

    Device& device_;
    TransferEngine& engine_;
    RecentErrors& errors_;
    RetryPlans plans_;
    Events events_;

    Phase phase_ = Phase::kOff;
    ARDV::Relay::RELAYD_RET error_ = ARDV::Relay::RELAYD_RET_SUCCESS;
    Credentials credentials_;
    bool isReachable_ = false;
    bool isHoldingOff_ = false;
    bool isAtGlobalServer_ = false;  // the session, or the try at one
    int moves_ = 0;
    std::chrono::seconds keepAlive_{};
    Clock::time_point standingSince_;
    BackOff backOff_;
    std::unique_ptr<Transfer> exchange_;
    std::unique_ptr<Transfer> errand_;  // the question for the tunnel
    Timer next_;

    std::unique_ptr<Transfer> wait_;
    Clock::time_point waitingSince_;
    BackOff waitBackOff_;
    int shortWaits_ = 0;
    bool hasWaitFailed_ = false;
    Timer waitAgain_;
    Timer waitHolds_;

    struct KnownCommand {
        std::string id;
        std::optional<ARDV::Relay::RELAYD_RET> result;  // once it is there
    };
    KnownCommand* Find(const std::string& id);

    std::deque<KnownCommand> commands_;   // of this session, the newest last
    std::vector<CommandResult> results_;  // not told yet
    std::size_t resultsSent_ = 0;         // of these, by the wait under way
};

}  // namespace ardv::daemon
