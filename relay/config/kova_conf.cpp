// SPDX-License-Identifier: Apache-2.0
#include <relay/config/kova_conf.h>

#include <relay/common/deployment.h>
#include <relay/utils/json_text.h>

namespace ARDV::Relay {

KovaConf::KovaConf() : host_(Deployment::kAccountHost) {}

KovaConf::~KovaConf() = default;

bool KovaConf::Overwrite(const Json::Value& value) {
    JsonText::Take(value, "account", account_);
    JsonText::Take(value, "host", host_);
    return true;
}

bool KovaConf::IsValid() const {
    return true;
}

bool KovaConf::Write(Json::Value& value, bool full) const {
    JsonText::EnsureObject(value)["account"] = account_;
    if (full && host_ != Deployment::kAccountHost) {
        value["host"] = host_;
    }
    return true;
}

std::string KovaConf::GetKovaAccount() const {
    return account_;
}

std::string KovaConf::GetHost() const {
    return host_;
}

void KovaConf::SetKovaAccount(const std::string& account) {
    account_ = account;
}

}  // namespace ARDV::Relay
