// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Chief header of the configuration: the daemon's configuration and the JSON file store on which every configuration
 * file rests.
 */
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <json/value.h>

#include <relay/alias/alias_conf.h>
#include <relay/config/auth_conf.h>
#include <relay/config/config_base.h>
#include <relay/config/kova_conf.h>
#include <relay/config/network_conf.h>
#include <relay/config/server_conf.h>
#include <relay/config/service_conf.h>
#include <relay/config/smartdns_conf.h>
#include <relay/config/support_channel_conf.h>
#include <relay/config/support_service.h>

namespace ARDV::Relay {

/**
 * The configuration of the daemon: servers, alias settings, account, switches, offered services, network, identity and log
 * settings, kept in "/usr/ardv/etc/ardvrelayd/ardvrelayd.conf", a JSON object:
 *
 * | key | JSON type | written |
 * |---|---|---|
 * | "server_global", "server_control", "server_waitcmd" | object, see `ServerConf` | always |
 * | "server_alias" | object, see `AliasConf` | always |
 * | "support_channel", "server_smartdns", "tethra" | object with "enabled" (boolean) | always |
 * | "server_kova" | object, see `KovaConf` | unless "kova_unified" is "yes" in "/etc/ardvinfo.conf" |
 * | "serverID" | string | when not empty |
 * | "service" | array of objects, see `ServiceConf` | always |
 * | "log_level" (integer), "log_file" (string), "disable_holepunch" (boolean) | | always |
 * | "enable", "debug" (boolean), "pid" (integer, the calling process) | | only in full, never to a file |
 * | "network" | object, see `NetworkConf` | only in full, never to a file |
 *
 * Messages are logged under the source name "config.cpp".
 */
class ARDVRELAYD_API RelaydConf : public Config {
public:
    /**
     * The defaults, with the file at `path` merged over them by `ReadConfigFile`, whose result is dropped. The log level is
     * at least 7 if "kern_log_max" is "yes" in "/etc/ardvinfo.conf".
     *
     * @param path file to load, and to save to later; null for none
     */
    explicit RelaydConf(const char* path);

    RelaydConf(const RelaydConf&) = default;
    RelaydConf& operator=(const RelaydConf&) = default;

    /**
     * Merges every part that `value` names. An array "service" replaces the list of services: each element is read from the
     * device and then merged with what it says itself. One that is not valid is dropped with a message of level 3, a second
     * one with the same identifier silently.
     *
     * "server_kova" is passed over while "kova_unified" is "yes"; "enable", "debug", "pid" and "network" always.
     *
     * @return false, with nothing changed, if `value` is no object
     */
    bool Overwrite(const Json::Value& value) override;

    /** Checks the parts in a fixed order and logs the first that is not valid at level 3. */
    bool IsValid() const override;

    /**
     * Writes the members of the table above. Servers and services follow `full`; the account and the network are always written
     * in full, the alias settings always in the form of the file. A member that is not to be written, such as an empty server
     * identifier, stays as `value` has it.
     */
    bool Write(Json::Value& value, bool full) const override;

    /**
     * Saves the object whole to the path it was loaded from. Of "log_level", "log_file", "server_global",
     * "server_waitcmd" and "disable_holepunch" only those are written that the file already has: such settings are put
     * there by hand. Keys that this class does not know are lost.
     *
     * @return false if the object is not valid (level 3; the file is untouched) or the file cannot be written. Without a path
     *         nothing is saved, and the result is true as for any rename that fails.
     */
    bool WriteConfig() override;

    virtual ~RelaydConf();

    /**
     * Merges a file over the object's settings, remembers its path, and validates.
     *
     * @return false if the file cannot be read (level 7; nothing changes), if `Overwrite` refuses it (level 3), or if the
     *         merged object is not valid (level 3; it stays merged and keeps the path)
     */
    bool ReadConfigFile(const std::string& path);

