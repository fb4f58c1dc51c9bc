// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <json/value.h>

#include <relay/config/config_base.h>

namespace ARDV::Relay {

/**
 * Switches that the management tools change, kept in a small JSON file of their own whose path the caller gives:
 *
 * | key | JSON type | default |
 * |---|---|---|
 * | "relay_tunnel" | object with "relay_enabled" (boolean): the tunnel may be used | true |
 * | "upnp" | object with "enabled" (boolean): UPnP port mapping is on | true |
 * | "smartdns" | object with "support_type" (integer): kind of SmartDNS support | 0 |
 *
 * Unlike the other configuration classes it has no virtual destructor: its table of virtual operations ends with
 * `WriteConfig`. Messages are logged under the source name "misc_conf.cpp".
 */
// NOLINTNEXTLINE(cppcoreguidelines-virtual-class-destructor): see above; nothing derives from it
class ARDVRELAYD_API MiscConf final : public Config {
public:
    /**
     * The defaults, and then `Reload(init)`, whose result is dropped.
     *
     * @param path the file; null counts as an empty path, which is never read. Saving to it saves nothing: the failed rename
     *        is logged, and the result is true as for any rename that fails.
     * @param init whether a missing or damaged file is written anew
     */
    MiscConf(const char* path, bool init);

    /** Copies are independent of each other. */
    MiscConf(const MiscConf& other);
    MiscConf& operator=(const MiscConf& other);

    ~MiscConf();

    /**
     * Takes the two switches where they are there and boolean. The kind of SmartDNS support, unlike other settings, becomes 0
     * where it is missing or no integer.
     */
    bool Overwrite(const Json::Value& value) override;

    /** Always true. */
    bool IsValid() const override;

    /** Writes the three members in both modes. */
    bool Write(Json::Value& value, bool full) const override;

    /** Replaces the file by the object; members that this class does not know are lost. False if it cannot be written. */
    bool WriteConfig() override;

    /** Merges the file over the object. A file that cannot be read leads to `Initialize(init)`, whose result is returned. */
    bool Reload(bool init);

    /**
     * Deals with a file that cannot be read.
     *
     * @param write true: "write" is logged at level 3 and the object is saved, which gives the result; false: "ignore" is logged
     *        at level 3, and the result is true
     */
    bool Initialize(bool write);

    /**
     * Changes one setting.
     *
     * @param name "relay_tunnel", "upnp" or "smartdns"; any other changes nothing
     * @param value what stands under that key in the file: {"relay_enabled": true}, for example
     * @return true
     */
    bool OverwriteItem(std::string name, const Json::Value& value);

    /** The settings. */
    const std::string& GetConfName() const;
    bool GetRelayEnabled() const;
    bool GetUpnpEnabled() const;
    std::int32_t GetSmartDNSSupportType() const;

    /** Whether the device still has to register its configuration. True at first, and kept in memory only. */
    bool NeedRegisterConfig() const;
    void SetRegisterFlag(bool needed);

    /** Equal in the two switches. Kind of SmartDNS support and registration do not count. */
    bool operator==(const MiscConf& other) const;
    bool operator!=(const MiscConf& other) const;

private:
    struct Record;
    std::unique_ptr<Record> record_;
};

}  // namespace ARDV::Relay
