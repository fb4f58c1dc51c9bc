// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Call sites of the log within the library.
 *
 * A source names itself once, `RELAY_LOG_SOURCE("config.cpp");`, because several files of one subsystem report under
 * one name. `RELAY_LOG` then takes the real line. `RELAY_LOG_AT` takes a message number instead: support staff and
 * their scripts search for these, so they do not move when the code does. While the level is off neither evaluates its
 * arguments.
 */
#pragma once

#include <syslog.h>

#include <ardv/error.h>

#include <relay/daemon/daemon.h>

#define RELAY_LOG_SOURCE(name)                     \
    namespace {                                    \
    constexpr const char kRelayLogSource[] = name; \
    }                                              \
    static_assert(true)

#define RELAY_LOG_AT(number, level, format, ...)                                                                    \
    do {                                                                                                            \
        if (::ARDV::Relay::Daemon::_logLevel >= (level)) {                                                          \
            ::ARDV::Relay::Daemon::Log(level, "%s:%d " format, kRelayLogSource, number __VA_OPT__(, ) __VA_ARGS__); \
        }                                                                                                           \
    } while (false)

#define RELAY_LOG(level, format, ...) RELAY_LOG_AT(__LINE__, level, format __VA_OPT__(, ) __VA_ARGS__)

/** Reports that a platform function failed: what failed, and the error that the platform recorded. */
#define RELAY_LOG_PLATFORM_FAILURE(level, what)                                                         \
    RELAY_LOG(level, what " [0x%04X %s:%d]", static_cast<unsigned>(ALIBCErrGet()), ALIBCErrorGetFile(), \
              ALIBCErrorGetLine())
