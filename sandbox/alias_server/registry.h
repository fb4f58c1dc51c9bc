// SPDX-License-Identifier: Apache-2.0
// What the alias server knows: devices, aliases and what it refuses. One JSON file that outlives the process.
#pragma once

#include <json/json.h>

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>

#include "http/json_file.h"

namespace ARDV::Sandbox {

/// A device that has made itself known, by its serial.
struct DeviceRecord {
    std::string token;    ///< the secret given at first contact; every later one must show it
    std::string mac;      ///< as last given; may be empty
    std::string model;    ///< as last given; may be empty
    std::string account;  ///< kova_account as last given; may be empty
};

/// An alias that is taken, by its name in small letters.
struct AliasRecord {
    std::string serial;    ///< the owner
    std::string id;        ///< the owner's cloud identifier
    std::string mac;       ///< may be empty
    std::string model;     ///< may be empty
    std::string account;   ///< kova_account of the mapping; may be empty
    std::string mappedAt;  ///< Timestamp() of the mapping
    std::string seenAt;    ///< Timestamp() of the last mapping or keep-alive
};

/// The whole registry.
struct RegistryData {
    std::map<std::string, DeviceRecord, std::less<>> devices;
    std::map<std::string, AliasRecord, std::less<>> aliases;
    std::set<std::string, std::less<>> blocked;           ///< aliases nobody may have, in small letters
    std::set<std::string, std::less<>> expiredKeys;       ///< API keys that are no longer accepted
    std::set<std::string, std::less<>> blockedAddresses;  ///< client addresses that get no service
};

/// The registry in the form of its file (docs/alias-protocol.md, "The registry").
Json::Value ToJson(const RegistryData& data);

/// Reads that form. Success: the registry. Failure: nothing, and `error` names the offending place. Members that are
/// missing count as empty; unknown members, wrong types, names that are no alias names and aliases of unknown devices
/// are failures.
std::optional<RegistryData> FromJson(const Json::Value& json, std::string& error);

/// True for a name that may be an alias: 1 to 63 of a-z, 0-9 and "-", not beginning or ending with "-". Names are
/// compared in small letters; call with small letters.
bool IsAliasName(std::string_view name);

/// The registry in memory and its file. Safe for several threads.
class Registry {
public:
    /// Binds to `file`; reads nothing yet.
    explicit Registry(const std::string& file);

    /// Reads the file; one that doesn't exist is an empty registry and is created. Success: true. Failure: false,
    /// `error` says why, and a damaged file is left as it is.
    bool Load(std::string& error);

    /// Runs `edit` alone on a copy of the data; where it returns true (changed), the copy is written to the file and
    /// then taken over. Success, also without a change: true. Failure to write: false, `error` says why and nothing
    /// changes.
    bool Transact(const std::function<bool(RegistryData&)>& edit, std::string& error);

    /// The data as it is now, as JSON, secrets included.
    Json::Value Snapshot() const;

private:
    const JsonFile file_;
    mutable std::mutex mutex_;
    RegistryData data_;
};

}  // namespace ARDV::Sandbox
