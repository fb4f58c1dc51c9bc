// SPDX-License-Identifier: Apache-2.0
// The sessions of the devices, what waits for them, and what came back.
#pragma once

#include <json/json.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "held_wait.h"

namespace ARDV::Sandbox {

/// All sessions, in memory alone: a service that starts anew knows none. Safe for several threads.
class SessionTable {
public:
    /// The times that are to be kept to.
    struct Times {
        std::chrono::seconds life;    ///< a session without a sign of life for so long is over
        std::chrono::seconds resend;  ///< a command without a result for so long is sent again
    };

    /// How often a command is sent as long as no result comes, and the most that may be queued for one device.
    static constexpr unsigned kMaxDeliveries = 3;
    static constexpr size_t kMaxQueued = 1000;

    /// The results that are kept; the oldest go first.
    static constexpr size_t kMaxResults = 1000;

    /// The names of a new session.
    struct Names {
        std::string session;
        std::string channel;
    };

    /// How a held wait is to be answered: by its reason, or by `commands`.
    struct Answer {
        HeldWait::Reason reason = HeldWait::Reason::kNone;
        std::optional<Fault> fault = {};
        std::vector<Json::Value> commands = {};
    };

    explicit SessionTable(const Times& times);

    /// Begins a session for a device, which has shown `registration`; one that it had is over.
    Names Open(const std::string& serverId, const Json::Value& registration);

    /// A sign of life. False: there is no such session.
    bool KeepAlive(const std::string& serverId, std::string_view session);

    /// True when this is the name of the device's session; a sign of life, too, but none that is counted.
    bool Has(const std::string& serverId, std::string_view session);

    /// What the device of a session has told last of its tunnel; null: nothing.
    void NoteTunnel(const std::string& serverId, const Json::Value& tunnel);

    /// The alias that the device of a session has registered with; empty: none.
    std::string Alias(const std::string& serverId) const;

    /// Begins a wait and takes the `results` that came with it; a wait before it is superseded. Null: there is no such
    /// session, and nothing was taken.
    std::shared_ptr<HeldWait> Begin(const std::string& serverId, const std::string& channel,
                                    const Json::Value& results);

    /// How `wait` is to be answered, or nothing as long as it is to be held.
    std::optional<Answer> Look(HeldWait& wait);

    /// How long a wait may be held before it is to be looked at again; nothing: until it is woken.
    std::optional<std::chrono::milliseconds> UntilNextLook(const HeldWait& wait) const;

    /// `wait` is over, whatever for.
    void End(const std::shared_ptr<HeldWait>& wait);

    /// Queues a command for a device, and gives it an "id" if it has none. Success: the identifier. Failure: nothing,
    /// and `error` says why.
    std::optional<std::string> Queue(const std::string& serverId, Json::Value command, std::string& error);

    /// Has every held wait meet `fault`. Gives how many there are.
    size_t MeetFault(const Fault& fault);

    /// Ends all sessions.
    void Clear();
    void ClearResults();
    void ClearCommands();

    /// What the test interface shows (docs/control-protocol.md, "The test interface").
    Json::Value Sessions() const;
    Json::Value Commands() const;
    Json::Value Results() const;

private:
    using Clock = std::chrono::steady_clock;

    struct Session {
        Names names;
        Json::Value registration;
        Json::Value tunnel;
        std::string startedAt;
        std::string seenAt;
        Clock::time_point lastSign;
        uint64_t keepAlives = 0;
        uint64_t waits = 0;
        std::shared_ptr<HeldWait> wait;
    };

    struct Queued {
        std::string id;
        Json::Value command;
        unsigned deliveries = 0;
        Clock::time_point due = {};  ///< when it is to be sent
    };

    Session* Find(const std::string& serverId);
    bool IsOver(const Session& session) const;
    static void MarkSeen(Session& session);
    static void Release(Session& session, HeldWait::Reason reason);
    void TakeResults(const std::string& serverId, const Json::Value& results);
    std::vector<Json::Value> TakeCommands(const std::string& serverId);

    const Times times_;
    mutable std::mutex mutex_;
    std::map<std::string, Session, std::less<>> sessions_;           ///< by serverID
    std::map<std::string, std::deque<Queued>, std::less<>> queues_;  ///< by serverID
    std::deque<Json::Value> results_;
    uint64_t lastCommand_ = 0;
};

}  // namespace ARDV::Sandbox
