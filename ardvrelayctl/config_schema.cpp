// SPDX-License-Identifier: Apache-2.0
#include "config_schema.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <iterator>

#include "command_error.h"
#include "server_url.h"
#include "table.h"
#include "text.h"

namespace ardv::ctl {

namespace {

constexpr std::size_t kMaxText = 1024;
constexpr std::size_t kMaxHostName = 253;
constexpr int kMaxPort = 65535;
constexpr int kMaxLogLevel = 9;

bool IsWord(const std::string& text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c <= '~'; });
}

const char* WordFault(const Json::Value& value) {
    const auto text = value.asString();
    return IsWord(text) && text.size() <= kMaxText ? nullptr
                                                   : "must be visible ASCII characters without blanks, at most 1024";
}

const char* ProtocolFault(const Json::Value& value) {
    const auto text = value.asString();
    return text == "http" || text == "https" ? nullptr : "must be \"http\" or \"https\", in lower case";
}

const char* HostFault(const Json::Value& value) {
    const auto text = value.asString();
    const bool isName = std::all_of(text.begin(), text.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
               c == '_';
    });
    return isName && text.size() <= kMaxHostName
               ? nullptr
               : "must be a host name: letters, digits, \"-\", \"_\" and dots, at most 253";
}

const char* AddressFault(const Json::Value& value) {
    const auto text = value.asString();
    std::array<unsigned char, sizeof(in6_addr)> address = {};
    const bool isAddress = text.empty() || inet_pton(AF_INET, text.c_str(), address.data()) == 1 ||
                           inet_pton(AF_INET6, text.c_str(), address.data()) == 1;
    return isAddress ? nullptr : "must be an IPv4 or IPv6 address";
}

const char* UrlFault(const Json::Value& value) {
    const auto text = value.asString();
    if (text.empty()) {
        return "must not be empty: 'config unset' brings the default back";
    }
    if (const char* fault = WhatIsWrongWithUrl(text)) {
        return fault;
    }
    return text.back() == '/' ? "must not end with a slash" : nullptr;
}

const char* SecondsFault(const Json::Value& value) {
    return value.asInt() >= 1 ? nullptr : "must be 1 or more";
}

const char* LogLevelFault(const Json::Value& value) {
    return value.asInt() >= 0 && value.asInt() <= kMaxLogLevel ? nullptr : "must be from 0 to 9";
}

const char* LogFileFault(const Json::Value& value) {
    const auto text = value.asString();
    const bool isPath = text.empty() || text.front() == '/';
    return isPath && !TextFault(value) ? nullptr
                                       : "must be a path that begins with a slash, without control characters";
}

constexpr auto kText = SettingType::kText;
constexpr auto kInteger = SettingType::kInteger;
constexpr auto kBoolean = SettingType::kBoolean;

constexpr Setting kSettings[] = {
    {"tethra.enabled", kBoolean, "the service is in use", nullptr},
    {"support_channel.enabled", kBoolean, "the maker's support may reach the device", nullptr},
    {"serverID", kText, "the device's identifier at the relay service", WordFault},
    {"server_alias.alias", kText, "the short name by which the device is reached", WordFault},
    {"server_alias.url", kText, "the alias server: http:// or https://, without a slash at its end", UrlFault},
    {"server_alias.poll_seconds", kInteger, "seconds between renewals of the alias, 1 or more", SecondsFault},
    {"server_kova.account", kText, "the owner's account at the account service", TextFault},
    {"server_kova.host", kText, "the account service's host name", HostFault},
    {"server_smartdns.enabled", kBoolean, "names resolve to the address that suits the asker", nullptr},
    {"server_global.host", kText, "the global control server's host name", HostFault},
    {"server_global.ip", kText, "its address, where there is no host name", AddressFault},
    {"server_global.protocol", kText, "http or https", ProtocolFault},
    {"server_global.port", kInteger, "its port, 1 to 65535", PortFault},
    {"server_global.page", kText, "its page", WordFault},
    {"server_control.host", kText, "the control server's host name", HostFault},
    {"server_control.ip", kText, "its address, where there is no host name", AddressFault},
    {"server_control.protocol", kText, "http or https", ProtocolFault},
    {"server_control.port", kInteger, "its port, 1 to 65535", PortFault},
    {"server_control.page", kText, "its page", WordFault},
    {"server_waitcmd.host", kText, "host name of the server at which commands are waited for", HostFault},
    {"server_waitcmd.ip", kText, "its address, where there is no host name", AddressFault},
    {"server_waitcmd.protocol", kText, "http or https", ProtocolFault},
    {"server_waitcmd.port", kInteger, "its port, 1 to 65535", PortFault},
    {"server_waitcmd.page", kText, "its page", WordFault},
    {"service", SettingType::kServices, "the offered services: see 'ardvrelayctl service'", nullptr},
    {"log_level", kInteger, "messages up to this priority are logged: 3 errors, 5 notices, 7 everything; 0 to 9",
     LogLevelFault},
    {"log_file", kText, "path of the log; empty: /var/log/ardvrelayd.log", LogFileFault},
    {"disable_holepunch", kBoolean, "no direct connection by hole punching is tried", nullptr},
};

