// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

#include <relay/config/config_base.h>

namespace ARDV::Relay {

/**
 * A server that the daemon talks to. JSON: "protocol", "host", "ip", "page" (strings) and "port" (integer).
 *
 * Nothing here logs. The environment file is "/usr/ardv/etc/ardvrelayd/env.conf", a JSON object; a damaged one is moved
 * aside as `RelaydConf::ReadJsonFile` says, and counts as empty.
 */
class ARDVRELAYD_API ServerConf : public Config {
public:
    /**
     * Protocol "http", port 80, page "Serv.php", no host and no ip; then the given host and page in place of these.
     *
     * @param host host name, or null to leave it empty
     * @param page page, or null to keep the default
     */
    ServerConf(const char* host, const char* page);

    /** The defaults, with `value` merged over them. */
    explicit ServerConf(const Json::Value& value);

    ServerConf(const ServerConf&) = default;
    ServerConf& operator=(const ServerConf&) = default;

    bool Overwrite(const Json::Value& value) override;

    /** True for protocol "http" or "https" (in lower case), a port of 0 or more, and a host or an ip. */
    bool IsValid() const override;

    /**
     * Writes "host"; then, if `full` or if there is no host, "ip"; then, if `full`, "protocol", "port" and "page". A
     * saved file thus records a server by its host alone, or by host and ip where the host is empty.
     */
    bool Write(Json::Value& value, bool full) const override;

    virtual ~ServerConf();

    /** Equal in host, port and protocol. A change of address or page alone does not make it another server. */
    bool operator==(const ServerConf& other) const;
    bool operator!=(const ServerConf& other) const;

    /**
     * The URL of a page: "PROTOCOL://HOST:PORT/PAGE", with the ip where there is no host, and always with the port.
     *
     * @param page the page, or null for the server's own
     * @return the URL; empty if the server is not valid
     */
    std::string GetUrl(const char* page) const;

    /**
     * The region that the server stands for: "relay_region" of the environment file if it has one. Else the text before
     * the host's first dot without its last character; the whole host if it begins with a dot; empty if it has no dot.
     */
    std::string GetRegion() const;

    /** "ddns_domain" of the environment file, or empty. The server's own settings have no part in it. */
    std::string GetDDNSDomain() const;

    /** Host name, as it is set. */
    const std::string& GetHost() const { return host_; }

    /** Replace one setting, without a check. */
    void SetProtocol(const std::string& protocol) { protocol_ = protocol; }
    void SetHost(const std::string& host) { host_ = host; }
    void SetPort(std::int32_t port) { port_ = port; }

private:
    const std::string& HostOrIp() const;

    std::string protocol_ = "http";
    std::string host_;
    std::string ip_;
    std::int32_t port_ = 80;
    std::string page_ = "Serv.php";
};

}  // namespace ARDV::Relay
