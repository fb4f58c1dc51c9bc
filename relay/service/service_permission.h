// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

#include <json/value.h>

#include <relay/common/export.h>
#include <relay/config/support_service.h>

namespace ARDV::Relay {

/**
 * Which services may be reached through the relay: the owner's choice for each group of services, kept in
 * "/usr/ardv/etc/ardvrelayd/services.conf", a JSON array of {"id": group, "enabled": boolean} that holds only groups of which
 * a service is on.
 *
 * | group | bit |
 * |---|---|
 * | "mobile_apps" | 1 |
 * | "pictara" | 2 |
 * | "filara" | 4 |
 * | "file_sharing" | 8 |
 * | "hos_portal" | 16 |
 * | "photo_portal" | 32 |
 *
 * Messages are logged under the source name "service_permission.cpp" and fixed message numbers.
 */
class ARDVRELAYD_API ServicePermission {
public:
    /**
     * The mask that the file says. If it cannot be read: 0 or, with `generate`, what `GenPermissionConf` left.
     *
     * @param generate first bring the file up to date by `GenPermissionConf`
     */
    explicit ServicePermission(bool generate);

    /** The bit of a group; 0 for any other name. Upper and lower case differ. */
    static std::uint32_t GetMaskVal(const std::string& name);

    /** {"id": `id`, "enabled": whether `mask` and `bit` have a bit in common}. */
    static Json::Value GetJsonVal(std::uint32_t mask, std::uint32_t bit, const std::string& id);

    /** An array with the object of each group, in the order of the table. */
    static Json::Value MaskToJson(std::uint32_t mask);

    /** The bits of the groups of `list` that are enabled by a boolean true; 0 if it is no array. */
    static std::uint32_t JsonToMask(const Json::Value& list);

    /**
     * The owner's choice for a group, as `GenPermissionConf` finds it: the first element of `list` that has "id" and
     * "enabled", and this "id", decides. Its "enabled" is true, or a number other than 0, for a group that is permitted.
     * An element that lacks one of the two is reported at level 3.
     *
     * @return true if no element decides, and if `list` is no array
     */
    static bool IsChosen(const Json::Value& list, const std::string& id);

    /**
     * Whether a service is permitted and on. These tests must pass, in this order:
     *
     * 1. its group has a bit in common with `mask` or the stored mask;
     * 2. its key in its configuration file has its value;
     * 3. its check says yes where its value is "yes", and no where it is "no";
     * 4. its unit is active, and "inetd.service" starts telnet;
     * 5. its package is enabled: "/var/packages/PACKAGE/enabled" exists.
     *
     * A test for which a service names nothing passes. The answer is logged at level 7.
     *
     * @param service record of a service; null is not enabled
     * @param mask groups that count as permitted whatever the owner chose: 0 for none, 0xFFFFFFFF for all
     */
    bool IsServiceEnabled(const SupportService* service, std::uint32_t mask) const;

    /**
     * Brings the file up to date: groups of which a service is on, each with the owner's choice as it stands in the file, or
     * permitted if the file does not name it. A group of which nothing is on is dropped, and with it the choice: when it
     * comes back it is permitted. The stored mask follows if the file can be written, and stays as it was otherwise.
     *
     * Entries of no group are lost. An element that is no object, or that lacks "id" or "enabled", is lost as well, and is
     * reported at level 3 in the search for each group that comes past it.
     */
    void GenPermissionConf();

private:
    std::uint32_t mask_ = 0;
};

}  // namespace ARDV::Relay
