// SPDX-License-Identifier: Apache-2.0
#include <filesystem>

#include "ardvrelayctl_device.h"

namespace ardv::test {
namespace {

using testing::HasSubstr;

/** The tool in the hands of somebody who is not root. */
class ArdvrelayctlRights : public ArdvrelayctlDevice {
protected:
    void SetUp() override {
        OfferUsualServices();
        if (RunAsSomebody({"--version"}).exitCode != 0) {
            GTEST_SKIP() << "this machine lets no other user run the tool";
        }
    }

    static ProgramResult RunAsSomebody(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(),
                         {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", ARDV_RELAYCTL});
        return RunProgram(arguments);
    }
};

TEST_F(ArdvrelayctlRights, AreNeededToChangeAnything) {
    WriteText(kConfigFile, R"({"tethra":{"enabled":true}})");
    const std::string configuration = ReadText(kConfigFile);
    const std::string identity = ReadText(kIdentityFile);
    for (const auto& arguments : std::vector<std::vector<std::string>>{{"config", "set", "log_level", "5"},
                                                                       {"config", "unset", "tethra.enabled"},
                                                                       {"permission", "deny", "hos_portal"},
                                                                       {"service", "generate"},
                                                                       {"identity", "init", "--force"}}) {
        const auto result = RunAsSomebody(arguments);
        EXPECT_EQ(result.exitCode, 77) << arguments[0] << ' ' << arguments[1];
        EXPECT_THAT(result.err, HasSubstr("cannot write "));
    }
    EXPECT_EQ(ReadText(kConfigFile), configuration);
    EXPECT_EQ(ReadText(kIdentityFile), identity);
    EXPECT_FALSE(std::filesystem::exists(kPermissionFile));
}

TEST_F(ArdvrelayctlRights, AreNotNeededToLook) {
    WriteText(kConfigFile, R"({"service":[{"id":"http"}]})");
    for (const auto& arguments : std::vector<std::vector<std::string>>{{"config", "show"},
                                                                       {"config", "get", "log_level"},
                                                                       {"config", "check"},
                                                                       {"service", "list"},
                                                                       {"service", "list", "--all"},
                                                                       {"permission", "list"},
                                                                       {"network", "show"}}) {
        EXPECT_EQ(RunAsSomebody(arguments).exitCode, 0) << arguments[0] << ' ' << arguments[1];
    }
}

TEST_F(ArdvrelayctlRights, AreNeededToUseTheIdentity) {
    std::filesystem::permissions(kIdentityFile, std::filesystem::perms(0600));
    WriteText(kConfigFile, R"({"serverID":"box-1","server_alias":{"alias":"attic"}})");
    for (const auto& arguments : std::vector<std::vector<std::string>>{
             {"identity", "show", "--show-secrets"}, {"alias", "map", "--dry-run"}, {"alias", "query", "--dry-run"}}) {
        const auto result = RunAsSomebody(arguments);
        EXPECT_EQ(result.exitCode, 77) << arguments[0];
        EXPECT_EQ(result.err, "ardvrelayctl: you may not read the device's identity: run this as root\n");
    }
    EXPECT_THAT(RunAsSomebody({"identity", "show", "--show-secrets"}).out, HasSubstr("token: (none)\n"));
    const auto report = JsonOf(RunAsSomebody({"identity", "show", "--json"}).out);
    EXPECT_EQ(report["exit_code"], 77);
    std::filesystem::remove(kIdentityFile);
    EXPECT_EQ(RunAsSomebody({"identity", "show"}).exitCode, 78) << "which root could not read either";
}

TEST_F(ArdvrelayctlRights, AreMissingForAConfigurationThatIsClosed) {
    WriteText(kConfigFile, "{}");
    std::filesystem::permissions(kConfigFile, std::filesystem::perms(0600));
    const auto result = RunAsSomebody({"config", "show"});
    EXPECT_EQ(result.exitCode, 77);
    EXPECT_THAT(result.err, HasSubstr("cannot read the configuration"));
    const auto report = JsonOf(RunAsSomebody({"config", "check", "--json"}).out);
    EXPECT_EQ(report["valid"], false) << "what cannot be read cannot be found good";
    EXPECT_EQ(report["exit_code"], 77);
    EXPECT_EQ(RunAsSomebody({"config", "check"}).exitCode, 77);
    WriteText(kPermissionFile, "{}");
    EXPECT_EQ(RunAsSomebody({"config", "check"}).exitCode, 78) << "for a fault that is found in another file";
}

}  // namespace
}  // namespace ardv::test
