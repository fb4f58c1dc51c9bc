// SPDX-License-Identifier: Apache-2.0
#include <iostream>
#include <sstream>

#include <relay/alias/alias_conf.h>
#include <relay/alias/alias_status.h>
#include <relay/common/vocabulary.h>
#include <relay/config/config.h>
#include <relay/daemon/daemon.h>
#include <relay/request/request_alias.h>
#include <relay/tunnel/tunnel.h>
#include <relay/utils/utils.h>

using namespace ARDV::Relay;

namespace {

int Check(bool holds, const char* what) {
    if (!holds) {
        std::cerr << "consumer.cpp: " << what << '\n';
    }
    return holds ? 0 : 1;
}

}  // namespace

int main() {
    std::ostringstream text;
    text << AliasConf();
    int failures = Check(text.str() == "{\"alias\":\"\"}\n", "a configuration object prints itself");
    failures +=
        Check(gRetMapper[0].status == "success" && gRetMapper[16].status.empty(), "the table of results is exported");
    failures += Check(GetStateStr(RELAYD_STATE_STOPPED) == "stoped", "states have texts");
    failures += Check(Utils::GetNuid("") == "d41d8cd98f00b204e9800998ecf8427e", "the device identifier is an MD5");
    failures += Check(Daemon::_logLevel == 4, "the log's threshold is exported");
    failures += Check(!Request(nullptr, nullptr, false).IsValid(), "a request without a URL is not valid");
    ALIAS_RETRY_TYPE type = ALIAS_RETRY_TYPE_NONE;
    failures += Check(AliasRequest::GetRetryType(ALIAS_RET_DNS, type) && type == ALIAS_RETRY_TYPE_RESOLVE,
                      "results have a class");
    failures += Check(Tunnel::GetStatusStr(TUNNEL_STATUS_CREATING) == "CREATING" && !Tunnel().IsAlive(),
                      "a tunnel begins without a child");
    return failures;
}