    /**
     * Reads one JSON file, of at most `kMaxJsonFileSize` bytes. Only a regular file is read; in a folder that everybody may
     * write to (such as /tmp) only one that belongs to this user or to root and has no second name, and no symbolic link.
     *
     * A file that is no JSON, is too large, or nests more than 1,000 values is damaged: "bad json format" is logged at
     * level 3 and the file is moved to `path` + ".bad" (see `Utils::RenameBadFile`), so that the next read finds none.
     *
     * @return false, with `value` null, for an empty path, for a file that cannot be read (no message), and for a damaged one
     */
    static bool ReadJsonFile(const std::string& path, Json::Value& value);

    /**
     * Replaces a file by the styled text of a JSON value: atomic, on the disk before it is seen, mode 0644. The text
     * goes to `path` + ".tmp." + process id first. No lock is taken: of two writers the last one wins.
     *
     * @return false, with a message of level 3 and `path` untouched, if the text is larger than `kMaxJsonFileSize`, or if the
     *         temporary file cannot be opened or written (it is then left behind as far as it came). True otherwise, also
     *         where only the final rename failed.
     */
    static bool WriteJsonFile(const std::string& path, const Json::Value& value);

    /**
     * Takes the main file's settings over, whatever file this object was loaded from, reads network and time zone again, and
     * forgets an identity that was read. A file that is missing or damaged, or that holds no object, gives the defaults; one
     * whose settings are not valid changes nothing.
     *
     * @return false, with a message of level 3 and nothing changed, if the file's settings are not valid
     */
    bool Reload();

    /** "timezone" of "/etc/ardvinfo.conf", at most 255 bytes; empty if there is none. */
    static std::string GetTimeZone();

    /**
     * Fills in what an alias request carries: the alias settings in full, the identity with its token, and "id", the
     * server identifier. The identity is read from the device first if serial or token is not known yet.
     */
    void DumpDataForAliasReq(Json::Value& value);

    /**
     * Stores this object's server identifier as "serverID" in a file, and keeps everything else that the file has. A file that
     * cannot be read (level 7) is replaced by one with this key alone. This holds for the two below as well.
     *
     * @param path the file; empty: the one that this object was loaded from. With neither, nothing is saved, the failed
     *        rename is logged, and the result is true as for any rename that fails (see `WriteJsonFile`).
     * @return false if this object is not valid (level 3; nothing is written) or the file cannot be written
     */
    bool WriteServerId(const std::string& path);

    /**
     * Makes `host` the control server's host, in this object and in the file, where the server's other settings stay. `host` is
     * not checked: an empty one, for a server without an address, leaves an object and a file that are not valid, and that
     * no later edit or save gets past.
     */
    bool WriteControlServerHost(const std::string& path, const std::string& host);

    /** Sets the SmartDNS switch, in this object and in the file. */
    bool WriteSmartDNS(const std::string& path, bool enabled);

    /**
     * Makes the list of services anew: those of `grgszSupportService` that are on and permitted (`ServicePermission`), in its
     * order. A service that cannot be read from the device is left out, with a message of level 7. While the service is in use
     * ("tethra") each stands under its own identifier; while the support channel is on, each that is on stands under "support_"
     * and its identifier, whatever the owner permits. Without the permission file nothing is permitted; it is not made here
     * (see `ServicePermission(true)`).
     */
    void GenServiceConf();

    /**
     * Adds a service to the end of the list, if the owner permits it and it is on; without the permission file nothing is
     * permitted. An identifier that is not one of
     * `grgszSupportService` is forbidden by nobody, and is added.
     *
     * @return true if the service is in the list now; false if it cannot be read from the device (level 3) or is not enabled
     */
    bool AddServiceById(const std::string& id);

    /** Removes the first service with this identifier, whatever its permission. False if there is none. */
    bool RemoveServiceById(const std::string& id);

