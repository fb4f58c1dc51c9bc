// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <json/value.h>

/** The JSON file store below the configuration classes; `RelaydConf::ReadJsonFile` and `WriteJsonFile` say what it
 * does. */
namespace ARDV::Relay::JsonStore {

bool Read(const std::string& path, Json::Value& value);
bool Write(const std::string& path, const Json::Value& value);

}  // namespace ARDV::Relay::JsonStore
