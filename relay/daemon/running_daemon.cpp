// SPDX-License-Identifier: Apache-2.0
#include <relay/daemon/running_daemon.h>

#include <csignal>

#include <libdaemon/dpid.h>

#include <relay/daemon/daemon.h>

namespace ARDV::Relay {

pid_t RunningDaemon::FindPid() {
    const bool isPathKnown = daemon_pid_file_proc == &Daemon::GetPidFile;
    return isPathKnown ? daemon_pid_file_is_running() : -1;
}

bool RunningDaemon::SendSignal(pid_t pid, int signal) {
    return pid >= 1 && kill(pid, signal) == 0;
}

const char* RunningDaemon::Name() {
    return daemon_pid_file_ident ? daemon_pid_file_ident : "";
}

}  // namespace ARDV::Relay
