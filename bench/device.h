// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <json/json.h>

#include <cstddef>
#include <string>

namespace ardv::bench {

constexpr const char kMainFile[] = "/usr/ardv/etc/ardvrelayd/ardvrelayd.conf";
constexpr const char kServices[] = "/etc/ardv/services.d/bench.json";
constexpr const char kWebSettings[] = "/etc/ardv/web.conf";
constexpr const char kDeviceSettings[] = "/etc/ardvinfo.conf";
constexpr const char kPhotoSettings[] = "/var/packages/Pictara/etc/settings.conf";

/** The servers' name, which is looked up as that of a server elsewhere is; libcurl answers "localhost" by itself. */
constexpr const char kHost[] = "alias.tethra.example";

/** Writes a file, and makes its folder where there is none. */
void WriteFile(const std::string& path, const std::string& text);

/** Makes this a device that offers every service there is. Gives the list for a main file that names them all. */
Json::Value OfferEveryService();

/** Gives the device an identity. */
void BecomeDevice();

/**
 * Makes an authority in `folder`, trusted beside the usual ones, and certificates by it: valid.pem, valid.key. They
 * are for localhost and for kHost, which becomes a name of this machine.
 *
 * @throws std::runtime_error when they can't be made
 */
void MakeTrustedNames(const std::string& folder);

}  // namespace ardv::bench
