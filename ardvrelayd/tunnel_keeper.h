// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <chrono>
#include <ctime>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <json/value.h>

#include <relay/common/vocabulary.h>
#include <relay/tunnel/tunnel.h>

#include "back_off.h"
#include "device.h"
#include "event_loop.h"
#include "recent_errors.h"
#include "tunnel_info.h"
#include "tunnel_order.h"
#include "tunnel_services.h"

namespace ardv::daemon {

/**
 * Keeps the tunnel that the service has ordered: tries its candidates one after the other, lets in what is permitted once OpenVPN is
 * up, follows the permissions, and begins anew, with back-off, when all have failed or the connection is lost. docs/control-protocol.md tells
 * what the service hears of it.
 *
 * Its OpenVPN is ended, and waited for, before the packet filter's rules go. While that lasts, some 30 ms as a rule, the loop goes on.
 */
class TunnelKeeper {
public:
    /** What the keeper tells its owner. */
    struct Events {
        /** What `Published` or `ToldToServer` give may have changed. */
        std::function<void()> changed;
        /** What became of an order or a closing. */
        std::function<void(const std::string& id, ARDV::Relay::RELAYD_RET result)> finished;
        /** Asks the service for the order anew, as its user may have expired; `Renew` has the answer. False: it can't be asked. */
        std::function<bool()> refresh;
    };

    /** Begins nothing yet. Everything that it is given must outlive it. */
    TunnelKeeper(EventLoop& loop, Device& device, RecentErrors& errors, const RetryPlans& plans, Events events);
    ~TunnelKeeper();
    TunnelKeeper(const TunnelKeeper&) = delete;
    TunnelKeeper& operator=(const TunnelKeeper&) = delete;

    /**
     * Opens a tunnel in place of the one there is. The same order once more counts as a question how it is.
     *
     * @param id of the command, for `Events::finished`
     * @return the result, where it is known already
     */
    std::optional<ARDV::Relay::RELAYD_RET> Open(const TunnelOrder& order, const std::string& id);

    /** Closes the tunnel, and forgets the order. As `Open`. */
    std::optional<ARDV::Relay::RELAYD_RET> Close(const std::string& id);

    /** The same, with nobody asking. */
    void Close();

    /** The answer to `Events::refresh`: the order as it is now, or nothing where that can't be learnt. */
    void Renew(const std::optional<TunnelOrder>& order);

    /** Closes the tunnel and returns when all of it is gone: within two seconds, and what the filter's programs take, even where OpenVPN has to be killed. No event is told any more. */
    void Stop();

    void OnChildEnded();  ///< SIGCHLD: any child
    void OnReady();       ///< SIGUSR2: the tunnel may be up
    void OnAlarm();       ///< SIGALRM: the time to come up may be over
    void OnReload();      ///< permissions or ports may be others

    /** Does at once what is waiting for another try. */
    void TryNow();

    bool IsUp() const { return phase_ == Phase::kUp; }

    /** For the status file: see `StatusFile`. Null where there is no tunnel. No secret. */
    Json::Value Published() const;

    /** What the control servers are told: "status" and "relay_ip". Null where no tunnel is ordered. */
    Json::Value ToldToServer() const;

    /** For the report. No secret. */
    Json::Value Describe() const;

    /** Whether something is under way or due that leads on. */
    bool IsHealthy(std::string& why) const;

private:
    using Clock = std::chrono::steady_clock;
    using Step = void (TunnelKeeper::*)();

    enum class Phase {
        kIdle,     // no tunnel
        kTrying,   // OpenVPN runs and is not up yet; its end, its signal or the alarm leads on
        kUp,       // its end leads on
        kEnding,   // OpenVPN was told to end, then comes `afterEnd_`
        kResting,  // the timer leads to another round of candidates
        kInvalid,  // the order can't be carried out; the service's next command leads on
    };
    static const char* NameOf(Phase phase);

    void Begin();
    void StartRound();
    void Try();
    void FailTry(const char* why);
    void FailUnguarded();
    void FailRound();
    void Lose();
    void Rest(std::chrono::milliseconds delay);
    void OnRetry();
    void Leave(Step then);
    void KillChild() const;
    void EndNow();
    void Ended();
    void Closed();
    void Admit();
    void Note(const char* why);
    void Answer(std::vector<std::string>& askers, ARDV::Relay::RELAYD_RET result) const;
    void Tell();
    std::string StatusText() const;
    Json::Value Candidate() const;

    Device& device_;
    RecentErrors& errors_;
    RetryPlans plans_;
    Events events_;

    Phase phase_ = Phase::kIdle;
    std::optional<TunnelOrder> order_;
    std::unique_ptr<ARDV::Relay::Tunnel> tunnel_;  // there in every phase but kIdle
    pid_t child_ = -1;                             // OpenVPN, until it was reaped
    Step afterEnd_ = nullptr;
    TunnelInfo info_;                // of the tunnel that is up
    std::vector<OpenService> open_;  // whose rules are in force
    std::vector<std::string> openers_;
    std::vector<std::string> closers_;
    Clock::time_point triedAt_;
    Clock::time_point upSince_;
    BackOff backOff_;
    bool hasAsked_ = false;  // for the order, before the next round

    std::string error_;
    std::string toldStatus_;
    std::time_t since_ = 0;
    std::time_t retryAt_ = 0;
    Timer endLimit_;
    Timer retry_;
};

}  // namespace ardv::daemon
