// SPDX-License-Identifier: Apache-2.0
#include "device_identity.h"

#include <unistd.h>

#include <relay/config/auth_conf.h>

namespace ardv::ctl {

namespace {

constexpr const char kFactorySettings[] = "/etc.defaults/ardvinfo.conf";

}  // namespace

Json::Value ReadIdentity() {
    Json::Value identity;
    ARDV::Relay::AuthConf(true).Write(identity, true);
    return identity;
}

std::string WhatIsMissing(const Json::Value& identity) {
    if (access(kFactorySettings, F_OK) != 0) {
        return std::string("the device has no identity without its factory settings: make ") + kFactorySettings +
               " with the line upnpmodelname=\"MODEL\"";
    }
    if (identity["serial"].asString().empty() || identity["token"].asString().empty()) {
        return kNoIdentity;
    }
    return identity["mac"].asString().empty() ? "the device has no MAC address: it has no wired interface, and its "
                                                "identity file names none ('ardvrelayctl identity init --mac' does)"
                                              : "";
}

}  // namespace ardv::ctl
