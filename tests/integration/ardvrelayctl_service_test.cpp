// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <filesystem>

#include "ardvrelayctl_device.h"

namespace ardv::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

constexpr const char kNothingPermitted[] = R"([{"id":"mobile_apps","enabled":false}])";
constexpr const char kWebDavSettings[] = "/var/packages/WebDAVServer/target/etc/webdav.cfg";

/** A device with its usual services, on which the service is in use. */
class ArdvrelayctlService : public ArdvrelayctlDevice {
protected:
    ArdvrelayctlService() {
        OfferUsualServices();
        WriteText(kConfigFile, "{\"tethra\":{\"enabled\":true}}");
    }

    static ProgramResult Service(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "service");
        return Run(std::move(arguments));
    }

    /** The list in the file. */
    static Json::Value List() { return JsonOf(ReadText(kConfigFile))["service"]; }

    static std::vector<std::string> Ids(const Json::Value& list) {
        std::vector<std::string> ids;
        for (const auto& element : list) {
            ids.push_back(element["id"].asString());
        }
        return ids;
    }

    static Json::Value RowOf(const std::string& id) {
        const Json::Value report = RunJson({"service", "list", "--all"});
        for (const auto& row : report["services"]) {
            if (row["id"] == id) {
                return row;
            }
        }
        return {};
    }
};

