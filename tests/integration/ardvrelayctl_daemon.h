// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <string>

#include "ardvrelayctl_device.h"
#include "support/made_up_daemon.h"
#include "support/started_program.h"

namespace ardv::test {

inline constexpr const char kDaemonPidFile[] = "/var/run/ardvrelayd.pid";
inline constexpr const char kDaemonStatusFile[] = "/tmp/.ardvrelayd.status";
inline constexpr const char kAliasStatusFile[] = "/tmp/nubo_alias.status";

/** A device on which the service is in use, with the alias "attic", and without a daemon. */
class ArdvrelayctlDaemon : public ArdvrelayctlDevice {
protected:
    ArdvrelayctlDaemon() {
        for (const char* file : {kDaemonPidFile, kDaemonStatusFile, kAliasStatusFile}) {
            std::filesystem::remove(file);
        }
        WriteText(kConfigFile, R"({"tethra":{"enabled":true},"server_alias":{"alias":"attic"}})");
    }

    static void PublishAlias(const std::string& alias, const std::string& word) {
        const std::string temporary = std::string(kAliasStatusFile) + ".new";
        WriteText(temporary, R"({"alias_name":")" + alias + R"(","status":")" + word + R"(","extra":""})");
        std::filesystem::rename(temporary, kAliasStatusFile);
    }

    static StartedProgram Start(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), ARDV_RELAYCTL);
        return StartedProgram(std::move(arguments));
    }
};

}  // namespace ardv::test
