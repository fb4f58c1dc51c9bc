// SPDX-License-Identifier: Apache-2.0
// The devices that have made themselves known; kept over a restart.
#pragma once

#include <json/json.h>

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "http/json_file.h"

namespace ARDV::Sandbox {

/// One device, by its serial.
struct KnownDevice {
    std::string token;     ///< the secret of its first contact
    std::string serverId;  ///< its identifier for good
};

/// All devices and their file. Safe for several threads.
class DeviceBook {
public:
    /// Who a device says it is.
    struct Claim {
        std::string serial;
        std::string token;
        std::string serverId;  ///< the identifier that it had so far; empty: none
    };

    /// How a claim ended.
    enum class Verdict { kKnown, kRefused, kFailed };

    /// Binds to `file`; empty: the devices are forgotten at the end. Reads nothing yet.
    explicit DeviceBook(const std::string& file);

    /// Reads the file; one that doesn't exist is an empty book and is created. Failure: false, `error` says why, and a
    /// damaged file is left as it is.
    bool Load(std::string& error);

    /// Identifies a device. A new one becomes known, under the identifier that it had so far if nobody else has it, and
    /// this is durable on return. kKnown: `serverId` is its identifier. kRefused: the token is another one. kFailed: the
    /// file can't be written, `error` says why, and nothing has changed.
    Verdict Identify(const Claim& claim, std::string& serverId, std::string& error);

    /// True when some device has this identifier.
    bool Has(std::string_view serverId) const;

    /// The devices in the form of the file: {"devices": {SERIAL: {"token", "serverID"}}}, secrets included.
    Json::Value Snapshot() const;

    /// Replaces all devices. False: `error` says why, and nothing has changed.
    bool Replace(const Json::Value& json, std::string& error);

private:
    using Devices = std::map<std::string, KnownDevice, std::less<>>;

    static Json::Value ToJson(const Devices& devices);
    static std::optional<Devices> FromJson(const Json::Value& json, std::string& error);
    static bool IsTaken(const Devices& devices, std::string_view serverId);
    bool Take(Devices fresh, std::string& error);

    const bool isKept_;
    const JsonFile file_;
    mutable std::mutex mutex_;
    Devices devices_;
};

}  // namespace ARDV::Sandbox
