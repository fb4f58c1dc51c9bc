// SPDX-License-Identifier: Apache-2.0
// The manual page of the configuration against the class that reads it.
#include <fstream>
#include <map>
#include <string>

#include <relay/common/deployment.h>
#include <relay/config/config.h>

#include "exit_code.h"
#include "support/device_test.h"
#include "support/program.h"

using namespace ardv::test;
using namespace ARDV::Relay;

namespace {

/** Keys, or members of an object, each with its type and, where it has one, its default: "integer, default 4". */
using Keys = std::map<std::string, std::string>;

const std::string kPage = ARDV_SOURCE_DIR "/docs/man/ardvrelayd.conf.5";

/** What a section of the page describes. */
Keys DescribedIn(const std::string& section) {
    Keys keys;
    std::ifstream page(kPage);
    std::string current;
    for (std::string line; std::getline(page, line);) {
        if (line.starts_with(".Sh ")) {
            current = line.substr(4);
        } else if (line.starts_with(".It Va ") && current == section) {
            std::string type;
            std::getline(page, type);
            EXPECT_TRUE(type.starts_with("(") && type.ends_with(")")) << line;
            EXPECT_TRUE(keys.emplace(line.substr(7), type.substr(1, type.size() - 2)).second) << line << " twice";
        }
    }
    return keys;
}

std::string TypeOf(const Json::Value& value) {
    static const std::map<Json::ValueType, std::string> kTypes = {{Json::booleanValue, "boolean"},
                                                                  {Json::intValue, "integer"},
                                                                  {Json::stringValue, "string"},
                                                                  {Json::arrayValue, "array"}};
    return kTypes.at(value.type());
}

std::string WithDefault(const Json::Value& value) {
    const auto text = value.isArray() ? "" : value.asString();
    return TypeOf(value) + ", default " + (text.empty() ? "empty" : text);
}

// The page shows the names of an unconfigured build.
void Replace(Keys& keys, const std::string& host, const std::string& shown) {
    for (auto& [key, text] : keys) {
        if (const auto place = text.find(host); !host.empty() && place != std::string::npos) {
            text.replace(place, host.size(), shown);
        }
    }
}

bool IsServer(const Json::Value& value) {
    return value.isMember("protocol");
}

std::string UrlOf(const Json::Value& server) {
    return ServerConf(server).GetUrl(nullptr);
}

/** Each key that a file may have, with its default. */
Keys KeysOfTheConfiguration() {
    RelaydConf configuration(nullptr);
    Json::Value file;
    configuration.SetServerId("box-1");
    configuration.Write(file, false);
    Json::Value all;
    configuration.Write(all, true);
    all["server_alias"] = Json::Value();
    configuration.GetAliasConf().Write(all["server_alias"], false);
    all["server_kova"]["host"] = Deployment::kAccountHost;  // shown only where it is another one
    Keys keys;
    for (const auto& key : file.getMemberNames()) {
        const auto& value = all[key];
        if (!value.isObject()) {
            keys[key] = WithDefault(key == "serverID" ? Json::Value("") : value);
        } else if (IsServer(value)) {
            keys[key] = "server, default " + UrlOf(value);
        } else {
            for (const auto& member : value.getMemberNames()) {
                keys.emplace(std::string(key).append(".").append(member), WithDefault(value[member]));
            }
        }
    }
    Replace(keys, Deployment::kGlobalControlHost, "global.tethra.example");
    Replace(keys, Deployment::kAliasUrl, "https://alias.tethra.example");
    Replace(keys, Deployment::kAccountHost, "account.ardvex.example");
    return keys;
}

Keys TypesOf(const Json::Value& object) {
    Keys keys;
    for (const auto& member : object.getMemberNames()) {
        keys[member] = TypeOf(object[member]);
    }
    return keys;
}

/** The text of the page's example. */
std::string Example() {
    const auto page = ReadText(kPage);
    const std::string begin = ".Bd -literal -offset indent\n";
    const auto first = page.find(begin, page.find(".Sh EXAMPLES")) + begin.size();
    return page.substr(first, page.find(".Ed", first) - first);
}

class ConfPage : public DeviceTest {};

}  // namespace

TEST_F(ConfPage, DescribesEachKeyWithItsTypeAndItsDefault) {
    EXPECT_EQ(DescribedIn("DESCRIPTION"), KeysOfTheConfiguration());
}

TEST_F(ConfPage, DescribesTheMembersOfAServer) {
    Json::Value server;
    ServerConf(nullptr, nullptr).Write(server, true);
    EXPECT_EQ(DescribedIn("SERVERS"), TypesOf(server));
}

TEST_F(ConfPage, DescribesTheMembersOfAService) {
    Json::Value service;
    ServiceConf(JsonOf(R"({"id":"x","port":1,"ext_port":2})"), false).Write(service, true);
    EXPECT_EQ(DescribedIn("SERVICES"), TypesOf(service));
}

TEST_F(ConfPage, HasAnExampleThatTheDaemonCanUse) {
    WriteText("/etc/ardv/services.d/x.json",
              R"([{"service":"dms_https","ports":["5001"]},{"service":"ssh","ports":["22"]}])");
    WriteText(kConfigFile, Example());
    const auto result = RunProgram({ARDV_DAEMON, "--check-config"});
    EXPECT_EQ(result.exitCode, ardv::daemon::kExitSuccess);
    EXPECT_EQ(result.err, "");
    const RelaydConf configuration(kConfigFile);
    EXPECT_TRUE(configuration.GetEnableConf());
    EXPECT_EQ(configuration.GetAliasConf().GetAliasName(), "attic");
    EXPECT_EQ(configuration.GetLogLevel(), 5);
    EXPECT_EQ(configuration.GetServices().size(), 2U);
    EXPECT_TRUE(configuration.GetServices()[0].IsValid());
}
