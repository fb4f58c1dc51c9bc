// SPDX-License-Identifier: Apache-2.0
#include <relay/config/misc_conf.h>

#include <relay/config/json_store.h>
#include <relay/daemon/log.h>
#include <relay/utils/json_text.h>

RELAY_LOG_SOURCE("misc_conf.cpp");

namespace ARDV::Relay {

struct MiscConf::Record {
    std::string confName;
    bool relayEnabled = true;
    bool upnpEnabled = true;
    std::int32_t supportType = 0;
    bool needsRegistration = true;
};

namespace {

constexpr const char kRelayTunnel[] = "relay_tunnel";
constexpr const char kRelayEnabled[] = "relay_enabled";
constexpr const char kUpnp[] = "upnp";
constexpr const char kUpnpEnabled[] = "enabled";
constexpr const char kSmartDns[] = "smartdns";
constexpr const char kSupportType[] = "support_type";

}  // namespace

MiscConf::MiscConf(const char* path, bool init) : record_(std::make_unique<Record>()) {
    record_->confName = path ? path : "";
    Reload(init);
}

MiscConf::MiscConf(const MiscConf& other) : Config(other), record_(std::make_unique<Record>(*other.record_)) {}

MiscConf& MiscConf::operator=(const MiscConf& other) {
    *record_ = *other.record_;
    return *this;
}

MiscConf::~MiscConf() = default;

bool MiscConf::Reload(bool init) {
    Json::Value value;
    return JsonStore::Read(record_->confName, value) ? Overwrite(value) : Initialize(init);
}

bool MiscConf::Initialize(bool write) {
    RELAY_LOG(LOG_ERR, "%s", write ? "write" : "ignore");
    return !write || WriteConfig();
}

bool MiscConf::Overwrite(const Json::Value& value) {
    for (const char* name : {kRelayTunnel, kUpnp, kSmartDns}) {
        const auto* item = JsonText::Member(value, name);
        OverwriteItem(name, item ? *item : Json::Value::nullSingleton());
    }
    return true;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the interface is published with a copy
bool MiscConf::OverwriteItem(std::string name, const Json::Value& value) {
    if (name == kRelayTunnel) {
        JsonText::Take(value, kRelayEnabled, record_->relayEnabled);
    } else if (name == kUpnp) {
        JsonText::Take(value, kUpnpEnabled, record_->upnpEnabled);
    } else if (name == kSmartDns) {
        // A device whose file no longer names a kind has none: it must not keep the one that it had.
        record_->supportType = JsonText::IntMember(value, kSupportType).value_or(0);
    }
    return true;
}

bool MiscConf::IsValid() const {
    return true;
}

bool MiscConf::Write(Json::Value& value, bool /*full*/) const {
    JsonText::EnsureObject(JsonText::EnsureObject(value)[kRelayTunnel])[kRelayEnabled] = record_->relayEnabled;
    JsonText::EnsureObject(value[kUpnp])[kUpnpEnabled] = record_->upnpEnabled;
    JsonText::EnsureObject(value[kSmartDns])[kSupportType] = record_->supportType;
    return true;
}

bool MiscConf::WriteConfig() {
    Json::Value value;
    return Write(value, true) && JsonStore::Write(record_->confName, value);
}

const std::string& MiscConf::GetConfName() const {
    return record_->confName;
}

bool MiscConf::GetRelayEnabled() const {
    return record_->relayEnabled;
}

bool MiscConf::GetUpnpEnabled() const {
    return record_->upnpEnabled;
}

std::int32_t MiscConf::GetSmartDNSSupportType() const {
    return record_->supportType;
}

bool MiscConf::NeedRegisterConfig() const {
    return record_->needsRegistration;
}

void MiscConf::SetRegisterFlag(bool needed) {
    record_->needsRegistration = needed;
}

bool MiscConf::operator==(const MiscConf& other) const {
    return record_->relayEnabled == other.record_->relayEnabled && record_->upnpEnabled == other.record_->upnpEnabled;
}

bool MiscConf::operator!=(const MiscConf& other) const {
    return !(*this == other);
}

}  // namespace ARDV::Relay
