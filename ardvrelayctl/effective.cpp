// SPDX-License-Identifier: Apache-2.0
#include "effective.h"

#include <syslog.h>

#include <algorithm>

#include "config_schema.h"
#include "dotted_key.h"

namespace ardv::ctl {

using namespace ARDV::Relay;

namespace {

// What a device can demand shows in a configuration without a file.
int LeastLogLevel() {
    Json::Value defaults;
    RelaydConf(nullptr).Write(defaults, false);
    const int level = defaults["log_level"].asInt();
    return level > LOG_WARNING ? level : 0;
}

Json::Value Written(const RelaydConf& conf, bool full) {
    Json::Value value;
    conf.Write(value, full);
    value["log_level"] = std::max(value["log_level"].asInt(), LeastLogLevel());
    return value;
}

}  // namespace

Json::Value AsSaved(const RelaydConf& conf) {
    return Written(conf, false);
}

Json::Value WithRunTime(const RelaydConf& conf) {
    Json::Value value = Written(conf, true);
    NetworkConf(true).Write(value["network"], true);
    return value;
}

Json::Value Complete(const RelaydConf& conf) {
    Json::Value written = Written(conf, true);
    conf.GetAliasConf().Write(written["server_alias"], false);
    Json::Value complete(Json::objectValue);
    for (const auto& setting : Settings()) {
        if (const auto* value = FindMember(written, setting.key)) {
            SetMember(complete, setting.key, *value);
        }
    }
    if (complete.isMember("server_kova") && !complete["server_kova"].isMember("host")) {
        complete["server_kova"]["host"] = KovaConf().GetHost();
    }
    return complete;
}

}  // namespace ardv::ctl
