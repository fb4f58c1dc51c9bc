// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "ardvrelayctl_daemon.h"

namespace ardv::test {

inline constexpr const char kHealthy[] =
    R"({"tethra":{"enabled":true},"server_alias":{"alias":"attic","url":"https://127.0.0.1"},)"
    R"("server_global":{"host":"127.0.0.1"},"server_control":{"host":"127.0.0.1","protocol":"https"},)"
    R"("server_waitcmd":{"host":"localhost","protocol":"https"}})";

/** A device with nothing wrong about it but what belongs to the machine. */
class ArdvrelayctlDoctor : public ArdvrelayctlDaemon {
protected:
    ArdvrelayctlDoctor() {
        WriteText(kConfigFile, kHealthy);
        PublishAlias("attic", "success");
    }

    static Json::Value Find(const std::string& check) {
        const Json::Value report = RunJson({"doctor"});
        for (const auto& row : report["checks"]) {
            if (row["check"] == check) {
                return row;
            }
        }
        ADD_FAILURE() << "there is no check " << check;
        return {};
    }

    static void Expect(const std::string& check, const std::string& level, const std::string& finding,
                       const std::string& advice) {
        const Json::Value row = Find(check);
        EXPECT_EQ(row["level"], level) << row;
        EXPECT_THAT(row["finding"].asString(), testing::HasSubstr(finding)) << check;
        EXPECT_THAT(row["advice"].asString(), testing::HasSubstr(advice)) << check;
    }
};

}  // namespace ardv::test
