// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Chief header of the configuration: the daemon's configuration and the JSON file store on which every configuration
 * file rests.
 */
#pragma once

#include <cstdint>
#include <string>

#include <json/value.h>

#include <relay/alias/alias_conf.h>
#include <relay/config/auth_conf.h>
#include <relay/config/config_base.h>
#include <relay/config/kova_conf.h>
#include <relay/config/server_conf.h>
#include <relay/config/smartdns_conf.h>
#include <relay/config/support_channel_conf.h>

namespace ARDV::Relay {

/**
 * The configuration of the daemon: servers, alias settings, account, switches, identity and log settings, kept in
 * "/usr/ardv/etc/ardvrelayd/ardvrelayd.conf", a JSON object:
 *
 * | key | JSON type | written |
 * |---|---|---|
 * | "server_global", "server_control", "server_waitcmd" | object, see `ServerConf` | always |
 * | "server_alias" | object, see `AliasConf` | always |
 * | "support_channel", "server_smartdns", "tethra" | object with "enabled" (boolean) | always |
 * | "server_kova" | object, see `KovaConf` | unless "kova_unified" is "yes" in "/etc/ardvinfo.conf" |
 * | "serverID" | string | when not empty |
 * | "service" | array of objects, kept as it is read | always |
 * | "log_level" (integer), "log_file" (string), "disable_holepunch" (boolean) | | always |
 * | "enable", "debug" (boolean), "pid" (integer, the calling process) | | only in full, never to a file |
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

    /** Merges every part that `value` names; false, with nothing changed, if `value` is no object. */
    bool Overwrite(const Json::Value& value) override;

    /** Checks the parts in a fixed order and logs the first that is not valid at level 3. */
    bool IsValid() const override;

    bool Write(Json::Value& value, bool full) const override;

    /**
     * Saves the object whole to the path it was loaded from. Of "log_level", "log_file", "server_global",
     * "server_waitcmd" and "disable_holepunch" only those are written that the file already has: such settings are put
     * there by hand. Keys that this class does not know are lost.
     *
     * @return false if the object is not valid (level 3; the file is untouched) or the file cannot be written
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

    /** "timezone" of "/etc/ardvinfo.conf", at most 255 bytes; empty if there is none. */
    static std::string GetTimeZone();

    /**
     * Fills in what an alias request carries: the alias settings in full, the identity with its token, and "id", the
     * server identifier. The identity is read from the device first if serial or token is not known yet.
     */
    void DumpDataForAliasReq(Json::Value& value);

    /** The alias settings. */
    const AliasConf& GetAliasConf() const { return serverAlias_; }

    /** The global control server. */
    const ServerConf& GetGlobalServer() const { return serverGlobal_; }

    /** The switch "tethra": whether the service is in use. Setting it returns true. */
    bool GetEnableConf() const { return tethraEnabled_; }
    bool SetEnableConf(bool enabled);

private:
    bool enable_ = false;
    std::string serverId_;
    ServerConf serverGlobal_;
    ServerConf serverControl_;
    ServerConf serverWaitCmd_;
    AliasConf serverAlias_;
    KovaConf serverKova_;
    SmartDNSConf serverSmartDns_;
    Json::Value services_ = Json::Value(Json::arrayValue);
    SupportChannelConf supportChannel_;
    AuthConf auth_;
    std::string logFile_;
    std::int32_t logLevel_;
    bool debug_ = false;
    bool disableHolepunch_ = false;
    std::string configFile_;
    bool tethraEnabled_ = false;
};

}  // namespace ARDV::Relay
