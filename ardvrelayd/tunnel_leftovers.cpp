// SPDX-License-Identifier: Apache-2.0
#include "tunnel_leftovers.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <limits>
#include <string>
#include <system_error>
#include <vector>

#include <json/value.h>

#include <relay/daemon/daemon.h>
#include <relay/tunnel/tunnel.h>
#include <relay/tunnel/tunnel_names.h>

#include "json_member.h"
#include "log.h"
#include "openvpn_process.h"
#include "tunnel_info.h"

DAEMON_LOG_SOURCE("tunnel_leftovers.cpp");

namespace ardv::daemon {

using namespace ARDV::Relay;

namespace {

bool IsOwn(const std::filesystem::path& path) {
    struct stat facts {};
    return lstat(path.c_str(), &facts) == 0 && S_ISREG(facts.st_mode) && facts.st_uid == geteuid();
}

// Whose user name is not known any more.
std::vector<std::filesystem::path> PasswordFiles() {
    std::vector<std::filesystem::path> files;
    std::error_code error;
    const std::filesystem::path prefix(TunnelNames::kPassFilePrefix);
    std::filesystem::directory_iterator at(prefix.parent_path(), error);
    for (; !error && at != std::filesystem::directory_iterator(); at.increment(error)) {
        if (at->path().filename().string().rfind(prefix.filename().string(), 0) == 0 && IsOwn(at->path())) {
            files.push_back(at->path());
        }
    }
    return files;
}

pid_t ProcessOf(const Json::Value& tunnel) {
    const auto number = NumberMember(tunnel, "pid").value_or(-1);
    return number > 1 && number <= std::numeric_limits<pid_t>::max() ? static_cast<pid_t>(number) : -1;
}

}  // namespace

void ClearTunnelLeftovers() {
    Json::Value status;
    Daemon::GetStatus(status);  // of the daemon before, if it had no time to take it away
    const auto* tunnel = ObjectMember(status, "tunnel");
    const auto passwordFiles = PasswordFiles();
    if (!tunnel && !HasTunnelInfo() && passwordFiles.empty()) {
        return;
    }
    DAEMON_LOG(LOG_NOTICE, "an earlier daemon has left a tunnel behind; clearing it away");
    EndOrphan(tunnel ? ProcessOf(*tunnel) : -1);
    EndOrphan(ReadTunnelInfo().process);
    Tunnel().Destroy();
    for (const auto& file : passwordFiles) {
        unlink(file.c_str());
    }
}

}  // namespace ardv::daemon
