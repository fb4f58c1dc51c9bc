// SPDX-License-Identifier: Apache-2.0
#include "session_table.h"

#include <algorithm>
#include <utility>

#include "http/random_name.h"
#include "http/text.h"
#include "request_check.h"

namespace ARDV::Sandbox {
namespace {

constexpr size_t kNameBytes = 16;

}  // namespace

SessionTable::SessionTable(const Times& times) : times_(times) {}

SessionTable::Names SessionTable::Open(const std::string& serverId, const Json::Value& registration) {
    const std::lock_guard lock(mutex_);
    Session& session = sessions_[serverId];
    Release(session, HeldWait::Reason::kOver);
    session = Session{};
    session.names = {RandomName(kNameBytes), RandomName(kNameBytes)};
    session.registration = registration;
    MarkSeen(session);
    session.startedAt = session.seenAt;
    for (Queued& queued : queues_[serverId]) {
        queued.due = {};
    }
    return session.names;
}

bool SessionTable::KeepAlive(const std::string& serverId, std::string_view session) {
    const std::lock_guard lock(mutex_);
    Session* found = Find(serverId);
    if (!found || found->names.session != session) {
        return false;
    }
    MarkSeen(*found);
    ++found->keepAlives;
    return true;
}

bool SessionTable::Has(const std::string& serverId, std::string_view session) {
    const std::lock_guard lock(mutex_);
    Session* found = Find(serverId);
    if (!found || found->names.session != session) {
        return false;
    }
    MarkSeen(*found);
    return true;
}

void SessionTable::NoteTunnel(const std::string& serverId, const Json::Value& tunnel) {
    const std::lock_guard lock(mutex_);
    if (Session* session = Find(serverId)) {
        session->tunnel = tunnel;
    }
}

std::string SessionTable::Alias(const std::string& serverId) const {
    const std::lock_guard lock(mutex_);
    const auto found = sessions_.find(serverId);
    return found == sessions_.end() ? "" : found->second.registration["alias"].asString();
}

std::shared_ptr<HeldWait> SessionTable::Begin(const std::string& serverId, const std::string& channel,
                                              const Json::Value& results) {
    const std::lock_guard lock(mutex_);
    Session* session = Find(serverId);
    if (!session || session->names.channel != channel) {
        return nullptr;
    }
    Release(*session, HeldWait::Reason::kSuperseded);
    MarkSeen(*session);
    ++session->waits;
    TakeResults(serverId, results);
    session->wait = std::make_shared<HeldWait>(serverId, channel);
    return session->wait;
}

std::optional<SessionTable::Answer> SessionTable::Look(HeldWait& wait) {
    const std::lock_guard lock(mutex_);
    wait.Settle();
    if (wait.reason != HeldWait::Reason::kNone) {
        return Answer{wait.reason, wait.fault};
    }
    Answer answer{.commands = TakeCommands(wait.serverId)};
    return answer.commands.empty() ? std::nullopt : std::optional(std::move(answer));
}

std::optional<std::chrono::milliseconds> SessionTable::UntilNextLook(const HeldWait& wait) const {
    const std::lock_guard lock(mutex_);
    const auto queue = queues_.find(wait.serverId);
    if (queue == queues_.end() || queue->second.empty()) {
        return std::nullopt;
    }
    const auto next = std::min_element(queue->second.begin(), queue->second.end(),
                                       [](const Queued& left, const Queued& right) { return left.due < right.due; });
    return std::chrono::ceil<std::chrono::milliseconds>(next->due - Clock::now());
}

void SessionTable::End(const std::shared_ptr<HeldWait>& wait) {
    const std::lock_guard lock(mutex_);
    const auto found = sessions_.find(wait->serverId);
    if (found != sessions_.end() && found->second.wait == wait) {
        found->second.wait.reset();
        MarkSeen(found->second);
    }
}

std::optional<std::string> SessionTable::Queue(const std::string& serverId, Json::Value command, std::string& error) {
    const std::lock_guard lock(mutex_);
    std::deque<Queued>& queue = queues_[serverId];
    if (!command.isObject()) {
        error = "command must be an object";
        return std::nullopt;
    }
    if (!command.isMember("id")) {
        command["id"] = "command-" + std::to_string(++lastCommand_);
    }
    if (!IsName(command["id"], kMaxCommandId) || queue.size() >= kMaxQueued) {
        error = queue.size() >= kMaxQueued ? "too many commands are queued" : "command.id is no identifier";
        return std::nullopt;
    }
    std::string id = command["id"].asString();
    queue.push_back({id, std::move(command)});
    if (const Session* session = Find(serverId); session && session->wait) {
        session->wait->Wake();
    }
    return id;
}

size_t SessionTable::MeetFault(const Fault& fault) {
    const std::lock_guard lock(mutex_);
    size_t count = 0;
    for (auto& [serverId, session] : sessions_) {
        if (session.wait) {
            session.wait->fault = fault;
            Release(session, HeldWait::Reason::kFault);
            ++count;
        }
    }
    return count;
}

void SessionTable::Clear() {
    const std::lock_guard lock(mutex_);
    for (auto& [serverId, session] : sessions_) {
        Release(session, HeldWait::Reason::kOver);
    }
    sessions_.clear();
}

void SessionTable::ClearResults() {
    const std::lock_guard lock(mutex_);
    results_.clear();
}

void SessionTable::ClearCommands() {
    const std::lock_guard lock(mutex_);
    queues_.clear();
}

Json::Value SessionTable::Sessions() const {
    const std::lock_guard lock(mutex_);
    Json::Value json(Json::objectValue);
    for (const auto& [serverId, session] : sessions_) {
        if (IsOver(session)) {
            continue;
        }
        Json::Value& entry = json[serverId];
        entry["session"] = session.names.session;
        entry["channel"] = session.names.channel;
        entry["started_at"] = session.startedAt;
        entry["seen_at"] = session.seenAt;
        entry["keep_alives"] = session.keepAlives;
        entry["waits"] = session.waits;
        entry["waiting"] = session.wait != nullptr;
        entry["registration"] = session.registration;
        entry["tunnel"] = session.tunnel;
    }
    return json;
}

Json::Value SessionTable::Commands() const {
    const std::lock_guard lock(mutex_);
    Json::Value json(Json::objectValue);
    for (const auto& [serverId, queue] : queues_) {
        for (const Queued& queued : queue) {
            Json::Value entry(Json::objectValue);
            entry["command"] = queued.command;
            entry["deliveries"] = queued.deliveries;
            json[serverId].append(entry);
        }
    }
    return json;
}

Json::Value SessionTable::Results() const {
    const std::lock_guard lock(mutex_);
    Json::Value json(Json::arrayValue);
    for (const Json::Value& result : results_) {
        json.append(result);
    }
    return json;
}

SessionTable::Session* SessionTable::Find(const std::string& serverId) {
    const auto found = sessions_.find(serverId);
    if (found == sessions_.end() || !IsOver(found->second)) {
        return found == sessions_.end() ? nullptr : &found->second;
    }
    sessions_.erase(found);
    return nullptr;
}

// A device that waits is there.
bool SessionTable::IsOver(const Session& session) const {
    return !session.wait && Clock::now() - session.lastSign > times_.life;
}

void SessionTable::MarkSeen(Session& session) {
    session.seenAt = Timestamp();
    session.lastSign = Clock::now();
}

void SessionTable::Release(Session& session, HeldWait::Reason reason) {
    if (session.wait) {
        session.wait->reason = reason;
        session.wait->Wake();
        session.wait.reset();
    }
}

void SessionTable::TakeResults(const std::string& serverId, const Json::Value& results) {
    std::deque<Queued>& queue = queues_[serverId];
    for (const Json::Value& result : results) {
        const std::string id = result["id"].asString();
        std::erase_if(queue, [&](const Queued& queued) { return queued.deliveries > 0 && queued.id == id; });
        Json::Value entry(Json::objectValue);
        entry["time"] = Timestamp();
        entry["serverID"] = serverId;
        entry["id"] = id;
        entry["result"] = result["result"];
        results_.push_back(std::move(entry));
        if (results_.size() > kMaxResults) {
            results_.pop_front();
        }
    }
}

// The answer that had a command may have been lost, so it is sent again; but not for ever: a device that never tells
// results would otherwise be told without end.
std::vector<Json::Value> SessionTable::TakeCommands(const std::string& serverId) {
    std::deque<Queued>& queue = queues_[serverId];
    const auto now = Clock::now();
    std::vector<Json::Value> commands;
    for (Queued& queued : queue) {
        if (commands.size() < kMaxCommands && queued.due <= now) {
            ++queued.deliveries;
            queued.due = now + times_.resend;
            commands.push_back(queued.command);
        }
    }
    std::erase_if(queue, [](const Queued& queued) { return queued.deliveries >= kMaxDeliveries; });
    return commands;
}

}  // namespace ARDV::Sandbox
