// SPDX-License-Identifier: Apache-2.0
#include "alias_keeper.h"

#include <utility>

#include "json_member.h"
#include "log.h"

DAEMON_LOG_SOURCE("alias_keeper.cpp");

namespace ardv::daemon {

using namespace ARDV::Relay;
using std::chrono::milliseconds;
using std::chrono::seconds;

namespace {

constexpr std::size_t kMaxExtra = 256;  // of what the server adds, in bytes
constexpr seconds kUsualPolling{604800};

struct TaskRow {
    const char* name;
    ALIAS_REQUEST_CMD command;
};

constexpr TaskRow kTasks[] = {
    // in the order of AliasKeeper::Task
    {"map", ALIAS_REQUEST_CMD_MAP},
    {"keep alive", ALIAS_REQUEST_CMD_KEEP_ALIVE},
    {"delete", ALIAS_REQUEST_CMD_DELETE},
};

// What a server adds goes into a file that tools show.
std::string Shown(const std::string& extra) {
    std::string shown = extra.substr(0, kMaxExtra);
    for (char& c : shown) {
        c = c >= ' ' && c <= '~' ? c : '?';
    }
    return shown;
}

seconds PollingTime(const AliasConf& alias) {
    const seconds time(alias.GetPollingTime());
    return time > seconds(0) ? time : kUsualPolling;  // an interval near the type's end wraps
}

}  // namespace

AliasKeeper::AliasKeeper(EventLoop& loop, TransferEngine& engine, Device& device, RecentErrors& errors,
                         const RetryPlans& plans)
    : device_(device),
      engine_(engine),
      errors_(errors),
      plans_(plans),
      next_(loop, "alias", [this] { Act(); }),
      deleteNext_(loop, "unwanted alias", [this] { DeleteNext(); }) {}

const char* AliasKeeper::NameOf(Task task) {
    return kTasks[static_cast<std::size_t>(task)].name;
}

AliasKeeper::Wanted AliasKeeper::ReadWanted() const {
    const auto& alias = device_.Configuration().GetAliasConf();
    return {alias.GetAliasName(), alias.GetUrl(), device_.Configuration().GetServerId()};
}

void AliasKeeper::Start(milliseconds delay) {
    if (isOn_) {
        return;
    }
    isOn_ = true;
    wanted_.url.clear();  // which makes it another
    isMapped_ = false;
    Refresh();
    if (next_.IsRunning()) {
        next_.Start(delay);
    }
}

void AliasKeeper::Stop() {
    isOn_ = false;
    BreakOff();
    next_.Stop();
    deleteNext_.Stop();
    Tell(RELAYD_RET_ERR_CONFIG);
}

void AliasKeeper::Refresh() {
    auto wanted = ReadWanted();
    if (!isOn_ || wanted == wanted_) {
        return;
    }
    BreakOff();
    if (wanted.alias != wanted_.alias) {
        if (isHeld_) {
            unwanted_.insert(wanted_.alias);
        }
        isHeld_ = unwanted_.erase(wanted.alias) > 0;
    }
    wanted_ = std::move(wanted);
    isMapped_ = false;
    isRefused_ = false;
    backOff_.Reset();
    if (wanted_.alias.empty()) {
        Record("", ALIAS_RET_NOT_SET, "");
        Tell(RELAYD_RET_ERR_CONFIG);
    }
    next_.Start(milliseconds(0));
}

void AliasKeeper::OnReload() {
    Refresh();
    if (CanAsk() && isRefused_) {
        OnNetworkChange();
    }
}

void AliasKeeper::UpdateNow(Done done) {
    if (!isOn_ || wanted_.alias.empty()) {
        if (done) {
            done(RELAYD_RET_ERR_CONFIG);
        }
        return;
    }
    if (done) {
        askers_.push_back(std::move(done));
    }
    OnNetworkChange();
}

void AliasKeeper::OnNetworkChange() {
    if (!CanAsk()) {
        return;
    }
    isMapped_ = false;
    isRefused_ = false;
    backOff_.Reset();
    BreakOff();
    next_.Start(milliseconds(0));
}

void AliasKeeper::OnClockSet() {
    if (!CanAsk() || exchange_ || isRefused_ || (isMapped_ && WallClock::now() < dueAt_)) {
        return;
    }
    backOff_.Reset();
    next_.Start(milliseconds(0));
}

void AliasKeeper::Act() {
    if (!CanAsk()) {
        DeleteNext();
        return;
    }
    if (!Send(isMapped_ ? Task::kKeepAlive : Task::kMap, wanted_.alias)) {
        isRefused_ = true;
        Tell(RELAYD_RET_ERR_CONFIG);
    }
}

// What has been sent may be carried out, although nobody waits for the answer.
void AliasKeeper::BreakOff() {
    isHeld_ = isHeld_ || (exchange_ && task_ == Task::kMap);
    exchange_.reset();
}

bool AliasKeeper::Send(Task task, const std::string& alias) {
    auto data = device_.AliasData();
    data["alias"] = alias;
    AliasRequest form;
    std::string url;
    std::string post;
    if (!form.SetRequest(kTasks[static_cast<std::size_t>(task)].command, data) || !form.GetRequest(url, post)) {
        errors_.Add(std::string("alias, ") + NameOf(task), "the device's identity is not complete");
        return false;
    }
    task_ = task;
    request_ = std::make_shared<Request>(url.c_str(), post.c_str(), true);
    exchange_ = engine_.Start(
        request_, [this, task, alias](Request&) { OnAnswered(task, alias); }, std::string("alias, ") + NameOf(task));
    return true;
}

void AliasKeeper::OnAnswered(Task task, const std::string& alias) {
    auto ret = ALIAS_RET_UNKNOWN;
    std::string extra;
    AliasRequest::GetResponseForDaemon(request_, ret, extra);
    exchange_.reset();
    request_.reset();
    if (ret != ALIAS_RET_SUCCESS) {
        std::string word;
        AliasRequest::ResponseToString(ret, word);
        errors_.Add(std::string("alias, ") + NameOf(task), word);
        DAEMON_LOG(LOG_NOTICE, "alias %s, %s: %s", alias.c_str(), NameOf(task), word.c_str());
    }
    if (task == Task::kDelete) {
        OnDeleted(alias, ret);
        return;
    }
    Record(alias, ret, Shown(extra));
    Follow(ret);
    Tell(ResultOf(ret));
}

void AliasKeeper::Follow(ALIAS_RET ret) {
    const auto action = ActionFor(ret);
    if (action == Action::kAgain || action == Action::kWaitForUser) {
        isMapped_ = isHeld_ = false;
    }
    if (action == Action::kGoOn) {
        Succeed();
        return;
    }
    if (action == Action::kWaitForUser) {
        isRefused_ = true;
        return;
    }
    if (action == Action::kResolveAnew) {
        Request::CleanDnsCache();
    }
    const bool isAtOnce = action == Action::kAgain && backOff_.MayGoAtOnce();
    next_.Start(isAtOnce ? milliseconds(0) : backOff_.Next(plans_.usual));
}

void AliasKeeper::Succeed() {
    isMapped_ = isHeld_ = true;
    isRefused_ = false;
    backOff_.Reset();
    const auto time = PollingTime(device_.Configuration().GetAliasConf());
    dueAt_ = WallClock::now() + time;
    next_.Start(time);
    DeleteNext();
}

void AliasKeeper::DeleteNext() {
    if (isOn_ && !exchange_ && !unwanted_.empty() && !wanted_.id.empty() && !deleteNext_.IsRunning()) {
        const auto alias = *unwanted_.begin();
        if (!Send(Task::kDelete, alias)) {
            unwanted_.erase(alias);
        }
    }
}

void AliasKeeper::OnDeleted(const std::string& alias, ALIAS_RET ret) {
    const auto action = ActionFor(ret);
    if (action == Action::kBackOff || action == Action::kResolveAnew) {
        deleteNext_.Start(deleteBackOff_.Next(plans_.usual));
        return;
    }
    unwanted_.erase(alias);  // gone, or not the device's
    deleteBackOff_.Reset();
    DeleteNext();
}

void AliasKeeper::Record(const std::string& alias, ALIAS_RET ret, const std::string& extra) {
    std::string word;
    std::string oldWord;
    std::string oldExtra;
    AliasRequest::ResponseToString(ret, word);
    if (status_.GetStatus(alias, oldWord, oldExtra) && oldWord == word && oldExtra == extra) {
        return;  // nothing to write
    }
    if (!status_.SetStatus(alias, word, extra, true)) {
        DAEMON_LOG(LOG_ERR, "the alias status is not recorded");
    }
}

bool AliasKeeper::IsHealthy(std::string& why) const {
    if (!CanAsk() || isRefused_ || exchange_ || next_.IsToBeExpected()) {
        return true;
    }
    why = "the alias is to be kept and nothing leads on";
    return false;
}

Json::Value AliasKeeper::Describe() const {
    Json::Value value;
    value["on"] = isOn_;
    value["alias"] = wanted_.alias;
    value["mapped"] = isMapped_;
    value["refused"] = isRefused_;
    value["has_identifier"] = !wanted_.id.empty();
    value["failures"] = backOff_.Failures();
    value["to_give_up"] = Count(unwanted_.size());
    std::string word;
    std::string extra;
    if (status_.GetStatus(wanted_.alias, word, extra)) {
        value["status"] = word;
    }
    return value;
}

void AliasKeeper::Tell(RELAYD_RET result) {
    for (const auto& done : std::exchange(askers_, {})) {
        done(result);
    }
}

}  // namespace ardv::daemon
