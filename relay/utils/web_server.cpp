// SPDX-License-Identifier: Apache-2.0
#include <relay/utils/utils.h>

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <memory>
#include <regex>

#include <ardvw3/engine.h>
#include <ardvw3/hos.h>
#include <ardvw3/nginx_conf_register.h>

#include <relay/daemon/log.h>
#include <relay/utils/host_name.h>

RELAY_LOG_SOURCE("utils.cpp");

namespace ARDV::Relay::Utils {

namespace {

constexpr const char kProbeFile[] = "/tmp/hos.ardvrelayd.conf";
constexpr const char kProbeName[] = "hos.ardvrelayd.conf";

std::string ProbeLocation(const std::string& nuid) {
    return "location ~ ^/webman/pingpong.cgi {\n"
           "\tdefault_type text/plain;\n"
           "\troot /usr/ardv/ardvman;\n"
           "\tif ($arg_tethra) {\n"
           "\t\tadd_header Access-Control-Allow-Origin *;\n"
           "\t\treturn 200 '{\"success\": true, \"nuid\": \"" +
           nuid +
           "\"}';\n"
           "\t}\n"
           "\tinclude\tscgi_params;\n"
           "\tscgi_pass ardvscgi;\n"
           "}\n";
}

/** The probe's file, which never outlives the call, whatever becomes of it. */
class ProbeFile {
public:
    ProbeFile() = default;
    ProbeFile(const ProbeFile&) = delete;
    ProbeFile& operator=(const ProbeFile&) = delete;
    ~ProbeFile() { unlink(kProbeFile); }
};

bool IsDone(const std::shared_ptr<ardvw3::NginxConfRegAction>& action) {
    return ardvw3::NginxConfRegister().DoAction(action, false).GetCode() == ardvw3::W3Code::kSuccess;
}

bool RegisterProbe(const std::string& seed) {
    const ProbeFile file;
    const std::string nuid = GetNuid(seed);
    if (nuid.empty()) {
        RELAY_LOG_AT(251, LOG_ERR, "Generate nuid fail");
        return false;
    }
    RELAY_LOG_AT(255, 9, "write nuid to nginx config: %s", nuid.c_str());
    const std::string location = ProbeLocation(nuid);
    errno = 0;
    if (!WriteFile(kProbeFile, location)) {
        RELAY_LOG_AT(269, LOG_ERR, "write nginx conf %s failed, %s", kProbeFile, std::strerror(errno));
        return false;
    }
    if (!IsDone(std::make_shared<ardvw3::NginxConfRegActionRegAndEnable>(kProbeFile, kProbeName))) {
        RELAY_LOG_AT(279, LOG_ERR, "register nginx conf failed");
        return false;
    }
    return true;
}

bool UnregisterProbe() {
    errno = 0;
    if (!IsDone(std::make_shared<ardvw3::NginxConfRegActionDisableAndUnReg>(kProbeName))) {
        RELAY_LOG_AT(300, LOG_ERR, "unregister nginx conf failed");
        return false;
    }
    return true;
}

bool RegisterRelayName(const std::string& name) {
    ardvw3::Engine engine;
    ardvw3::HOS settings(engine);
    if (settings.GetRelayDDNS() == name) {
        RELAY_LOG_AT(314, LOG_DEBUG, "already enable smartdns sni");
        return true;
    }
    if (settings.SetEnableRelayDDNS(name) != 0) {
        RELAY_LOG_AT(320, LOG_ERR, "fail to enable tethra ddns");
        return false;
    }
    if (!settings.Set()) {
        RELAY_LOG_AT(325, LOG_ERR, "fail to set ardvw3 HOS");
        return false;
    }
    return true;
}

bool WithdrawRelayName() {
    ardvw3::Engine engine;
    ardvw3::HOS settings(engine);
    if (settings.SetDisableRelayDDNS() != 0) {
        RELAY_LOG_AT(339, LOG_ERR, "fail to disable tethra ddns");
        return false;
    }
    if (!settings.Set()) {
        RELAY_LOG_AT(344, LOG_ERR, "fail to set ardvw3 HOS");
        return false;
    }
    return true;
}

std::string TopDomain(const std::string& host) {
    constexpr std::size_t kMatches = 2;  // the whole and its one group
    std::smatch match;
    if (!MatchHostName(host, "^.+\\.tethra\\.([a-zA-Z0-9]+)$", match)) {
        RELAY_LOG_AT(194, LOG_ERR, "check host: Failed to parse global domain: %s", host.c_str());
        return {};
    }
    if (match.size() != kMatches) {
        RELAY_LOG_AT(203, LOG_ERR, "check host: Number of matches is incorrect: %zu", match.size());
        return {};
    }
    return match.str(1);
}

template <typename Function>
auto Guarded(Function function) noexcept -> decltype(function()) {
    try {
        return function();
    } catch (const std::regex_error& error) {
        RELAY_LOG_AT(198, LOG_ERR, "regex_error caught: %s", error.what());
    } catch (const std::exception& error) {
        RELAY_LOG(LOG_ERR, "exception caught: %s", error.what());
    }
    return {};
}

}  // namespace

bool SetPingpongNginxConf(const std::string& seed) {
    return Guarded([&] { return RegisterProbe(seed); });
}

bool RemovePingpongNginxConf() {
    return Guarded(UnregisterProbe);
}

bool EnableRelaySNI(const std::string& name) {
    return Guarded([&] { return RegisterRelayName(name); });
}

bool DisableRelaySNI() {
    return Guarded(WithdrawRelayName);
}

std::string GetTethraHostTopDomain(const std::string& host) {
    return Guarded([&] { return TopDomain(host); });
}

}  // namespace ARDV::Relay::Utils
