// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <relay/config/config_base.h>

namespace ARDV::Relay {

/** The owner's account at the online account service, and that service's host. JSON: "account", "host" (strings). */
class ARDVRELAYD_API KovaConf : public Config {
public:
    /** No account; the host is the account service's, as set when the library was built. */
    KovaConf();

    KovaConf(const KovaConf&) = default;
    KovaConf& operator=(const KovaConf&) = default;

    bool Overwrite(const Json::Value& value) override;

    /** Always true. */
    bool IsValid() const override;

    /** Writes "account", and "host" only if `full` and if it is not the default. */
    bool Write(Json::Value& value, bool full) const override;

    virtual ~KovaConf();

    /** Copies of the settings. */
    std::string GetKovaAccount() const;
    std::string GetHost() const;

    /** Replaces the account. */
    void SetKovaAccount(const std::string& account);

private:
    std::string account_;
    std::string host_;
};

}  // namespace ARDV::Relay
