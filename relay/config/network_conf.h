// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <json/value.h>

#include <relay/config/config_base.h>

struct _tag_ALIB_NETIF;  // <ardv/network.h>

namespace ARDV::Relay {

/** One interface of the device and its IPv4 address. JSON, all strings: "name", "ip", "mask". */
class ARDVRELAYD_API InterfaceConf : public Config {
public:
    InterfaceConf();
    InterfaceConf(const std::string& name, const std::string& ip, const std::string& mask);
    explicit InterfaceConf(const ::_tag_ALIB_NETIF& interface);

    InterfaceConf(const InterfaceConf&) = default;
    InterfaceConf(InterfaceConf&&) noexcept = default;
    InterfaceConf& operator=(const InterfaceConf&) = default;
    InterfaceConf& operator=(InterfaceConf&&) noexcept = default;

    bool Overwrite(const Json::Value& value) override;

    /**
     * True with a name, an address and a mask that go together (`ALIBIsValidIpMask`), for an interface whose IPv6 addresses
     * can be asked for; it need not have any.
     */
    bool IsValid() const override;

    /**
     * Writes "name", "ip" and "mask", and "ipv6", the interface's IPv6 addresses as they are now: an array of objects with
     * "address" (text), "prefix_length" (integer), "scope" ("link", "site", "loopback", "compat", "mapped" or "global") and
     * "addr_type" (integer, the platform's `ArdvIPv6AddressType`), at most 32.
     */
    bool Write(Json::Value& value, bool full) const override;

    virtual ~InterfaceConf();

    /** Equal in name, address and mask. */
    bool operator==(const InterfaceConf& other) const;
    bool operator!=(const InterfaceConf& other) const;

private:
    std::string name_;
    std::string ip_;
    std::string mask_;
};

/**
 * A snapshot of the device's network, as the servers are told it. JSON: "ddns" (the dynamic DNS host name), "gateway" (the
 * default gateway) and "mode" (strings), and "interface" (array of `InterfaceConf`). Messages are logged under the source name
 * "network_conf.cpp".
 */
class ARDVRELAYD_API NetworkConf : public Config {
public:
    /** Empty; then, if `read`, what `ReadConf` finds. */
    explicit NetworkConf(bool read);

    NetworkConf(const NetworkConf&) = default;
    NetworkConf(NetworkConf&&) noexcept = default;
    NetworkConf& operator=(const NetworkConf&) = default;
    NetworkConf& operator=(NetworkConf&&) noexcept = default;

    /**
     * Takes the snapshot anew; the mode, which the device cannot tell, stays. The list has the device's own wired interfaces
     * with a valid IPv4 address, in the order of the platform's table (its first 256 entries), and after them the PPPoE connection. The dynamic DNS host
     * name is read where the device supports dynamic DNS and "ddns_update" is "yes".
     *
     * @return true. What cannot be read is left out, with a message of level 7, or of level 3 for a dynamic DNS
     *         configuration that is switched on.
     */
    bool ReadConf();

    /** Takes "ddns", "gateway" and "mode", and replaces the whole list by an array "interface". */
    bool Overwrite(const Json::Value& value) override;

    /** True if every interface in the list is valid. */
    bool IsValid() const override;

    /**
     * Writes "interface", "gateway", "ddns" and "mode", and two facts of the moment: "fqdn", which is "external_host_ip" of
     * "/etc/ardvinfo.conf" (at most 1,023 bytes), and "ipv6_tunnel", the IPv6 addresses of the interface "tun".
     */
    bool Write(Json::Value& value, bool full) const override;

    virtual ~NetworkConf();

    /** Equal in dynamic DNS name, gateway and list of interfaces. The mode does not make it another network. */
    bool operator==(const NetworkConf& other) const;
    bool operator!=(const NetworkConf& other) const;

private:
    void ReadInterfaces();
    void ReadPPPoE();
    void ReadGateway();
    void ReadDDNS();
    void AppendIfValid(InterfaceConf interface);

    std::string ddns_;
    std::string gateway_;
    std::vector<InterfaceConf> interfaces_;
    std::string mode_;
};

}  // namespace ARDV::Relay