struct TypeName {
    SettingType type;
    const char* name;
    bool (Json::Value::*has)() const;
};

constexpr TypeName kTypeNames[] = {
    {SettingType::kText, "a string", &Json::Value::isString},
    {SettingType::kInteger, "an integer", &Json::Value::isInt},
    {SettingType::kBoolean, "a boolean", &Json::Value::isBool},
    {SettingType::kServices, "an array", &Json::Value::isArray},
};

const TypeName& RowOf(SettingType type) {
    const auto* row = FindRow(kTypeNames, [type](const TypeName& r) { return r.type == type; });
    return row ? *row : kTypeNames[0];
}

CommandError WrongValue(const Setting& setting, const std::string& reason) {
    return {kExitUsage, std::string(setting.key) + " " + reason};
}

Json::Value IntegerOf(const Setting& setting, const std::string& text) {
    std::int32_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size()) {
        throw WrongValue(setting, "must be an integer");
    }
    return number;
}

Json::Value BooleanOf(const Setting& setting, const std::string& text) {
    if (text != "true" && text != "false") {
        throw WrongValue(setting, "must be true or false");
    }
    return text == "true";
}

Json::Value Converted(const Setting& setting, const std::string& text) {
    switch (setting.type) {
        case SettingType::kInteger:
            return IntegerOf(setting, text);
        case SettingType::kBoolean:
            return BooleanOf(setting, text);
        case SettingType::kServices:
            throw WrongValue(setting, "is a list: 'ardvrelayctl service add', 'remove' and 'generate' change it");
        case SettingType::kText:
            break;
    }
    return text;
}

}  // namespace

const char* TextFault(const Json::Value& value) {
    const auto text = value.asString();
    return text.size() <= kMaxText && Printable(text) == text ? nullptr
                                                              : "must be one line of text, at most 1024 bytes";
}

const char* PortFault(const Json::Value& value) {
    return value.asInt() >= 1 && value.asInt() <= kMaxPort ? nullptr : "must be a port: 1 to 65535";
}

bool HasType(const Json::Value& value, SettingType type) {
    return (value.*RowOf(type).has)();
}

const char* NameOf(SettingType type) {
    return RowOf(type).name;
}

std::span<const Setting> Settings() {
    return kSettings;
}

const Setting* FindSetting(std::string_view key) {
    return FindRow(kSettings, [key](const Setting& row) { return row.key == key; });
}

bool IsGroupOfSettings(std::string_view key) {
    return FindRow(kSettings, [start = std::string(key) + "."](const Setting& row) {
               return std::string_view(row.key).starts_with(start);
           }) != nullptr;
}

std::string WhatIsWrong(const Setting& setting, const Json::Value& value) {
    if (!HasType(value, setting.type)) {
        return std::string("must be ") + NameOf(setting.type);
    }
    const char* fault = setting.fault ? setting.fault(value) : nullptr;
    return fault ? fault : "";
}

Json::Value ValueOf(const Setting& setting, const std::string& text) {
    Json::Value value = Converted(setting, text);
    if (const auto fault = WhatIsWrong(setting, value); !fault.empty()) {
        throw WrongValue(setting, fault);
    }
    return value;
}

std::string SettingsHelp() {
    constexpr std::size_t kWidth = 27;
    std::string help = "Keys:\n";
    for (const auto& setting : kSettings) {
        const std::string key = setting.key;
        help += "  " + key + std::string(kWidth - std::min(key.size(), kWidth - 1), ' ') + setting.meaning + "\n";
    }
    return help;
}

}  // namespace ardv::ctl
