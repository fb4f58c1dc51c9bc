// SPDX-License-Identifier: Apache-2.0
#include "status_words.h"

#include <array>
#include <ctime>

#include "table.h"

namespace ardv::ctl {

using namespace ARDV::Relay;

namespace {

struct StateRow {
    RELAYD_STATE state;
    bool isLoggedIn;
    const char* meaning;
};

constexpr StateRow kStates[] = {
    {RELAYD_STATE_NONE, false, "the service refuses this device, and the daemon waits for its user"},
    {RELAYD_STATE_NOT_RUNNING, false, "the daemon does not run"},
    {RELAYD_STATE_STARTING, false, "the daemon is not logged in yet, and keeps trying"},
    {RELAYD_STATE_LOGIN, true, "the daemon is logged in at the service"},
    {RELAYD_STATE_DIRECT_CONNECT, true, "the daemon is logged in, and the service reaches this device without a relay"},
    {RELAYD_STATE_CONNECTED, true, "the daemon is logged in and connected"},
    {RELAYD_STATE_CONNECTED_RELAY, true, "the daemon is logged in, and a relay tunnel is up"},
    {RELAYD_STATE_LOGOUT, false, "the daemon is logged out, as the service is switched off"},
    {RELAYD_STATE_STOPPED, false, "the daemon is ending"},
};

struct ErrorRow {
    RELAYD_RET error;
    bool needsUser;
    const char* meaning;
    const char* advice;
};

constexpr ErrorRow kErrors[] = {
    {RELAYD_RET_ERR_CONFIG, true, "the configuration or the identity cannot be used",
     "'ardvrelayctl config check' and 'ardvrelayctl identity show' tell what is wrong with it"},
    {RELAYD_RET_ERR_REGISTER, false, "the device could not be registered", "see the daemon's log"},
    {RELAYD_RET_ERR_NETWORK, false, "the control server cannot be reached",
     "see that the device has a network and the right time, and that nothing between it and the server keeps them "
     "apart; 'ardvrelayctl report' has the reason, such as a certificate that is not trusted"},
    {RELAYD_RET_ERR_RESOLV, false, "the control server's name does not resolve",
     "see that the device has a network and a working name server"},
    {RELAYD_RET_ERR_AUTH, true, "the service refuses the device's identity, or another device has its name",
     "compare serial number and token with those at the service ('ardvrelayctl identity show'), then 'ardvrelayctl "
     "reload'"},
    {RELAYD_RET_ERR_NOT_SUPPORT, false, "the service does not know what this daemon asks for",
     "see whether there is a newer version of this software"},
    {RELAYD_RET_ERR_SERVER_BUSY, false, "the control server has a fault or is busy", ""},
    {RELAYD_RET_ERR_LOCK, false, "a file that the daemon needs is in use", ""},
    {RELAYD_RET_ERR_SERVER_LIMIT, false, "the control server is full", ""},
    {RELAYD_RET_ERR_SERVER_CHANGED, false, "the service sends this device to another control server", ""},
    {RELAYD_RET_ERR_SERVER_IP_CHANGED, false, "the device's address has changed", ""},
    {RELAYD_RET_ERR_API_KEY_EXPIRED, true, "the device's API key has expired",
     "put a new one into /etc/ardv/identity.conf, then 'ardvrelayctl reload'"},
    {RELAYD_RET_ERR_VIOLATION, true, "the service has locked this device out for breaking its rules",
     "ask the service; once it lets the device in again, 'ardvrelayctl reload'"},
    {RELAYD_RET_ERR_UNKNOWN, false, "the control server's answer made no sense", "see the daemon's log"},
};

const ErrorRow* RowOf(RELAYD_RET error) {
    if (error == RELAYD_RET_SUCCESS) {
        return nullptr;
    }
    const auto* row = FindRow(kErrors, [error](const ErrorRow& r) { return r.error == error; });
    return row ? row : RowOf(RELAYD_RET_ERR_UNKNOWN);
}

const StateRow& RowOf(RELAYD_STATE state) {
    const auto* row = FindRow(kStates, [state](const StateRow& r) { return r.state == state; });
    return row ? *row : kStates[0];
}

struct Unit {
    std::int64_t seconds;
    const char* name;
};

constexpr Unit kUnits[] = {{86'400, " d"}, {3'600, " h"}, {60, " min"}, {1, " s"}};

std::string LengthWords(std::int64_t seconds) {
    const auto* unit = FindRow(kUnits, [seconds](const Unit& u) { return seconds >= u.seconds; });
    return unit ? std::to_string(seconds / unit->seconds) + unit->name : "";
}

/** A point in time in local time, with these words behind it. */
std::string ClockWords(std::int64_t seconds, const std::string& words) {
    const std::time_t moment = seconds;
    std::tm local = {};
    std::array<char, 64> text = {};
    if (!localtime_r(&moment, &local) || std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S %z", &local) == 0) {
        return std::to_string(seconds);
    }
    return std::string(text.data()) + " (" + words + ")";
}

}  // namespace

const char* MeaningOf(RELAYD_STATE state) {
    return RowOf(state).meaning;
}

bool IsLoggedIn(RELAYD_STATE state) {
    return RowOf(state).isLoggedIn;
}

const char* MeaningOf(RELAYD_RET error) {
    const auto* row = RowOf(error);
    return row ? row->meaning : "";
}

const char* AdviceFor(RELAYD_RET error) {
    const auto* row = RowOf(error);
    return row ? row->advice : "";
}

bool NeedsUser(RELAYD_RET error) {
    const auto* row = RowOf(error);
    return row && row->needsUser;
}

std::string TimeWords(std::int64_t seconds) {
    const std::int64_t now = std::time(nullptr);
    if (seconds > now) {
        return ClockWords(seconds, "in the future");
    }
    return ClockWords(seconds, seconds == now ? "now" : LengthWords(seconds > 0 ? now - seconds : now) + " ago");
}

std::string DueWords(std::int64_t seconds) {
    const std::int64_t now = std::time(nullptr);
    return ClockWords(seconds, seconds > now ? "in " + LengthWords(seconds - now) : "now");
}

}  // namespace ardv::ctl
