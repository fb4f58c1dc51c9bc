// SPDX-License-Identifier: Apache-2.0
#include "device_identity.h"

#include <unistd.h>

#include <array>
#include <string>

#include <ardv/cloud_identity.h>
#include <ardv/error.h>

#include <relay/config/auth_conf.h>

namespace ardv::ctl {

namespace {

constexpr const char kFactorySettings[] = "/etc.defaults/ardvinfo.conf";
constexpr std::size_t kSerialSize = 36;

bool MayBeRead() {
    std::array<char, kSerialSize> serial = {};
    std::array<char, ARDV_TOKEN_SIZE> token = {};
    const int result = ARDVCloudServiceHstokenGetToken(serial.data(), serial.size(), token.data(), token.size());
    return result >= 0 || ALIBCErrGet() != ARDV_ERR_ACCESS_DENIED;
}

}  // namespace

Json::Value ReadIdentity() {
    Json::Value identity;
    ARDV::Relay::AuthConf(true).Write(identity, true);
    return identity;
}

CommandError NoIdentity() {
    if (!MayBeRead()) {
        return {kExitNoPermission, "you may not read the device's identity: run this as root"};
    }
    return {kExitConfig,
            "the device has no identity ('ardvrelayctl identity init' makes one on a test machine): serial and token "
            "are missing or cannot be read in its token store (--verbose tells more)"};
}

std::optional<CommandError> WhatIsMissing(const Json::Value& identity) {
    if (access(kFactorySettings, F_OK) != 0) {
        return CommandError(kExitConfig, std::string("the device has no identity without its factory settings: make ") +
                                             kFactorySettings + " with the line upnpmodelname=\"MODEL\"");
    }
    if (identity["serial"].asString().empty() || identity["token"].asString().empty()) {
        return NoIdentity();
    }
    if (identity["mac"].asString().empty()) {
        return CommandError(kExitConfig,
                            "the device has no MAC address: it has no wired interface, and its identity file names "
                            "none ('ardvrelayctl identity init --mac' does)");
    }
    return std::nullopt;
}

}  // namespace ardv::ctl
