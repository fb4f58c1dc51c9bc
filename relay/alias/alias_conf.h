// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

#include <relay/config/config_base.h>

namespace ARDV::Relay {

/**
 * The device's alias settings, kept as "server_alias" in the main configuration file. JSON: "alias" and "url" (strings)
 * and "poll_seconds" (integer, seconds). Messages are logged under the source name "alias_conf.cpp".
 */
class ARDVRELAYD_API AliasConf : public Config {
public:
    /** No alias, the service's alias server, renewal every 604,800 s (7 days). Seeds random(3) with the time. */
    AliasConf();

    AliasConf(const AliasConf&) = default;
    AliasConf& operator=(const AliasConf&) = default;

    /**
     * Takes the settings of `value`. Unlike elsewhere the alias is always replaced: a value without "alias" clears it.
     * The interval is replaced by one of 1 s or more, the URL by one that is not empty. A change is logged at level 7.
     */
    bool Overwrite(const Json::Value& value) override;

    /** False, with a message of level 3, without a URL or with an interval of 0. */
    bool IsValid() const override;

    /**
     * Writes "alias", and "url" and "poll_seconds".
     *
     * @param skipDefaults true, the form of the file: the latter two only where they differ from their defaults (a
     * member that is already in `value` stays). Mind that this reads the other way round than other classes' full flag.
     */
    bool Write(Json::Value& value, bool skipDefaults) const override;

    /**
     * Replaces "server_alias" in "/usr/ardv/etc/ardvrelayd/ardvrelayd.conf" and keeps the file's other members. A file
     * that cannot be read (level 7) is replaced by one with this member alone.
     *
     * @return false if the settings are not valid (level 3) or the file cannot be written
     */
    bool WriteConfig() override;

    virtual ~AliasConf();

    /** The change flag. Nothing in the library sets it. */
    bool IsChanged() const;
    void CommitChange();

    /** Whether an alias is kept, which is to say: whether one is set. */
    bool IsAliasEnabled() const;

    /** Copies of the settings. */
    std::string GetUrl() const;
    std::string GetAliasName() const;

    /** Replaces the alias; returns true. Neither logged nor flagged as a change. */
    bool SetAliasName(const std::string& name);

    /** Seconds until the next renewal: the interval and a random spread of 0 to 172,799 s (two days). */
    int GetPollingTime() const;

private:
    bool changed_ = false;
    std::int32_t pollSeconds_;
    std::string aliasName_;
    std::string url_;
};

}  // namespace ARDV::Relay
