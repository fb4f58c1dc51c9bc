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
#include "tunnel_leftovers.h"

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
               {[this] { OnSessionChange(); }, [this](const ServerCommand& command) { return CarryOut(command); },
                [this] { return tunnel_.ToldToServer(); }}),
      alias_(loop_, engine_, device_, errors_, options.retry),
      tunnel_(loop_, device_, errors_, options.retry,
              {[this] { OnTunnelChange(); },
               [this](const std::string& id, RELAYD_RET result) { session_.Finish(id, result); },
               [this] { return AskForTunnel(); }}),
      signals_(loop_, [this](Command command) { Obey(command); }),
      network_(loop_, [this] { OnNetworkChange(); }),
      clock_(loop_, [this](const ClockChange& change) { OnClockChange(change); }),
      manager_(loop_, [this](std::string& why) { return IsHealthy(why); }),
      startedAt_(std::chrono::steady_clock::now()) {}

void Application::Run() {
    ClearTunnelLeftovers();
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
        {Command::kChildEnded, &Application::OnChildEnded},
        {Command::kTunnelReady, &Application::OnTunnelReady},
        {Command::kTunnelAlarm, &Application::OnTunnelAlarm},
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
    tunnel_.Stop();
    session_.Stop();
    alias_.Stop();
    Publish();
}

void Application::Reload() {
    ++reloads_;
    manager_.Reloading();
    const auto before = device_.Registered();
    const auto account = device_.Account();
    const auto network = device_.Network();
    if (!session_.IsStanding()) {
        Request::CleanDnsCache();  // what names stand for may be what the user has changed
    }
    if (!device_.Reload()) {
        errors_.Add("reload", GetErrorStr(RELAYD_RET_ERR_CONFIG));
        tunnel_.OnReload();  // the permissions stand in a file of their own: what is forbidden closes in any case
        manager_.Ready();
        return;
    }
    if (device_.Account() != account) {
        tunnel_.Close();  // it was another's order
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
    tunnel_.OnReload();
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
    tunnel_.TryNow();
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
    tunnel_.TryNow();  // by a wrong clock no relay's certificate is valid
    if (change.slept >= kLongSleep) {
        session_.WaitAnew();
    }
}

void Application::OnSessionChange() {
    if (!session_.HasSession()) {
        tunnelAskers_.clear();  // commands of a session that is over
    }
    if (session_.State() == RELAYD_STATE_NONE) {
        tunnel_.Close();  // who is refused is not relayed
    }
    alias_.Refresh();
    Publish();
}

void Application::SwitchOnOrOff(milliseconds delay) {
    if (!device_.IsWanted()) {
        session_.Stop();
        alias_.Stop();
        tunnel_.Close();
        return;
    }
    session_.Start(delay);
    alias_.Start(delay);
}

Status Application::CurrentStatus() const {
    const auto& configuration = device_.Configuration();
    Status status;
    status.state = isStopping_ ? RELAYD_STATE_STOPPED : State();
    status.error = session_.Error();
    status.serverId = configuration.GetServerId();
    status.alias = configuration.GetAliasConf().GetAliasName();
    if (session_.IsStanding()) {
        for (const auto& service : configuration.GetServices()) {
            status.services.push_back(service.GetId());
        }
    }
    status.tunnel = tunnel_.Published();
    return status;
}

RELAYD_STATE Application::State() const {
    return session_.IsStanding() && tunnel_.IsUp() ? RELAYD_STATE_CONNECTED_RELAY : session_.State();
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
    report["tunnel"] = tunnel_.Describe();
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
    return engine_.IsHealthy(why) && session_.IsHealthy(why) && alias_.IsHealthy(why) && tunnel_.IsHealthy(why);
}

}  // namespace ardv::daemon
