// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include <json/value.h>

#include "alias_keeper.h"
#include "clock_watch.h"
#include "control_session.h"
#include "device.h"
#include "event_loop.h"
#include "network_watch.h"
#include "options.h"
#include "recent_errors.h"
#include "service_manager.h"
#include "signals.h"
#include "status_file.h"
#include "transfer_engine.h"
#include "tunnel_keeper.h"

namespace ardv::daemon {

/** The daemon at work: owns its parts, and carries to each what the others, the signals and the system have news of. */
class Application {
public:
    /** @param configuration valid, loaded from the file that `options` name */
    Application(const Options& options, const ARDV::Relay::RelaydConf& configuration);
    Application(const Application&) = delete;
    Application& operator=(const Application&) = delete;

    /** Works until a signal ends it. */
    void Run();

private:
    void Obey(Command command);
    void Stop();
    void Reload();
    void Report();
    void UpdateAlias();
    void OnNetworkChange();
    void TryNowButSeldom();
    void OnClockChange(const ClockChange& change);
    void OnSessionChange();
    void SwitchOnOrOff(std::chrono::milliseconds delay);
    std::optional<ARDV::Relay::RELAYD_RET> CarryOut(const ServerCommand& command);
    std::optional<ARDV::Relay::RELAYD_RET> UpdateAliasFor(const std::string& id);
    std::optional<ARDV::Relay::RELAYD_RET> OpenTunnel(const ServerCommand& command);
    bool AskForTunnel();
    void OnTunnelOrder(const Answer& answer);
    void OnChildEnded();
    void OnTunnelReady();
    void OnTunnelAlarm();
    void OnTunnelChange();
    ARDV::Relay::RELAYD_STATE State() const;
    Status CurrentStatus() const;
    void Publish();
    Json::Value Describe() const;
    bool IsHealthy(std::string& why) const;

    const Options& options_;
    EventLoop loop_;
    TransferEngine engine_;
    Device device_;
    RecentErrors errors_;
    StatusFile statusFile_;
    ControlSession session_;
    AliasKeeper alias_;
    TunnelKeeper tunnel_;
    SignalSource signals_;
    NetworkWatch network_;
    ClockWatch clock_;
    ServiceManager manager_;
    std::vector<std::string> tunnelAskers_;  // commands that wait for the order that the control server was asked for
    Json::Value tunnelTold_;
    Json::UInt64 reloads_ = 0;
    std::chrono::steady_clock::time_point startedAt_;
    std::chrono::steady_clock::time_point triedAt_;
    bool isStopping_ = false;
};

}  // namespace ardv::daemon
