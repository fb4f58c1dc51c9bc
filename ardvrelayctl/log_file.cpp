// SPDX-License-Identifier: Apache-2.0
#include "log_file.h"

#include "command_error.h"
#include "effective.h"

namespace ardv::ctl {

namespace {

constexpr const char kDefaultLogFile[] = "/var/log/ardvrelayd.log";

}  // namespace

std::string LogFileOf(const Session& session) {
    try {
        const auto file = AsSaved(LoadOrDefault(session.configFile, Services::kLeaveOut))["log_file"].asString();
        return file.empty() ? kDefaultLogFile : file;
    } catch (const CommandError&) {
        return kDefaultLogFile;
    }
}

}  // namespace ardv::ctl