TEST_F(ArdvrelayctlService, GeneratesTheListOfWhatIsPermittedAndOn) {
    const auto result = Service({"generate"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_THAT(result.out,
                HasSubstr("ID                  NAME       PORT  OUTSIDE\nhos                 HOS:http   5000  -\n"));
    EXPECT_THAT(Ids(List()), ElementsAre("hos", "hos_https", "http", "dms_https", "file_sharing", "file_sharing_https",
                                         "hos_portal", "hos_portal_https"));
    EXPECT_EQ(
        ReadText(kPermissionFile),
        "[\n   {\n      \"enabled\" : true,\n      \"id\" : \"mobile_apps\"\n   },\n   {\n      \"enabled\" : true,\n "
        "     \"id\" : \"file_sharing\"\n   },\n   {\n      \"enabled\" : true,\n      \"id\" : \"hos_portal\"\n   "
        "}\n]\n");
}

TEST_F(ArdvrelayctlService, GeneratesAnEmptyListWhileTheServiceIsSwitchedOff) {
    WriteText(kConfigFile, "{\"mine\":1}");
    const auto result = Service({"generate"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out, "no service is listed\n");
    EXPECT_THAT(result.err, HasSubstr("'ardvrelayctl config set tethra.enabled true' switches it on"));
    EXPECT_EQ(ReadText(kConfigFile), "{\n   \"mine\" : 1,\n   \"service\" : []\n}\n");
}

TEST_F(ArdvrelayctlService, GeneratesTheSupportersListWhateverTheOwnerDenies) {
    WriteText(kConfigFile, "{\"support_channel\":{\"enabled\":true}}");
    Run({"permission", "deny", "hos_portal"});
    const auto result = Service({"generate"});
    EXPECT_EQ(result.err, "");
    EXPECT_THAT(Ids(List()), testing::Contains("support_hos_portal"));
    EXPECT_THAT(Ids(List()), Not(testing::Contains("hos_portal")));
}

TEST_F(ArdvrelayctlService, ListsServicesWithTheirPorts) {
    WriteText(kDeviceSettings, "external_port_hos_http=\"8080\"\n");
    WriteText(kConfigFile,
              R"({"service":[{"id":"hos"},{"id":"own","port":7,"name":"x"},{"id":"telnet"},{"id":"hos"},5]})");
    EXPECT_EQ(Service({"list"}).out,
              "ID      NAME      PORT  OUTSIDE\n"
              "hos     HOS:http  5000  8080\n"
              "own     x         7     -\n"
              "telnet            -     -        not offered: this device has no port for it\n");
    EXPECT_EQ(RunJson({"service", "list"})["services"], JsonOf(R"([
        {"id":"hos","name":"HOS:http","port":5000,"ext_port":8080,"offered":true},
        {"id":"own","name":"x","port":7,"offered":true},
        {"id":"telnet","offered":false}])"));
}

TEST_F(ArdvrelayctlService, ListsNamesFitForATerminal) {
    Offer(R"([{"service":"http","display_name":"\u001b[2Jred\nline \u202e","ports":["80"]}])");
    WriteText(kConfigFile, R"({"service":[{"id":"http"}]})");
    const auto result = Service({"list"});
    EXPECT_THAT(result.out, HasSubstr("http  ?[2Jred?line ?  80"));
    EXPECT_EQ(RunJson({"service", "list"})["services"][0]["name"], "\x1b[2Jred\nline \xE2\x80\xAE");
}

TEST_F(ArdvrelayctlService, AddsAServiceAndLeavesTheRestOfTheFile) {
    Service({"generate"});
    WriteText(kConfigFile, R"({"mine":[1],"tethra":{"enabled":true},"service":[{"id":"own","port":7,"note":"kept"}]})");
    const auto result = Service({"add", "http"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, "http: offered\n");
    EXPECT_EQ(JsonOf(ReadText(kConfigFile)), JsonOf(R"({"mine":[1],"tethra":{"enabled":true},
                         "service":[{"id":"own","port":7,"note":"kept"},{"id":"http"}]})"));
    EXPECT_EQ(Service({"add", "http"}).out, "http: offered already\n");
    EXPECT_EQ(List().size(), 2U);
    EXPECT_EQ(RunJson({"service", "add", "http"}), JsonOf(R"({"id":"http","offered":true,"changed":false})"));
}

TEST_F(ArdvrelayctlService, SaysThatAnAddedServiceWaitsForTheSwitch) {
    WriteText(kConfigFile, "{}");
    Run({"permission", "allow", "mobile_apps"});
    const auto result = Service({"add", "http"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.err, HasSubstr("config set tethra.enabled true"));
}

TEST_F(ArdvrelayctlService, RemovesAServiceAndLeavesTheRestOfTheFile) {
    WriteText(kConfigFile,
              R"({"mine":1,"service":[{"id":"http"},{"id":"telnet"},{"id":"own","port":7},{"id":"http"}]})");
    EXPECT_EQ(Service({"remove", "http"}).out, "http: no longer offered\n");
    EXPECT_EQ(JsonOf(ReadText(kConfigFile)), JsonOf(R"({"mine":1,"service":[{"id":"telnet"},{"id":"own","port":7}]})"));
    EXPECT_EQ(Service({"remove", "telnet"}).exitCode, 0) << "though this device does not offer it";
    const std::string text = ReadText(kConfigFile);
    const auto result = Service({"remove", "http"});
    EXPECT_EQ(result.exitCode, 4);
    EXPECT_THAT(result.err, HasSubstr("http is not in the list"));
    EXPECT_EQ(ReadText(kConfigFile), text);
}

TEST_F(ArdvrelayctlService, KeepsWhatTheFileSaysOfAServiceWhenItGenerates) {
    WriteText(kConfigFile,
              R"({"tethra":{"enabled":true},"service":[{"id":"http","port":8080},{"id":"own","port":1}]})");
    Service({"generate"});
    EXPECT_EQ(List()[2], JsonOf(R"({"id":"http","port":8080})"));
    EXPECT_THAT(Ids(List()), Not(testing::Contains("own")));
}

struct ObstacleCase {
    const char* name;
    const char* id;
    void (*prepare)();
    const char* test;
    const char* reason;
};

class ArdvrelayctlObstacle : public ArdvrelayctlService, public testing::WithParamInterface<ObstacleCase> {};

TEST_P(ArdvrelayctlObstacle, IsExplainedByTheListAndByARefusal) {
    Service({"generate"});
    GetParam().prepare();
    const auto row = RowOf(GetParam().id);
    EXPECT_EQ(row["test"], GetParam().test);
    EXPECT_THAT(row["reason"].asString(), HasSubstr(GetParam().reason));
    const std::string text = ReadText(kConfigFile);
    const auto result = Service({"add", GetParam().id});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_THAT(result.err, HasSubstr(GetParam().reason));
    EXPECT_EQ(ReadText(kConfigFile), text);
}

void RemoveList() {
    WriteText(kConfigFile, "{}");
}

INSTANTIATE_TEST_SUITE_P(
    EachTest, ArdvrelayctlObstacle,
    testing::Values(
        ObstacleCase{"DeniedGroup", "hos",
                     [] {
                         RemoveList();
                         WriteText(kPermissionFile,
                                   R"([{"id":"mobile_apps","enabled":false},{"id":"filara","enabled":true}])");
                     },
                     "permission", "the group mobile_apps is denied: 'ardvrelayctl permission allow mobile_apps'"},
        ObstacleCase{"NothingPermitted", "http",
                     [] {
                         RemoveList();
                         WriteText(kPermissionFile, kNothingPermitted);
                     },
                     "permission", "no group of services is permitted"},
        ObstacleCase{"NothingDecided", "hos",
                     [] {
                         RemoveList();
                         std::filesystem::remove(kPermissionFile);
                     },
                     "permission", "it is not permitted yet: 'ardvrelayctl service generate'"},
        ObstacleCase{"Setting", "ssh", [] {}, "setting", "supportssh is not \"yes\" in /etc/ardvinfo.conf"},
        ObstacleCase{"Check", "hos_portal",
                     [] {
                         RemoveList();
                         WriteText(kWebSettings, "https_redirect=\"yes\"\n");
                     },
                     "check", "redirects HTTP to HTTPS"},
        ObstacleCase{"Unit", "telnet", [] {}, "unit", "inetd.service is not active"},
        ObstacleCase{"Package", "audio_http", [] {}, "package", "the package Sonara is not installed"},
        ObstacleCase{"PackageOfAService", "webdav_http", [] { WriteText(kWebDavSettings, "enable_http=\"yes\"\n"); },
                     "package", "the package WebDAVServer is not installed"},
        ObstacleCase{"Port", "https", [] {}, "port", "no port for it"},
        ObstacleCase{"Http2", "hos_portal_http2", [] {}, "port", "HTTP/2 is off"}),
    [](const auto& each) { return std::string(each.param.name); });

TEST_F(ArdvrelayctlService, ListsEveryServiceThatTheRelayCanCarryOnce) {
    Service({"generate"});
    InstallPackage("Drivara");
    const auto rows = RunJson({"service", "list", "--all"})["services"];
    EXPECT_EQ(rows.size(), 22U);
    const auto web = RowOf("http");
    EXPECT_EQ(web["group"], "");
    EXPECT_EQ(web["port"], 80);
    for (const char* fact : {"offered", "permitted", "on"}) {
        EXPECT_EQ(web[fact], true) << fact;
    }
    EXPECT_EQ(web["reason"], "");
    EXPECT_EQ(RowOf("filara")["on"], true) << "one of its two packages is enough";
    EXPECT_THAT(Service({"list", "--all"}).out,
                HasSubstr("\nssh                 no       yes        no   22    it is switched off: supportssh"));
}

TEST_F(ArdvrelayctlService, SaysWhatIsLeftToDoForAServiceThatIsReady) {
    Service({"generate"});
    Service({"remove", "http"});
    auto row = RowOf("http");
    EXPECT_EQ(row["test"], "list");
    EXPECT_EQ(row["reason"], "not in the list: 'ardvrelayctl service add http'");
    EXPECT_EQ(Service({"add", "http"}).exitCode, 0);
    EXPECT_EQ(RowOf("http")["reason"], "");
    Run({"config", "set", "tethra.enabled", "false"});
    row = RowOf("http");
    EXPECT_EQ(row["test"], "switch");
    EXPECT_EQ(row["reason"], "the service is switched off: 'ardvrelayctl config set tethra.enabled true'");
    EXPECT_EQ(RowOf("telnet")["test"], "unit") << "which the switch would not help";
    EXPECT_THAT(Service({"list", "--all"}).out,
                HasSubstr("yes  80    the service is switched off: 'ardvrelayctl config set tethra.enabled true'\n"));
}

TEST_F(ArdvrelayctlService, SaysThatOneOfTwoPackagesIsEnoughForTheGeneratedList) {
    Offer(R"([{"service":"drivara","display_name":"Drive","ports":["6690"]}])");
    InstallPackage("Drivara");
    Service({"generate"});
    EXPECT_THAT(Ids(List()), ElementsAre("filara"));
    Service({"remove", "filara"});
    EXPECT_EQ(RowOf("filara")["reason"], "not in the list: 'ardvrelayctl service generate'");
    EXPECT_THAT(Service({"add", "filara"}).err, HasSubstr("the package Filara is not installed or not enabled; "
                                                          "'ardvrelayctl service generate' is content with one"));
    InstallPackage("Filara");
    EXPECT_EQ(Service({"add", "filara"}).exitCode, 0);
    Service({"generate"});
    EXPECT_THAT(Ids(List()), ElementsAre("filara")) << "and not twice";
}

TEST_F(ArdvrelayctlService, RefusesAnIdentifierThatNobodyKnows) {
    const auto result = Service({"add", "none\x1bsuch"});
    EXPECT_EQ(result.exitCode, 4);
    EXPECT_THAT(result.err, HasSubstr("this device knows no service none?such: 'ardvrelayctl service list --all'"));
    OfferAtPort("own", "7000");
    EXPECT_EQ(Service({"add", "own"}).exitCode, 0) << "which the device has";
    EXPECT_EQ(Service({"add", "telnet"}).exitCode, 3) << "which the device lacks, and could have";
    EXPECT_EQ(Service({"add", ""}).exitCode, 64);
    EXPECT_EQ(Service({"add"}).exitCode, 64);
    EXPECT_EQ(Service({}).exitCode, 64);
}

class ArdvrelayctlPermission : public ArdvrelayctlService {
protected:
    static std::string StateOf(const std::string& group) {
        const Json::Value report = RunJson({"permission", "list"});
        for (const auto& row : report["groups"]) {
            if (row["id"] == group) {
                return row["state"].asString();
            }
        }
        return {};
    }
};

TEST_F(ArdvrelayctlPermission, ListsTheGroupsAndTheirServices) {
    const auto groups = RunJson({"permission", "list"})["groups"];
    EXPECT_THAT(Ids(groups),
                ElementsAre("mobile_apps", "pictara", "filara", "file_sharing", "hos_portal", "photo_portal"));
    EXPECT_EQ(groups[1]["services"], JsonOf(R"(["photo_http","photo_https"])"));
    EXPECT_EQ(StateOf("hos_portal"), "new");
    EXPECT_EQ(StateOf("pictara"), "absent");
    EXPECT_FALSE(std::filesystem::exists(kPermissionFile)) << "which changes nothing";
    WriteText(kPermissionFile, R"([5,{"id":"hos_portal","enabled":false},{"id":"file_sharing","enabled":true}])");
    EXPECT_EQ(StateOf("hos_portal"), "denied");
    EXPECT_EQ(StateOf("file_sharing"), "permitted");
    const auto result = Run({"permission", "list"});
    EXPECT_THAT(result.out, HasSubstr("\nfile_sharing  permitted  "));
    EXPECT_THAT(result.out, HasSubstr("\nfilara        not on this device  "));
}

struct ChoiceCase {
    const char* name;
    const char* text;
    const char* before;
    const char* after;
};

class ArdvrelayctlChoice : public ArdvrelayctlPermission, public testing::WithParamInterface<ChoiceCase> {};

TEST_P(ArdvrelayctlChoice, IsShownAsTheNextListFollowsIt) {
    WriteText(kConfigFile, R"({"tethra":{"enabled":true}})");
    WriteText(kPermissionFile, GetParam().text);
    EXPECT_EQ(StateOf("hos_portal"), GetParam().before);
    Service({"generate"});
    EXPECT_EQ(StateOf("hos_portal"), GetParam().after);
    const auto ids = Ids(List());
    EXPECT_EQ(std::find(ids.begin(), ids.end(), "hos_portal") != ids.end(),
              GetParam().after == std::string("permitted"));
}

INSTANTIATE_TEST_SUITE_P(
    EachSpelling, ArdvrelayctlChoice,
    testing::Values(ChoiceCase{"True", R"([{"id":"hos_portal","enabled":true}])", "permitted", "permitted"},
                    ChoiceCase{"Number", R"([{"id":"hos_portal","enabled":1}])", "new", "permitted"},
                    ChoiceCase{"Zero", R"([{"id":"hos_portal","enabled":0}])", "denied", "denied"},
                    ChoiceCase{"Text", R"([{"id":"hos_portal","enabled":"true"}])", "denied", "denied"},
                    ChoiceCase{"NoChoice", R"([{"id":"hos_portal"}])", "new", "permitted"},
                    ChoiceCase{"FirstOfTwo",
                               R"([{"id":"hos_portal","enabled":false},{"id":"hos_portal","enabled":true}])", "denied",
                               "denied"},
                    ChoiceCase{"TheOneWithBothMembers", R"([{"id":"hos_portal"},{"id":"hos_portal","enabled":false}])",
                               "denied", "denied"}),
    [](const auto& each) { return std::string(each.param.name); });

TEST_F(ArdvrelayctlPermission, SaysWhichDenialsItDrops) {
    const std::string text = R"([{"id":"filara","enabled":false},{"id":"pictara","enabled":true},
                                 {"id":"hos_portal","enabled":false}])";
    for (const auto& arguments :
         std::vector<std::vector<std::string>>{{"permission", "deny", "mobile_apps"}, {"service", "generate"}}) {
        WriteText(kPermissionFile, text);
        const auto result = Run(arguments);
        EXPECT_EQ(result.exitCode, 0) << result.err;
        EXPECT_THAT(result.err, HasSubstr("the denial of the group filara is dropped"));
        EXPECT_THAT(result.err, Not(HasSubstr("pictara")));
        EXPECT_THAT(result.err, Not(HasSubstr("hos_portal")));
    }
}

TEST_F(ArdvrelayctlPermission, ChangesOneEntryOfAFileThatIsUpToDate) {
    std::filesystem::remove_all(kConfigFolder);
    const auto result = Run({"permission", "deny", "hos_portal"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, "hos_portal: denied; 'ardvrelayctl service generate' puts it into effect\n");
    EXPECT_EQ(JsonOf(ReadText(kPermissionFile)),
              JsonOf(R"([{"id":"mobile_apps","enabled":true},{"id":"file_sharing","enabled":true},
                         {"id":"hos_portal","enabled":false}])"));
    EXPECT_EQ(RunJson({"permission", "deny", "mobile_apps"})["state"], "denied");
    EXPECT_EQ(StateOf("hos_portal"), "denied") << "the other choice stays";
    EXPECT_EQ(Run({"permission", "allow", "hos_portal"}).exitCode, 0);
    EXPECT_EQ(StateOf("hos_portal"), "permitted");
}

TEST_F(ArdvrelayctlPermission, RefusesAGroupThatIsNotOnTheDevice) {
    const auto result = Run({"permission", "deny", "photo_portal"});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_THAT(result.err, HasSubstr("photo_portal is not on this device"));
    InstallPackage("Pictara");
    EXPECT_EQ(Run({"permission", "deny", "photo_portal"}).exitCode, 0);
    EXPECT_EQ(Run({"permission", "deny", "nonesuch"}).exitCode, 64);
    EXPECT_EQ(Run({"permission", "deny"}).exitCode, 64);
}

struct DamagedCase {
    const char* name;
    std::string text;
};

class ArdvrelayctlDamagedPermission : public ArdvrelayctlService, public testing::WithParamInterface<DamagedCase> {};

TEST_P(ArdvrelayctlDamagedPermission, IsRefusedAndStaysWhereItIs) {
    WriteText(kPermissionFile, GetParam().text);
    for (const auto& arguments : std::vector<std::vector<std::string>>{{"permission", "list"},
                                                                       {"permission", "allow", "hos_portal"},
                                                                       {"service", "list", "--all"},
                                                                       {"service", "add", "http"},
                                                                       {"service", "generate"}}) {
        const auto result = Run(arguments);
        EXPECT_EQ(result.exitCode, 78) << arguments[1];
        EXPECT_THAT(result.err, HasSubstr(kPermissionFile));
    }
    EXPECT_TRUE(ReadText(kPermissionFile) == GetParam().text);
    EXPECT_FALSE(std::filesystem::exists(std::string(kPermissionFile) + ".bad"));
}

INSTANTIATE_TEST_SUITE_P(EachFile, ArdvrelayctlDamagedPermission,
                         testing::Values(DamagedCase{"NoJson", "[{"}, DamagedCase{"Object", "{}"},
                                         DamagedCase{"DeepNesting", std::string(5000, '[')},
                                         DamagedCase{"TwoMebibytes", "[]" + std::string(2U << 20U, ' ')}),
                         [](const auto& each) { return std::string(each.param.name); });

}  // namespace
}  // namespace ardv::test
