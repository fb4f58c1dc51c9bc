// SPDX-License-Identifier: Apache-2.0
#include <relay/config/config.h>

#include <syslog.h>

#include <ardv/key_value_file.h>

#include <relay/common/deployment.h>
#include <relay/daemon/log.h>
#include <relay/request/request.h>
#include <relay/utils/device_settings.h>

RELAY_LOG_SOURCE("config.cpp");

namespace ARDV::Relay {

namespace {

constexpr const char kFailoverKey[] = "tethra_enable_failover";
constexpr const char kOn[] = "true";
constexpr std::size_t kFailoverSize = 64;
constexpr const char kFailoverCountry[] = "CN";
constexpr long kConnectSeconds = 5;

std::string FetchCountry(const char* host) {
    Request request(nullptr, nullptr, false);
    if (!request.Set(std::string("https://") + host + "/geo/country", std::string(), false)) {
        RELAY_LOG(LOG_DEBUG, "curl init failed");
        return {};
    }
    if (!request.SetConnectionTimeout(kConnectSeconds)) {
        RELAY_LOG(LOG_DEBUG, "curl set timeout failed");
        return {};
    }
    if (!request.Send()) {
        RELAY_LOG(LOG_DEBUG, "curl request failed");
        return {};
    }
    return request.GetResponse();
}

}  // namespace

std::string RelaydConf::GetIPCountry() {
    const std::string country = FetchCountry(Deployment::kAddressCheckHostIPv4);
    return country.empty() ? FetchCountry(Deployment::kAddressCheckHostIPv6) : country;
}

bool RelaydConf::SetTethraFailover() {
    const auto setting = DeviceSettings::Read(kFailoverKey, kFailoverSize);
    if (setting.result < 0) {
        syslog(LOG_ERR, "%s:%d Fail to get failover enable setting", kRelayLogSource, __LINE__);
        return false;
    }
    if (setting.result > 0) {
        return setting.text == kOn;
    }
    if (GetIPCountry() != kFailoverCountry) {
        return false;  // nothing is noted, so that the next call asks again
    }
    if (ALIBCFileSetKeyValue(DeviceSettings::kFile, kFailoverKey, kOn, 0) < 0) {
        syslog(LOG_ERR, "%s:%d ALIBCFileSetKeyValue [%s] failed", kRelayLogSource, __LINE__, DeviceSettings::kFile);
        return false;
    }
    return true;
}

}  // namespace ARDV::Relay
