// SPDX-License-Identifier: Apache-2.0
// The words of the control protocol (docs/control-protocol.md) that several parts need.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace ARDV::Sandbox {

/// "errno" of an answer, as far as the server says it of itself.
enum class ControlError : int32_t {
    kSuccess = 0,
    kUnknown = 1,         ///< the server failed
    kAuth = 2,            ///< identity refused
    kNoSuchCommand = 3,   ///< unknown "command"
    kVersion = 5,         ///< another version than 1
    kSessionTimeout = 6,  ///< no such session or channel, or it is over
    kNoTunnel = 8,        ///< no relay is assigned
    kInput = 9            ///< no request as the protocol has it
};

inline constexpr std::string_view kRegister = "register";
inline constexpr std::string_view kKeepAlive = "keep_alive";
inline constexpr std::string_view kWait = "wait";
inline constexpr std::string_view kGetTunnel = "get_tunnel";
inline constexpr std::array<std::string_view, 4> kCommands{kRegister, kKeepAlive, kWait, kGetTunnel};

inline constexpr int kMinKeepAlive = 60;
inline constexpr int kMaxKeepAlive = 86400;
inline constexpr int kDefaultKeepAlive = 3600;

/// The longest identifiers of devices and commands, and the longest names of sessions and channels.
inline constexpr size_t kMaxServerId = 64;
inline constexpr size_t kMaxCommandId = 64;
inline constexpr size_t kMaxSession = 128;

/// The most commands of one answer to a wait.
inline constexpr size_t kMaxCommands = 16;

}  // namespace ARDV::Sandbox
