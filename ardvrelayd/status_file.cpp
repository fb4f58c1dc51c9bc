// SPDX-License-Identifier: Apache-2.0
#include "status_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <ctime>

#include <relay/config/config.h>
#include <relay/daemon/daemon.h>

#include "log.h"

DAEMON_LOG_SOURCE("status_file.cpp");

namespace ardv::daemon {

using namespace ARDV::Relay;

namespace {

Json::Value ServiceList(const std::vector<std::string>& services) {
    Json::Value list(Json::arrayValue);
    for (const auto& id : services) {
        list.append(Json::Value(Json::objectValue))["id"] = id;
    }
    return list;
}

Json::Value Document(const Status& status, Json::Int64 since) {
    Json::Value document;
    document["pid"] = getpid();
    document["state"] = static_cast<int>(status.state);
    document["error"] = static_cast<int>(status.error);
    document["service"] = ServiceList(status.services);
    document["since"] = since;
    document["version"] = ARDV_VERSION;
    if (!status.serverId.empty()) {
        document["serverID"] = status.serverId;
    }
    if (!status.alias.empty()) {
        document["alias"] = status.alias;
    }
    if (!status.tunnel.isNull()) {
        document["tunnel"] = status.tunnel;
    }
    return document;
}

// A rename that failed counts as written: in /tmp somebody's folder may stand in the file's place.
bool IsOwnFile(const char* path) {
    struct stat facts {};
    return lstat(path, &facts) == 0 && S_ISREG(facts.st_mode) && facts.st_uid == geteuid();
}

}  // namespace

StatusFile::~StatusFile() {
    if (isPublished_) {
        unlink(Daemon::kStatusFile);
    }
}

void StatusFile::Publish(const Status& status) {
    if (isPublished_ && status == published_) {
        return;
    }
    if (!isPublished_ || status.state != published_.state || status.error != published_.error) {
        since_ = std::time(nullptr);
    }
    if (!RelaydConf::WriteJsonFile(Daemon::kStatusFile, Document(status, since_)) || !IsOwnFile(Daemon::kStatusFile)) {
        DAEMON_LOG(LOG_ERR, "the status is not published");
        return;
    }
    ++writes_;
    published_ = status;
    isPublished_ = true;
}

}  // namespace ardv::daemon
