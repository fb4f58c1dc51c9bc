// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include <relay/common/export.h>

namespace ARDV::Relay {

/** Permission groups of services: each is one bit of a permission mask. */
enum SERVICE_GROUP : int {
    SERVICE_GROUP_ALWAYS = -1,  ///< belongs to no group and is permitted wherever anything is
    SERVICE_GROUP_MOBILE_APPS = 1,
    SERVICE_GROUP_PICTARA = 2,
    SERVICE_GROUP_FILARA = 4,
    SERVICE_GROUP_FILE_SHARING = 8,
    SERVICE_GROUP_HOS_PORTAL = 16,
    SERVICE_GROUP_PHOTO_PORTAL = 32
};

/** The permission mask that has every group. */
inline constexpr std::uint32_t kAllServiceGroups = 0xFFFFFFFFU;

/** One service that the relay can carry, with what decides whether it is switched on. Absent texts are null. */
struct SupportService {
    const char* id;          ///< identifier in the configuration and in the protocol; null ends a table
    const char* conf_file;   ///< key/value file that says whether the service is on
    const char* conf_key;    ///< the key in it
    const char* conf_value;  ///< the value that means "on"; "yes" or "no" is also the answer that `check` must give
    int is_default;          ///< 1 for services that are offered by default; passed as flags to the test of the key
    const char* package;     ///< package that provides the service
    const char* unit;        ///< system service unit that runs it
    int group;               ///< one of `SERVICE_GROUP`
    bool (*check)();         ///< further check, or null
};

/** The services that the relay can carry, up to a record whose `id` is null. */
extern ARDVRELAYD_API const SupportService grgszSupportService[];

}  // namespace ARDV::Relay
