// SPDX-License-Identifier: Apache-2.0
#include <relay/config/config.h>

namespace ARDV::Relay {

void RelaydConf::DumpDataForAliasReq(Json::Value& value) {
    serverAlias_.Write(value, false);
    if (!auth_.HasCredentials()) {
        auth_.ReadConf();
    }
    auth_.Write(value, true);
    value["id"] = serverId_;
}

}  // namespace ARDV::Relay
