// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>

#include "http/text.h"
#include "registry.h"

namespace ARDV::Sandbox {
namespace {

template <class Record>
struct Member {
    const char* name;
    std::string Record::*value;
    bool required;
};

constexpr std::array<Member<DeviceRecord>, 4> kDeviceMembers{{
    {"token", &DeviceRecord::token, true},
    {"mac", &DeviceRecord::mac, false},
    {"model", &DeviceRecord::model, false},
    {"account", &DeviceRecord::account, false},
}};

constexpr std::array<Member<AliasRecord>, 7> kAliasMembers{{
    {"serial", &AliasRecord::serial, true},
    {"id", &AliasRecord::id, true},
    {"mac", &AliasRecord::mac, false},
    {"model", &AliasRecord::model, false},
    {"account", &AliasRecord::account, false},
    {"mapped_at", &AliasRecord::mappedAt, true},
    {"seen_at", &AliasRecord::seenAt, true},
}};

struct SetMember {
    const char* name;
    std::set<std::string, std::less<>> RegistryData::*value;
};

constexpr std::array<SetMember, 3> kSetMembers{{
    {"blocked", &RegistryData::blocked},
    {"expired_keys", &RegistryData::expiredKeys},
    {"blocked_addresses", &RegistryData::blockedAddresses},
}};

template <class Record, size_t kCount>
Json::Value RecordToJson(const Record& record, const std::array<Member<Record>, kCount>& members) {
    Json::Value json(Json::objectValue);
    for (const auto& member : members) {
        json[member.name] = record.*member.value;
    }
    return json;
}

template <class Record, size_t kCount>
Json::Value RecordsToJson(const std::map<std::string, Record, std::less<>>& records,
                          const std::array<Member<Record>, kCount>& members) {
    Json::Value json(Json::objectValue);
    for (const auto& [name, record] : records) {
        json[name] = RecordToJson(record, members);
    }
    return json;
}

bool Refuse(const std::string& place, std::string_view problem, std::string& error) {
    error = place + " " + std::string(problem);
    return false;
}

template <class Table>
bool KnowsOnly(const Json::Value& json, const Table& table, const std::string& place, std::string& error) {
    for (const std::string& name : json.getMemberNames()) {
        const auto same = [&](const auto& member) { return name == member.name; };
        if (std::none_of(table.begin(), table.end(), same)) {
            return Refuse(std::string(place).append(".").append(name), "is not known", error);
        }
    }
    return true;
}

template <class Record>
bool ReadMember(const Json::Value& json, const Member<Record>& member, const std::string& place, Record& record,
                std::string& error) {
    const Json::Value& value = json[member.name];
    const std::string where = place + "." + member.name;
    if (!value.isString() && !(value.isNull() && !member.required)) {
        return Refuse(where, "must be text", error);
    }
    record.*member.value = value.asString();
    return !member.required || !(record.*member.value).empty() || Refuse(where, "must not be empty", error);
}

template <class Record, size_t kCount>
bool ReadRecord(const Json::Value& json, const std::array<Member<Record>, kCount>& members, const std::string& place,
                Record& record, std::string& error) {
    if (!json.isObject()) {
        return Refuse(place, "must be an object", error);
    }
    return KnowsOnly(json, members, place, error) &&
           std::all_of(members.begin(), members.end(),
                       [&](const auto& member) { return ReadMember(json, member, place, record, error); });
}

template <class Record, size_t kCount>
bool ReadRecords(const Json::Value& json, const std::array<Member<Record>, kCount>& members, const std::string& place,
                 std::map<std::string, Record, std::less<>>& records, std::string& error) {
    if (!json.isNull() && !json.isObject()) {
        return Refuse(place, "must be an object", error);
    }
    const auto names = json.getMemberNames();
    return std::all_of(names.begin(), names.end(), [&](const std::string& name) {
        return ReadRecord(json[name], members, place + "." + name, records[name], error);
    });
}

bool ReadSet(const Json::Value& json, const SetMember& member, RegistryData& data, std::string& error) {
    if (!json.isNull() && !json.isArray()) {
        return Refuse(member.name, "must be an array", error);
    }
    for (const Json::Value& entry : json) {
        if (!entry.isString() || entry.asString().empty()) {
            return Refuse(member.name, "must hold texts that are not empty", error);
        }
        (data.*member.value).insert(entry.asString());
    }
    return true;
}

bool CheckAlias(const std::string& name, const AliasRecord& record, const RegistryData& data, std::string& error) {
    const std::string place = "aliases." + name;
    if (!IsAliasName(name)) {
        return Refuse(place, "is not an alias name", error);
    }
    if (data.devices.find(record.serial) == data.devices.end()) {
        return Refuse(place + ".serial", "is not among the devices", error);
    }
    if (!IsTimestamp(record.mappedAt) || !IsTimestamp(record.seenAt)) {
        return Refuse(place, "has a time of another form than 2026-01-31T08:15:00.123Z", error);
    }
    return true;
}

bool CheckNames(const RegistryData& data, std::string& error) {
    const bool plain = std::all_of(data.blocked.begin(), data.blocked.end(), IsAliasName);
    if (!plain || data.devices.contains("")) {
        return Refuse(plain ? "devices" : "blocked", "has an impossible name", error);
    }
    return std::all_of(data.aliases.begin(), data.aliases.end(),
                       [&](const auto& entry) { return CheckAlias(entry.first, entry.second, data, error); });
}

struct Named {
    const char* name;
};
constexpr std::array<Named, 5> kParts{{{"devices"}, {"aliases"}, {"blocked"}, {"expired_keys"}, {"blocked_addresses"}}};

}  // namespace

Json::Value ToJson(const RegistryData& data) {
    Json::Value json(Json::objectValue);
    json["devices"] = RecordsToJson(data.devices, kDeviceMembers);
    json["aliases"] = RecordsToJson(data.aliases, kAliasMembers);
    for (const SetMember& member : kSetMembers) {
        json[member.name] = Json::arrayValue;
        for (const std::string& entry : data.*member.value) {
            json[member.name].append(entry);
        }
    }
    return json;
}

std::optional<RegistryData> FromJson(const Json::Value& json, std::string& error) {
    RegistryData data;
    if (!json.isObject()) {
        Refuse("the registry", "must be an object", error);
        return std::nullopt;
    }
    const auto readSet = [&](const SetMember& member) { return ReadSet(json[member.name], member, data, error); };
    const bool good = KnowsOnly(json, kParts, "registry", error) &&
                      ReadRecords(json["devices"], kDeviceMembers, "devices", data.devices, error) &&
                      ReadRecords(json["aliases"], kAliasMembers, "aliases", data.aliases, error) &&
                      std::all_of(kSetMembers.begin(), kSetMembers.end(), readSet) && CheckNames(data, error);
    return good ? std::optional(std::move(data)) : std::nullopt;
}

}  // namespace ARDV::Sandbox
