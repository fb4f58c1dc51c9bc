// SPDX-License-Identifier: Apache-2.0
#include "application.h"

#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <iterator>
#include <utility>

#include <relay/request/request.h>

#include "json_member.h"
#include "log.h"
#include "report.h"

DAEMON_LOG_SOURCE("application.cpp");

namespace ardv::daemon {

using namespace ARDV::Relay;
using std::chrono::milliseconds;
using std::chrono::seconds;

namespace {

constexpr seconds kLongSleep{10};  // a connection may be gone since
constexpr seconds kBetweenTries{30};

}  // namespace

Application::Application(const Options& options, const RelaydConf& configuration)
    : options_(options),
      engine_(loop_),
      device_(configuration, options.configFile),
      session_(loop_, engine_, device_, errors_, options.retry,
               {[this] { OnSessionChange(); }, [this](const ServerCommand& command) { return CarryOut(command); }}),
      alias_(loop_, engine_, device_, errors_, options.retry),
      signals_(loop_, [this](Command command) { Obey(command); }),
      network_(loop_, [this] { OnNetworkChange(); }),
      clock_(loop_, [this](const ClockChange& change) { OnClockChange(change); }),
      manager_(loop_, [this](std::string& why) { return IsHealthy(why); }),
      startedAt_(std::chrono::steady_clock::now()) {}

void Application::Run() {
    SwitchOnOrOff(RandomTime(options_.startSpread));
    Publish();
    manager_.Ready();
    loop_.Run();
}

void Application::Obey(Command command) {
    struct Row {
        Command command;
        void (Application::*act)();
    };
    static constexpr Row kActs[] = {
        {Command::kStop, &Application::Stop},
        {Command::kReload, &Application::Reload},
        {Command::kReport, &Application::Report},
        {Command::kUpdateAlias, &Application::UpdateAlias},
    };
    const auto* row =
        std::find_if(std::begin(kActs), std::end(kActs), [command](const Row& r) { return r.command == command; });
    if (row != std::end(kActs) && !isStopping_) {
        (this->*row->act)();
    }
}

void Application::Stop() {
    isStopping_ = true;
    loop_.Stop();  // first of all: it ends whatever becomes of the rest
    manager_.Stopping();
    session_.Stop();
    alias_.Stop();
    Publish();
}

void Application::Reload() {
    ++reloads_;
    manager_.Reloading();
    const auto before = device_.Registered();
    const auto network = device_.Network();
    if (!session_.IsStanding()) {
        Request::CleanDnsCache();  // what names stand for may be what the user has changed
    }
    if (!device_.Reload()) {
        errors_.Add("reload", GetErrorStr(RELAYD_RET_ERR_CONFIG));
        manager_.Ready();
        return;
    }
    const bool wasOff = session_.IsOff();
    SwitchOnOrOff(milliseconds(0));
    const bool isRefused = session_.State() == RELAYD_STATE_NONE;
    const bool hasChanged = device_.Registered() != before || device_.Network() != network;
    if (!wasOff && (isRefused || hasChanged)) {
        session_.RegisterNow();
    } else {
        session_.TryNow();
    }
    alias_.OnReload();
    Publish();
    manager_.Ready();
}

void Application::Report() {
    WriteReport(Describe());
}

void Application::UpdateAlias() {
    alias_.UpdateNow({});
}

void Application::OnNetworkChange() {
    Request::CleanDnsCache();  // names may stand for something else in another network
    const bool isOther = device_.RefreshNetwork();
    if (session_.IsHoldingOff()) {
        return;  // a device that starts sees its network come up, as all of its town do after a power cut
    }
    if (!isOther) {
        TryNowButSeldom();
        return;
    }
    DAEMON_LOG(LOG_NOTICE, "the network has changed");
    session_.RegisterNow();
    alias_.OnNetworkChange();
}

// Of a link that goes up and down all the time the servers are not to suffer.
void Application::TryNowButSeldom() {
    const auto now = std::chrono::steady_clock::now();
    if (now - triedAt_ >= kBetweenTries) {
        triedAt_ = now;
        session_.TryNow();
    }
}

void Application::OnClockChange(const ClockChange& change) {
    DAEMON_LOG(LOG_NOTICE, "the clock was set");
    if (session_.IsHoldingOff()) {
        return;
    }
    session_.TryNow();
    alias_.OnClockSet();
    if (change.slept >= kLongSleep) {
        session_.WaitAnew();
    }
}

void Application::OnSessionChange() {
    alias_.Refresh();
    Publish();
}

void Application::SwitchOnOrOff(milliseconds delay) {
    if (!device_.IsWanted()) {
        session_.Stop();
        alias_.Stop();
        return;
    }
    session_.Start(delay);
    alias_.Start(delay);
}

std::optional<RELAYD_RET> Application::CarryOut(const ServerCommand& command) {
    struct Row {
        const char* name;
        std::optional<RELAYD_RET> (*act)(Application& self, const ServerCommand& command);
    };
    static constexpr Row kCommands[] = {
        {"update_alias", [](Application& self, const ServerCommand& c) { return self.UpdateAliasFor(c.id); }},
        {"open_tunnel", [](Application& self, const ServerCommand& c) { return self.RefuseTunnel(c); }},
        {"close_tunnel", [](Application&, const ServerCommand&) { return std::optional(RELAYD_RET_SUCCESS); }},
    };
    const auto* row = std::find_if(std::begin(kCommands), std::end(kCommands),
                                   [&command](const Row& r) { return command.name == r.name; });
    return row == std::end(kCommands) ? std::optional(RELAYD_RET_ERR_NOT_SUPPORT) : row->act(*this, command);
}

// What came over plain HTTP anybody could have written.
std::optional<RELAYD_RET> Application::RefuseTunnel(const ServerCommand& command) const {
    const bool isSafe = device_.Configuration().GetWaitCmdServer().GetUrl(nullptr).rfind("https://", 0) == 0;
    const bool isWhole = ObjectMember(command.members, "relay") && ArrayMember(command.members, "candidates");
    if (!isSafe) {
        return RELAYD_RET_ERR_VIOLATION;
    }
    return isWhole ? RELAYD_RET_ERR_NOT_SUPPORT : RELAYD_RET_ERR_UNKNOWN;
}

std::optional<RELAYD_RET> Application::UpdateAliasFor(const std::string& id) {
    alias_.UpdateNow([this, id](RELAYD_RET result) { session_.Finish(id, result); });
    return std::nullopt;
}

Status Application::CurrentStatus() const {
    const auto& configuration = device_.Configuration();
    Status status;
    status.state = isStopping_ ? RELAYD_STATE_STOPPED : session_.State();
    status.error = session_.Error();
    status.serverId = configuration.GetServerId();
    status.alias = configuration.GetAliasConf().GetAliasName();
    if (session_.IsStanding()) {
        for (const auto& service : configuration.GetServices()) {
            status.services.push_back(service.GetId());
        }
    }
    return status;
}

void Application::Publish() {
    const auto status = CurrentStatus();
    statusFile_.Publish(status);
    manager_.Status(GetStateStr(status.state) +
                    (status.error == RELAYD_RET_SUCCESS ? "" : ", " + GetErrorStr(status.error)));
}

Json::Value Application::Describe() const {
    const auto uptime = std::chrono::steady_clock::now() - startedAt_;
    Json::Value report;
    report["pid"] = getpid();
    report["time"] = Number(std::time(nullptr));
    report["uptime_seconds"] = Number(std::chrono::duration_cast<seconds>(uptime).count());
    report["configuration"] = DescribeConfiguration(device_.Configuration());
    report["session"] = session_.Describe();
    report["alias"] = alias_.Describe();
    report["transfers"] = DescribeTransfers(engine_);
    report["timers"] = DescribeTimers(loop_);
    report["errors"] = errors_.Describe();
    report["versions"] = DescribeVersions();
    report["wake_ups"] = Count(loop_.Turns());
    report["status_writes"] = statusFile_.Writes();
    report["reloads"] = reloads_;
    std::string why;
    report["healthy"] = IsHealthy(why);
    report["unhealthy_because"] = why;
    return report;
}

bool Application::IsHealthy(std::string& why) const {
    return engine_.IsHealthy(why) && session_.IsHealthy(why) && alias_.IsHealthy(why);
}

}  // namespace ardv::daemon
