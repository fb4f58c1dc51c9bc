// SPDX-License-Identifier: Apache-2.0
#include <relay/config/server_conf.h>

#include <relay/config/json_store.h>
#include <relay/config/paths.h>
#include <relay/utils/json_text.h>

namespace ARDV::Relay {

namespace {

std::string FromEnvironmentFile(const char* key, const std::string& otherwise) {
    Json::Value environment;
    JsonStore::Read(Paths::kEnvironmentFile, environment);
    return JsonText::StringMember(environment, key).value_or(otherwise);
}

std::string RegionOfHost(const std::string& host) {
    const auto dot = host.find('.');
    if (dot == std::string::npos) {
        return {};
    }
    return dot == 0 ? host : host.substr(0, dot - 1);  // the label's last character counts the region's servers
}

}  // namespace

ServerConf::ServerConf(const char* host, const char* page) {
    if (host) {
        host_ = host;
    }
    if (page) {
        page_ = page;
    }
}

ServerConf::ServerConf(const Json::Value& value) {
    ServerConf::Overwrite(value);
}

ServerConf::~ServerConf() = default;

bool ServerConf::Overwrite(const Json::Value& value) {
    JsonText::Take(value, "protocol", protocol_);
    JsonText::Take(value, "host", host_);
    JsonText::Take(value, "ip", ip_);
    JsonText::Take(value, "port", port_);
    JsonText::Take(value, "page", page_);
    return true;
}

bool ServerConf::IsValid() const {
    return (protocol_ == "http" || protocol_ == "https") && port_ >= 0 && !HostOrIp().empty();
}

bool ServerConf::Write(Json::Value& value, bool full) const {
    JsonText::EnsureObject(value)["host"] = host_;
    if (full || host_.empty()) {
        value["ip"] = ip_;
    }
    if (full) {
        value["protocol"] = protocol_;
        value["port"] = port_;
        value["page"] = page_;
    }
    return true;
}

bool ServerConf::operator==(const ServerConf& other) const {
    return host_ == other.host_ && port_ == other.port_ && protocol_ == other.protocol_;
}

bool ServerConf::operator!=(const ServerConf& other) const {
    return !(*this == other);
}

std::string ServerConf::GetUrl(const char* page) const {
    if (!IsValid()) {
        return {};
    }
    return protocol_ + "://" + HostOrIp() + ":" + std::to_string(port_) + "/" + (page ? page : page_);
}

std::string ServerConf::GetRegion() const {
    return FromEnvironmentFile("relay_region", RegionOfHost(host_));
}

std::string ServerConf::GetDDNSDomain() const {
    return FromEnvironmentFile("ddns_domain", {});
}

const std::string& ServerConf::HostOrIp() const {
    return host_.empty() ? ip_ : host_;
}

}  // namespace ARDV::Relay
