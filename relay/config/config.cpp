// SPDX-License-Identifier: Apache-2.0
#include <relay/config/config.h>

#include <unistd.h>

#include <algorithm>
#include <utility>

#include <relay/common/deployment.h>
#include <relay/config/paths.h>
#include <relay/daemon/log.h>
#include <relay/utils/device_settings.h>
#include <relay/utils/json_text.h>

RELAY_LOG_SOURCE("config.cpp");

namespace ARDV::Relay {

namespace {

bool IsAccountUnified() {
    return DeviceSettings::Is("kova_unified", "yes");
}

ServerConf DefaultServer(const char* protocol, std::int32_t port) {
    ServerConf server(nullptr, nullptr);
    server.SetHost(Deployment::kGlobalControlHost);
    server.SetProtocol(protocol);
    server.SetPort(port);
    return server;
}

void MergePart(const Json::Value& value, const char* key, Config& part) {
    if (const auto* member = JsonText::Member(value, key)) {
        part.Overwrite(*member);
    }
}

}  // namespace

RelaydConf::RelaydConf(const char* path)
    : serverGlobal_(DefaultServer("https", 443)),
      serverControl_(DefaultServer("https", 443)),
      serverWaitCmd_(DefaultServer("http", 80)),
      network_(false),
      auth_(false),
      logLevel_(LOG_WARNING) {
    if (path) {
        configFile_ = path;
        ReadConfigFile(path);
    }
    if (DeviceSettings::Is("kern_log_max", "yes") && logLevel_ < LOG_DEBUG) {
        logLevel_ = LOG_DEBUG;
    }
}

RelaydConf::~RelaydConf() = default;

bool RelaydConf::Overwrite(const Json::Value& value) {
    if (!value.isObject()) {
        return false;
    }
    JsonText::Take(value, "serverID", serverId_);
    JsonText::Take(value, "log_level", logLevel_);
    JsonText::Take(value, "log_file", logFile_);
    if (const auto* tethra = JsonText::Member(value, "tethra")) {
        JsonText::Take(*tethra, "enabled", tethraEnabled_);
    }
    JsonText::Take(value, "disable_holepunch", disableHolepunch_);
    MergePart(value, "server_global", serverGlobal_);
    MergePart(value, "server_control", serverControl_);
    MergePart(value, "server_waitcmd", serverWaitCmd_);
    MergePart(value, "server_alias", serverAlias_);
    MergePart(value, "support_channel", supportChannel_);
    MergePart(value, "server_smartdns", serverSmartDns_);
    if (!IsAccountUnified()) {
        MergePart(value, "server_kova", serverKova_);
    }
    if (const auto* services = JsonText::Member(value, "service"); services && services->isArray()) {
        RebuildServices(*services);
    }
    return true;
}

void RelaydConf::RebuildServices(const Json::Value& list) {
    services_.clear();
    for (Json::ArrayIndex i = 0; i < list.size(); ++i) {
        ServiceConf service(list[i], true);
        if (!service.IsValid()) {
            RELAY_LOG(LOG_ERR, "invalid service config: %d", static_cast<int>(i));
        } else if (!GetServiceById(service.GetId())) {
            services_.push_back(std::move(service));
        }
    }
}

bool RelaydConf::IsValid() const {
    const struct {
        const Config& part;
        const char* name;
    } parts[] = {
        {serverGlobal_, "global"},   {serverControl_, "control"}, {serverWaitCmd_, "wait cmd"},
        {serverAlias_, "alias cmd"}, {serverKova_, "kova cmd"},   {serverSmartDns_, "smartdns"},
    };
    for (const auto& [part, name] : parts) {
        if (!part.IsValid()) {
            RELAY_LOG(LOG_ERR, "wrong %s server config", name);
            return false;
        }
    }
    for (const auto& service : services_) {
        if (!service.IsValid()) {
            RELAY_LOG(LOG_ERR, "wrong service [%s] config", service.GetId().c_str());
            return false;
        }
    }
    return true;
}

bool RelaydConf::Write(Json::Value& value, bool full) const {
    serverGlobal_.Write(JsonText::EnsureObject(value)["server_global"], full);
    serverControl_.Write(value["server_control"], full);
    serverWaitCmd_.Write(value["server_waitcmd"], full);
    serverAlias_.Write(value["server_alias"], true);
    supportChannel_.Write(value["support_channel"], full);
    serverSmartDns_.Write(value["server_smartdns"], full);
    JsonText::EnsureObject(value["tethra"])["enabled"] = tethraEnabled_;
    if (!IsAccountUnified()) {
        serverKova_.Write(value["server_kova"], true);
    }
    if (!serverId_.empty()) {
        value["serverID"] = serverId_;
    }
    auto& services = value["service"] = Json::Value(Json::arrayValue);
    for (const auto& service : services_) {
        service.Write(services.append(Json::Value()), full);
    }
    value["log_level"] = logLevel_;
    value["log_file"] = logFile_;
    value["disable_holepunch"] = disableHolepunch_;
    if (full) {
        value["enable"] = enable_;
        value["debug"] = debug_;
        value["pid"] = getpid();
        network_.Write(value["network"], true);
    }
    return true;
}

bool RelaydConf::Reload() {
    RelaydConf fresh(Paths::kMainConfigFile);
    if (!fresh.IsValid()) {
        RELAY_LOG(LOG_ERR, "reload config failed");
        return false;
    }
    *this = fresh;
    network_.ReadConf();
    auth_.SetTimeZone(GetTimeZone());
    return true;
}

const ServiceConf* RelaydConf::GetServiceById(const std::string& id) const {
    const auto found =
        std::find_if(services_.begin(), services_.end(), [&](const ServiceConf& s) { return s.GetId() == id; });
    return found == services_.end() ? nullptr : &*found;
}

std::string RelaydConf::GetTimeZone() {
    return DeviceSettings::TimeZone();
}

bool RelaydConf::SetEnableConf(bool enabled) {
    tethraEnabled_ = enabled;
    return true;
}

}  // namespace ARDV::Relay