    /** The first service with this identifier, valid until the list changes; null if there is none. */
    const ServiceConf* GetServiceById(const std::string& id) const;

    /** False for every service and for null: none has a key that says whether it runs. Asks nothing and changes nothing. */
    static bool CheckServiceRunKey(const SupportService* service);

    /**
     * Brings the system service "ardvrelayd" into the state that the switches ask for. It is wanted while "tethra" or the support
     * channel is on.
     *
     * @param enable true: if it is wanted, have it started at boot, start it and reload it. False: reload it if "tethra" alone is
     *        on; stop it, and no longer start it at boot, if neither is on. With "tethra" off the web server's relay name is
     *        withdrawn (`Utils::DisableRelaySNI`).
     * @return true, whatever became of it
     */
    bool EnableArdvrelayd(bool enable);

    /**
     * Asks the service's address-check server for the country of the device's public address, over IPv4 and, if that gives
     * nothing, over IPv6. Takes up to 60 s each.
     *
     * @return the answer as it came, usually a code of ISO 3166-1; empty if there is none (level 7)
     */
    static std::string GetIPCountry();

    /**
     * Whether "tethra_enable_failover" of "/etc/ardvinfo.conf" is "true". Where the key is absent the country is asked for, and
     * for "CN" the key is set.
     *
     * @return false also if the file cannot be read or written, which is reported straight to syslog
     */
    static bool SetTethraFailover();

    /** The alias settings. */
    const AliasConf& GetAliasConf() const { return serverAlias_; }

    /** The global control server. */
    const ServerConf& GetGlobalServer() const { return serverGlobal_; }

    /** The server that the device registers at, and the one that holds commands for it. */
    const ServerConf& GetControlServer() const { return serverControl_; }
    const ServerConf& GetWaitCmdServer() const { return serverWaitCmd_; }

    /** The device's identifier at the service; empty while it has none. Setting it saves nothing: see `WriteServerId`. */
    const std::string& GetServerId() const { return serverId_; }
    void SetServerId(const std::string& serverId) { serverId_ = serverId; }

    /** Path of the daemon's log; empty if none is set. */
    const std::string& GetLogFile() const { return logFile_; }

    /** Threshold of the daemon's log, for `Daemon::SetLogFile`. */
    std::int32_t GetLogLevel() const { return logLevel_; }

    /** The switches "support_channel" and "server_smartdns". */
    bool IsSupportChannelEnabled() const { return supportChannel_.GetEnabled(); }
    bool IsSmartDNSEnabled() const { return serverSmartDns_.GetEnabled(); }

    /** The network as `Reload` read it; empty before. */
    const NetworkConf& GetNetwork() const { return network_; }

    /** The services, in their order. */
    const std::vector<ServiceConf>& GetServices() const { return services_; }

    /** The switch "tethra": whether the service is in use. Setting it returns true. */
    bool GetEnableConf() const { return tethraEnabled_; }
    bool SetEnableConf(bool enabled);

private:
    void RebuildServices(const Json::Value& list);
    void AppendFromDevice(const std::string& id);
    template <typename Patch>
    bool PatchFile(const std::string& path, Patch patch);

    bool enable_ = false;
    std::string serverId_;
    ServerConf serverGlobal_;
    ServerConf serverControl_;
    ServerConf serverWaitCmd_;
    AliasConf serverAlias_;
    KovaConf serverKova_;
    SmartDNSConf serverSmartDns_;
    std::vector<ServiceConf> services_;
    SupportChannelConf supportChannel_;
    NetworkConf network_;
    AuthConf auth_;
    std::string logFile_;
    std::int32_t logLevel_;
    bool debug_ = false;
    bool disableHolepunch_ = false;
    std::string configFile_;
    [[maybe_unused]] bool reserved_ = false;  // keeps its place in the object; nothing has a use for it yet
    bool tethraEnabled_ = false;
};

}  // namespace ARDV::Relay
