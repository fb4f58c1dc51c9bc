// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <json/value.h>

#include <relay/alias/alias_status.h>
#include <relay/common/vocabulary.h>
#include <relay/request/request.h>
#include <relay/request/request_alias.h>

#include "back_off.h"
#include "device.h"
#include "event_loop.h"
#include "policy.h"
#include "recent_errors.h"
#include "transfer_engine.h"

namespace ardv::daemon {

/**
 * Keeps the device's alias at the alias server: maps it, renews it before it runs out, maps it anew when the device or its
 * network has changed, gives up one that the device no longer wants, and records each outcome in the alias status file.
 *
 * The first exchange waits until the device has a server identifier.
 */
class AliasKeeper {
public:
    /** Told once what became of an update: 0, or why not. */
    using Done = std::function<void(ARDV::Relay::RELAYD_RET)>;

    /** Begins nothing yet. Everything that it is given must outlive it. */
    AliasKeeper(EventLoop& loop, TransferEngine& engine, Device& device, RecentErrors& errors, const RetryPlans& plans);

    /** From now on the alias is kept. The first exchange comes after `delay`. Does nothing if it is kept already. */
    void Start(std::chrono::milliseconds delay);

    /** Sends nothing any more. The alias stays with the server until it runs out. */
    void Stop();

    /** Looks whether alias, server or identifier are others, and if so acts on it. */
    void Refresh();

    /** The same; the user has had a look at the settings, so that a refusal counts no more. */
    void OnReload();

    /** Maps the alias now, because somebody asks for it, who is told unless `done` is empty. */
    void UpdateNow(Done done);

    /** Maps the alias now if it is kept: the network has changed. */
    void OnNetworkChange();

    /** The clock was set: does now what it says is due, and what failed, as a certificate may be valid now. */
    void OnClockSet();

    /** Whether something is under way or due, where there is an alias to keep. */
    bool IsHealthy(std::string& why) const;

    /** For the report: what is done, when it is due, and how it went. No secret. */
    Json::Value Describe() const;

private:
    using WallClock = std::chrono::system_clock;

    enum class Task { kMap, kKeepAlive, kDelete };
    struct Wanted {
        std::string alias;
        std::string url;
        std::string id;
        bool operator==(const Wanted& other) const = default;
    };

    static const char* NameOf(Task task);
    Wanted ReadWanted() const;
    bool CanAsk() const { return isOn_ && !wanted_.alias.empty() && !wanted_.id.empty(); }
    void Act();
    void BreakOff();
    bool Send(Task task, const std::string& alias);
    void OnAnswered(Task task, const std::string& alias);
    void Follow(ARDV::Relay::ALIAS_RET ret);
    void OnDeleted(const std::string& alias, ARDV::Relay::ALIAS_RET ret);
    void Succeed();
    void DeleteNext();
    void Record(const std::string& alias, ARDV::Relay::ALIAS_RET ret, const std::string& extra);
    void Tell(ARDV::Relay::RELAYD_RET result);

    Device& device_;
    TransferEngine& engine_;
    RecentErrors& errors_;
    RetryPlans plans_;
    ARDV::Relay::AliasStatus status_;

    bool isOn_ = false;
    Wanted wanted_;
    bool isMapped_ = false;
    bool isHeld_ = false;  // the server may have it for the device, whether it could say so or not
    bool isRefused_ = false;
    std::set<std::string> unwanted_;  // aliases to give up
    WallClock::time_point dueAt_;
    BackOff backOff_;
    BackOff deleteBackOff_;
    std::vector<Done> askers_;
    std::shared_ptr<ARDV::Relay::Request> request_;
    std::unique_ptr<Transfer> exchange_;
    Task task_ = Task::kMap;  // of the exchange
    Timer next_;
    Timer deleteNext_;
};

}  // namespace ardv::daemon
