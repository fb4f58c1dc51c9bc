// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gmock/gmock.h>
#include <json/json.h>

#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/alias_server_process.h"
#include "support/file_text.h"
#include "support/program.h"

namespace ardv::test {

inline constexpr const char kConfigFile[] = "/usr/ardv/etc/ardvrelayd/ardvrelayd.conf";
inline constexpr const char kStatusFile[] = "/tmp/nubo_alias.status";

/** The JSON value of a whole text; throws std::runtime_error for anything else, text behind the value included. */
inline Json::Value Parse(const std::string& text) {
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    std::istringstream stream(text);
    Json::Value value;
    std::string problem;
    if (!Json::parseFromStream(builder, stream, &value, &problem)) {
        throw std::runtime_error("no JSON: " + text + ": " + problem);
    }
    return value;
}

/** A device with the alias "attic", and an alias server for it over HTTP. */
class ArdvrelayctlAlias : public testing::Test {
protected:
    ArdvrelayctlAlias() : server({.folder = "/run/alias-server"}) {
        std::filesystem::remove(kStatusFile);
        MakeDevice();
        Configure("attic", server.HttpUrl());
    }

    static void Configure(const std::string& alias, const std::string& url) {
        Json::Value configuration;
        configuration["serverID"] = "box-1";
        configuration["server_alias"]["alias"] = alias;
        configuration["server_alias"]["url"] = url;
        WriteText(kConfigFile, Json::StyledWriter().write(configuration));
    }

    static ProgramResult Run(std::vector<std::string> arguments, const std::string& input = "") {
        arguments.insert(arguments.begin(), ARDV_RELAYCTL);
        return RunProgram(arguments, input);
    }

    static ProgramResult Alias(std::vector<std::string> arguments, const std::string& input = "") {
        arguments.insert(arguments.begin(), "alias");
        return Run(arguments, input);
    }

    void AnswerWith(const std::string& reply) {
        Json::Value fault;
        fault["kind"] = "reply";
        fault["body"] = reply;
        server.SetFault(Json::FastWriter().write(fault));
    }

    AliasServerProcess server;
};

}  // namespace ardv::test
