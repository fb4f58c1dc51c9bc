// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <relay/config/config_base.h>

namespace ARDV::Relay {

/**
 * Who the device is, as the control servers know it. JSON, all strings: "serial" (up to 35 bytes), "mac", "token" (up
 * to 32 bytes), "timezone", "key" (the API key) and "model". The token is a secret, and is never written for a file.
 */
class ARDVRELAYD_API AuthConf : public Config {
public:
    /**
     * Everything empty but the time zone, which is the device's.
     *
     * @param read also read the rest by `ReadConf`; if that fails, the rest stays empty
     */
    explicit AuthConf(bool read);

    AuthConf(const AuthConf&) = default;
    AuthConf& operator=(const AuthConf&) = default;

    /**
     * Reads serial, token, MAC address, model and API key from the device.
     *
     * @return false, with a message of level 3 and nothing changed, if the platform has no serial and token, or if the
     * model's file cannot be read. A missing MAC address (logged) or API key becomes an empty text.
     */
    bool ReadConf();

    /**
     * Merges "serial", "mac", "token", "key" and "model". A token counts only beside its serial; a serial without a
     * token gets one made by the platform, or an empty one, with a message of level 3, if that fails.
     */
    bool Overwrite(const Json::Value& value) override;

    /** True with serial, MAC address and token. */
    bool IsValid() const override;

    /** Writes "serial", "mac", "timezone", "key" and "model", and "token" only if `full`. */
    bool Write(Json::Value& value, bool full) const override;

    virtual ~AuthConf();

    /** The device's MAC address; empty, with a message of level 3, if it has none. */
    static std::string GetMacAddress();

    /**
     * The device's MAC address; empty if it has none.
     *
     * @param ifname not used: a device has one identity address, whichever of its interfaces is named
     */
    static std::string RelaydGetMacAddressByIf(const char* ifname);

    /** Whether serial and token are known. */
    bool HasCredentials() const { return !serial_.empty() && !token_.empty(); }

    /** Replaces the time zone. */
    void SetTimeZone(const std::string& timezone) { timezone_ = timezone; }

private:
    std::string serial_;
    std::string mac_;
    std::string token_;
    std::string timezone_;
    std::string key_;
    std::string model_;
};

}  // namespace ARDV::Relay
