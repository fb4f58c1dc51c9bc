// SPDX-License-Identifier: Apache-2.0
#include <filesystem>
#include <utility>

#include "ardvrelayctl_device.h"

namespace ardv::test {
namespace {

using testing::HasSubstr;

constexpr const char kFile[] = "/etc/some.conf";

class ArdvrelayctlCheck : public ArdvrelayctlDevice {
protected:
    static ProgramResult Check(std::vector<std::string> arguments = {}) {
        arguments.insert(arguments.begin(), {"config", "check"});
        return Run(std::move(arguments));
    }
};

struct CheckCase {
    const char* name;
    std::string text;
    const char* level;
    const char* key;
    const char* reason;
};

class ArdvrelayctlFinding : public ArdvrelayctlCheck, public testing::WithParamInterface<CheckCase> {};

TEST_P(ArdvrelayctlFinding, NamesFileKeyLevelAndReason) {
    OfferUsualServices();
    WriteText(kFile, GetParam().text);
    const bool isError = GetParam().level == std::string("error");
    const auto report = RunJson({"config", "check", kFile});
    EXPECT_EQ(report["valid"], !isError);
    EXPECT_EQ(report["exit_code"], isError ? Json::Value(78) : Json::Value());
    EXPECT_EQ(report.isMember("error"), isError);
    ASSERT_EQ(report["findings"].size(), 1U) << report;
    const auto& finding = report["findings"][0];
    EXPECT_EQ(finding["file"], kFile);
    EXPECT_EQ(finding["key"], GetParam().key);
    EXPECT_EQ(finding["level"], GetParam().level);
    EXPECT_THAT(finding["reason"].asString(), HasSubstr(GetParam().reason));
    const auto result = Check({kFile});
    EXPECT_EQ(result.exitCode, isError ? 78 : 0);
    EXPECT_THAT(result.out, testing::StartsWith(std::string(kFile) + ": " + GetParam().level + ": "));
    EXPECT_EQ(Check({kFile, "--strict"}).exitCode, 78);
    EXPECT_TRUE(ReadText(kFile) == GetParam().text) << "the file stays as it is";
    EXPECT_FALSE(std::filesystem::exists(std::string(kFile) + ".bad"));
}

INSTANTIATE_TEST_SUITE_P(
    EachFault, ArdvrelayctlFinding,
    testing::Values(
        CheckCase{"MissingColon", "{\n \"a\" 1\n}", "error", "", "line 2, column 6: Missing ':'"},
        CheckCase{"NoNumber", "{\"a\":\n-.}", "error", "", "line 2, column 1: this is not a number"},
        CheckCase{"Nothing", "", "error", "", "line 1, column 1"},
        CheckCase{"DeepNesting", "{\"a\":" + std::string(5000, '['), "error", "", "too many values within each other"},
        CheckCase{"TwoMebibytes", std::string(2U << 20U, ' '), "error", "", "too large"},
        CheckCase{"SecondObject", "{} // once\n/* and */\n  {\"a\":1}", "error", "",
                  "line 3, column 3: there is more text"},
        CheckCase{"RubbishBehind", "{}\n}", "error", "", "line 2, column 1: there is more text"},
        CheckCase{"OpenCommentBehind", "{} /* {", "error", "", "line 1, column 4: there is more text"},
        CheckCase{"Array", "[]", "error", "", "must be a JSON object"},
        CheckCase{"KeyTwice", R"({"log_level":4,"log_level":5})", "warning", "", "has a key twice"},
        CheckCase{"UnknownKey", R"({"nonesuch":1})", "warning", "nonesuch", "is not known"},
        CheckCase{"UnknownKeyInAGroup", R"({"tethra":{"on":1}})", "warning", "tethra.on", "is not known"},
        CheckCase{"RunTimeMember", R"({"pid":1})", "warning", "pid", "is ignored"},
        CheckCase{"TypeOfAText", R"({"serverID":1})", "error", "serverID", "must be a string"},
        CheckCase{"TypeOfAnInteger", R"({"log_level":"4"})", "error", "log_level", "must be an integer"},
        CheckCase{"HugeInteger", R"({"log_level":4000000000000})", "error", "log_level", "must be an integer"},
        CheckCase{"TypeOfABoolean", R"({"disable_holepunch":1})", "error", "disable_holepunch", "must be a boolean"},
        CheckCase{"TypeOfAGroup", R"({"tethra":true})", "error", "tethra", "must be an object"},
        CheckCase{"TypeOfTheServices", R"({"service":{}})", "error", "service", "must be an array"},
        CheckCase{"Range", R"({"server_alias":{"poll_seconds":0}})", "error", "server_alias.poll_seconds", "1 or more"},
        CheckCase{"Protocol", R"({"server_global":{"protocol":"HTTP"}})", "error", "server_global.protocol", "http"},
        CheckCase{"ServerWithoutAHost", R"({"server_waitcmd":{"host":""}})", "error", "server_waitcmd", "needs a"},
        CheckCase{"ServiceWithoutAnId", R"({"service":[{"id":"http"},{"port":1}]})", "error", "service[1]", "\"id\""},
        CheckCase{"ServiceThatIsNoObject", R"({"service":["http"]})", "error", "service[0]", "\"id\""},
        CheckCase{"ServicePort", R"({"service":[{"id":"http","port":70000}]})", "error", "service[0].port", "a port"},
        CheckCase{"ServiceThatIsNotOffered", R"({"service":[{"id":"telnet"}]})", "warning", "service[0]",
                  "no port for the service \"telnet\""},
        CheckCase{"ServiceTwice", R"({"service":[{"id":"http"},{"id":"http"}]})", "warning", "service[1]",
                  "a second time"},
        CheckCase{"UnknownMemberOfAService", R"({"service":[{"id":"http","x":1}]})", "warning", "service[0].x",
                  "is not known"}),
    [](const auto& each) { return std::string(each.param.name); });

TEST_F(ArdvrelayctlCheck, FindsNoFaultInAGoodFile) {
    OfferUsualServices();
    WriteText(kConfigFile, R"({"serverID":"box-1","log_level":5.0,"service":[{"id":"http"},{"id":"own","port":1}]})");
    WriteText(kEnvironmentFile, R"({"relay_region":"eu","ddns_domain":"direct.zz"})");
    WriteText(kPermissionFile, R"([{"id":"hos_portal","enabled":false}])");
    const auto result = Check({"--strict"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out, "no fault found\n");
    EXPECT_EQ(RunJson({"config", "check"}), JsonOf(R"({"valid":true,"findings":[]})"));
}

TEST_F(ArdvrelayctlCheck, FindsNoFaultInCommentsBehindTheObject) {
    WriteText(kFile, "{} // one\n/* two */\n//three");
    EXPECT_EQ(Check({kFile, "--strict"}).out, "no fault found\n");
}

TEST_F(ArdvrelayctlCheck, RefusesToEditAFileWithTextThatAnEditWouldLose) {
    const std::vector<std::pair<const char*, std::vector<std::vector<std::string>>>> edits = {
        {kConfigFile,
         {{"config", "set", "log_level", "5"}, {"config", "unset", "log_level"}, {"service", "remove", "own"}}},
        {kPermissionFile, {{"permission", "deny", "hos_portal"}, {"service", "generate"}}}};
    OfferUsualServices();
    for (const auto& [file, commands] : edits) {
        const std::string text =
            file == kConfigFile ? R"({"log_level":4,"service":[{"id":"own"}]} {"mine":1})" : "[] [1]";
        WriteText(file, text);
        for (const auto& arguments : commands) {
            const auto result = Run(arguments);
            EXPECT_EQ(result.exitCode, 78) << arguments[1];
            EXPECT_THAT(result.err, HasSubstr(std::string(file) + " is damaged"));
            EXPECT_THAT(result.err, HasSubstr("more text behind its"));
            EXPECT_TRUE(ReadText(file) == text) << arguments[1];
        }
        std::filesystem::remove(file);
    }
}

TEST_F(ArdvrelayctlCheck, WarnsWhereTheDefaultsHold) {
    EXPECT_EQ(Check().exitCode, 0);
    EXPECT_THAT(Check().out, HasSubstr(": warning: does not exist: the defaults hold\n"));
    EXPECT_EQ(Check({"/etc/nonesuch.conf"}).exitCode, 78) << "a file that is named must be there";
}

TEST_F(ArdvrelayctlCheck, TakesNoDefaultsForAFileThatIsNamedAndMissing) {
    for (const auto& arguments : std::vector<std::vector<std::string>>{{"config", "check"},
                                                                       {"config", "show"},
                                                                       {"config", "get", "log_level"},
                                                                       {"service", "list"},
                                                                       {"service", "list", "--all"}}) {
        EXPECT_EQ(Run(arguments).exitCode, 0) << arguments[1];
        auto named = arguments;
        named.insert(named.begin(), {"--config", "/etc/nonesuch.conf"});
        const auto result = Run(named);
        EXPECT_EQ(result.exitCode, 78) << arguments[1];
        EXPECT_THAT(result.out + result.err, HasSubstr("does not exist"));
    }
    EXPECT_EQ(Run({"--config", "/etc/new.conf", "config", "set", "log_level", "5"}).exitCode, 0) << "which makes it";
}

struct NeighbourCase {
    const char* name;
    const char* file;
    const char* text;
    const char* level;
    const char* key;
};

class ArdvrelayctlNeighbour : public ArdvrelayctlCheck, public testing::WithParamInterface<NeighbourCase> {};

TEST_P(ArdvrelayctlNeighbour, IsCheckedTooUnlessAFileIsNamed) {
    const std::string file = std::string(kConfigFolder) + "/" + GetParam().file;
    WriteText("/etc/other/main.conf", "{}");
    WriteText(std::string("/etc/other/") + GetParam().file, "is read by nobody");
    WriteText(file, GetParam().text);
    const auto report = RunJson({"--config", "/etc/other/main.conf", "config", "check"});
    ASSERT_EQ(report["findings"].size(), 1U) << report;
    EXPECT_EQ(report["findings"][0]["file"], file);
    EXPECT_EQ(report["findings"][0]["level"], GetParam().level);
    EXPECT_EQ(report["findings"][0]["key"], GetParam().key);
    EXPECT_EQ(ReadText(file), GetParam().text);
    EXPECT_EQ(Check({"/etc/other/main.conf"}).exitCode, 0);
}

INSTANTIATE_TEST_SUITE_P(
    EachFault, ArdvrelayctlNeighbour,
    testing::Values(NeighbourCase{"DamagedEnvironment", "env.conf", "{", "error", ""},
                    NeighbourCase{"TextBehindTheEnvironment", "env.conf", "{} x", "error", ""},
                    NeighbourCase{"TextBehindThePermissions", "services.conf", "[][]", "error", ""},
                    NeighbourCase{"EnvironmentArray", "env.conf", "[]", "error", ""},
                    NeighbourCase{"RegionType", "env.conf", R"({"relay_region":1})", "error", "relay_region"},
                    NeighbourCase{"UnknownEnvironmentKey", "env.conf", R"({"x":1})", "warning", "x"},
                    NeighbourCase{"PermissionObject", "services.conf", "{}", "error", ""},
                    NeighbourCase{"PermissionWithoutId", "services.conf", R"([{"enabled":true}])", "error", "[0]"},
                    NeighbourCase{"PermissionWithoutSwitch", "services.conf", R"([{"id":"filara"}])", "error", "[0]"},
                    NeighbourCase{"PermissionSwitchOfAnotherType", "services.conf",
                                  R"([{"id":"filara","enabled":"true"}])", "error", "[0].enabled"},
                    NeighbourCase{"UnknownGroup", "services.conf", R"([{"id":"x","enabled":true}])", "warning", "[0]"},
                    NeighbourCase{"GroupTwice", "services.conf",
                                  R"([{"id":"filara","enabled":true},{"id":"filara","enabled":true}])", "warning",
                                  "[1]"}),
    [](const auto& each) { return std::string(each.param.name); });

/** A file with a number of keys that are not known, and more text behind them. */
std::string UnknownKeys(int count, const std::string& more) {
    std::string text = "{";
    for (int i = 0; i < count; ++i) {
        text += (i == 0 ? "\"" : ",\"") + std::to_string(i) + "\":1";
    }
    return text + more + "}";
}

TEST_F(ArdvrelayctlCheck, ListsNoMoreFindingsThanAnybodyReads) {
    WriteText(kFile, UnknownKeys(5000, ""));
    const auto report = RunJson({"config", "check", kFile});
    EXPECT_EQ(report["findings"].size(), 201U);
    EXPECT_EQ(report["valid"], true);
    EXPECT_EQ(report["findings"][200]["reason"], "has more warnings than are listed here");
}

TEST_F(ArdvrelayctlCheck, FindsAnErrorBehindAnyNumberOfWarnings) {
    WriteText(kFile, UnknownKeys(300, R"(,"server_global":{"protocol":"ftp"})"));
    const auto report = RunJson({"config", "check", kFile});
    EXPECT_EQ(report["valid"], false);
    EXPECT_EQ(report["findings"][0]["level"], "error") << "errors come first";
    EXPECT_EQ(report["findings"][0]["key"], "server_global.protocol");
    EXPECT_EQ(report["findings"].size(), 202U);
    EXPECT_EQ(Check({kFile}).exitCode, 78);
    EXPECT_EQ(Run({"--config", kFile, "config", "show"}).exitCode, 78) << "as with every other command";
}

TEST_F(ArdvrelayctlCheck, ListsNoMoreErrorsThanAnybodyReads) {
    std::string list;
    for (int i = 0; i < 300; ++i) {
        list += i == 0 ? "1" : ",1";
    }
    WriteText(kFile, R"({"service":[)" + list + R"(],"nonesuch":1})");
    const auto report = RunJson({"config", "check", kFile});
    ASSERT_EQ(report["findings"].size(), 202U);
    EXPECT_EQ(report["findings"][200]["reason"], "has more errors than are listed here");
    EXPECT_EQ(report["findings"][200]["level"], "error");
    EXPECT_EQ(report["findings"][201]["key"], "nonesuch");
}

TEST_F(ArdvrelayctlCheck, ShowsKeysFitForATerminal) {
    WriteText(kFile, R"({"a\u001b[2J\nb":1})");
    EXPECT_EQ(Check({kFile}).out, std::string(kFile) + ": warning: a?[2J?b is not known and ignored\n");
}

}  // namespace
}  // namespace ardv::test
