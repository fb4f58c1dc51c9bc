// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <string>

#include "back_off.h"

namespace ardv::daemon {

inline constexpr const char* kMainConfigFile = "/usr/ardv/etc/ardvrelayd/ardvrelayd.conf";

/** What the program is to do. */
enum class Mode { kRun, kCheckConfig, kCertificate, kHelp, kVersion, kUsageError };

/** The command line, read. */
struct Options {
    Mode mode = Mode::kRun;
    bool foreground = false;
    std::string configFile = kMainConfigFile;
    std::string pidFile;                       ///< empty: the usual one
    std::chrono::milliseconds startSpread{0};  ///< the first registration comes within this time
    RetryPlans retry;
    std::string problem;  ///< for Mode::kUsageError: what is wrong
};

/** Reads a command line. Never fails: see `Mode::kUsageError`. */
Options ReadOptions(int argc, char** argv);

/** The text of --help. */
std::string HelpText();

}  // namespace ardv::daemon
