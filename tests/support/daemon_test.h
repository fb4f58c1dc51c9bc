// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <string>

#include <libdaemon/dlog.h>
#include <libdaemon/dpid.h>

#include <relay/daemon/daemon.h>

#include "device_test.h"

namespace ardv::test {

inline constexpr const char kPidFile[] = "/var/run/ardvrelayd.pid";

/** Tests in a process without a daemon's name and on a machine where no daemon ran; leaves it so. */
class DaemonTest : public DeviceTest {
protected:
    DaemonTest() {
        Forget();
        daemon_set_verbosity(-8);  // libdaemon's own messages, beside those of the library, off
    }
    ~DaemonTest() override { Forget(); }

    static void WritePid(pid_t pid, const std::string& file = kPidFile) { WriteText(file, std::to_string(pid) + "\n"); }

private:
    static void Forget() {
        std::filesystem::remove(kPidFile);
        std::filesystem::remove(ARDV::Relay::Daemon::kStatusFile);
        ARDV::Relay::Daemon::_strPidFile.clear();
        ARDV::Relay::Daemon::_strLogFile.clear();
        ARDV::Relay::Daemon::_isForked = false;
        daemon_log_ident = daemon_pid_file_ident = nullptr;
        daemon_pid_file_proc = daemon_pid_file_proc_default;
    }
};

}  // namespace ardv::test
