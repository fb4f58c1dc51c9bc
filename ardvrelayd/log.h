// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Call sites of the log within the daemon. A source names itself once, `DAEMON_LOG_SOURCE("control_session.cpp");`. While
 * the level is off, `DAEMON_LOG` evaluates no arguments. "%m" is not for it: errno may have changed.
 */
#pragma once

#include <syslog.h>

#include <relay/daemon/daemon.h>

#define DAEMON_LOG_SOURCE(name)                     \
    namespace {                                     \
    constexpr const char kDaemonLogSource[] = name; \
    }                                               \
    static_assert(true)

#define DAEMON_LOG(level, format, ...)                                                                                 \
    do {                                                                                                               \
        if (::ARDV::Relay::Daemon::_logLevel >= (level)) {                                                             \
            ::ARDV::Relay::Daemon::Log(level, "%s:%d " format, kDaemonLogSource, __LINE__ __VA_OPT__(, ) __VA_ARGS__); \
        }                                                                                                              \
    } while (false)
