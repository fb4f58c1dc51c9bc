// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

#include <json/value.h>

#include <relay/config/config_base.h>

namespace ARDV::Relay {

/**
 * One service as the daemon offers it. JSON: "id", "name" (strings), "port" and "ext_port" (integers).
 *
 * The identifier of a service of `grgszSupportService`, or "support_" and such an identifier for the one that the maker's
 * support reaches: both share the device's ports. Messages are logged under the source name "service_conf.cpp".
 */
class ARDVRELAYD_API ServiceConf : public Config {
public:
    /** No ports; then, if `id` is not null, what `ReadConf` finds, whose result is dropped. */
    explicit ServiceConf(const char* id);

    /**
     * No ports. If `value` is an object with a string "id", that identifier, and, if `read`, what `ReadConf` finds for
     * it. `value` is merged last, so what it says goes before what the device says.
     */
    ServiceConf(const Json::Value& value, bool read);

    ServiceConf(const ServiceConf&) = default;
    ServiceConf(ServiceConf&&) noexcept = default;
    ServiceConf& operator=(const ServiceConf&) = default;
    ServiceConf& operator=(ServiceConf&&) noexcept = default;

    bool Overwrite(const Json::Value& value) override;

    /** True with an identifier and a port that is not negative. */
    bool IsValid() const override;

    /**
     * Writes "id"; and, if `full`, "name", and "port" and "ext_port" each where it is not negative. A saved file thus lists
     * services by identifier, and their ports are read from the device again.
     */
    bool Write(Json::Value& value, bool full) const override;

    virtual ~ServiceConf();

    /** Equal in their identifiers. */
    bool operator==(const ServiceConf& other) const;
    bool operator!=(const ServiceConf& other) const;

    /**
     * Fills the service from the device: its name and port from the firewall's service list (`ARDVFwServiceEnum`) and the
     * web server's settings, its external port from the device's and its packages' settings or else from the router.
     *
     * The web server's ports are taken as 16 bits. Another port is taken if it is a number from 1 to 65535, and is otherwise kept
     * as it was. An external port that is none
     * becomes -1. That a service is not there is an ordinary case and is logged at level 7.
     *
     * @param id identifier, which is stored in every case
     * @return false if the list cannot be read or is empty (level 3), has no such service, or has one without a name or without ports
     *         to forward, and for HTTP/2 services while HTTP/2 is off (without a message). True otherwise, also without a port.
     */
    bool ReadConf(const std::string& id);

    /** The settings; a port is -1 where there is none. */
    const std::string& GetId() const { return id_; }
    const std::string& GetName() const { return name_; }
    std::int32_t GetPort() const { return port_; }
    std::int32_t GetExtPort() const { return extPort_; }

    /** Replaces the identifier and nothing else. */
    void SetId(const std::string& id) { id_ = id; }

private:
    std::string id_;
    std::string name_;
    std::int32_t port_ = -1;
    std::int32_t extPort_ = -1;
};

}  // namespace ARDV::Relay
