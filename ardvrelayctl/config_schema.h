// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <span>
#include <string>
#include <string_view>

#include <json/value.h>

namespace ardv::ctl {

enum class SettingType { kText, kInteger, kBoolean, kServices };

/** A setting of the main configuration. */
struct Setting {
    const char* key;  ///< dotted
    SettingType type;
    const char* meaning;
    const char* (*fault)(
        const Json::Value& value);  ///< what is wrong with a value of the right type, or null; null: nothing can be
};

/** Every setting of the main configuration file. */
std::span<const Setting> Settings();

/** The setting of a dotted key; null if the system knows none. */
const Setting* FindSetting(std::string_view key);

/** Whether settings stand below a key. */
bool IsGroupOfSettings(std::string_view key);

/** What is wrong with a value for a setting, its type included, in words that do not repeat it; empty if nothing is. */
std::string WhatIsWrong(const Setting& setting, const Json::Value& value);

/**
 * The value that a text on the command line stands for.
 *
 * @throws CommandError (`kExitUsage`) if it is none for this setting
 */
Json::Value ValueOf(const Setting& setting, const std::string& text);

/** Every setting with its type and meaning, as the help shows it. */
std::string SettingsHelp();

/** What is wrong with a string as one line of text, or with an integer as a port; null if nothing is. */
const char* TextFault(const Json::Value& value);
const char* PortFault(const Json::Value& value);

/** Whether a value has a type as the library takes it: a whole real number such as 5.0 is an integer. */
bool HasType(const Json::Value& value, SettingType type);

/** "a string", "an integer" and so on. */
const char* NameOf(SettingType type);

}  // namespace ardv::ctl
