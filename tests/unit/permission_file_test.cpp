// SPDX-License-Identifier: Apache-2.0
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

#include <relay/config/support_service.h>
#include <relay/service/service_permission.h>

#include "support/device_test.h"
#include "support/systemd_calls.h"

namespace ARDV::Relay {

namespace {

namespace fs = std::filesystem;

using namespace ardv::test;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char kPermissionFile[] = "/usr/ardv/etc/ardvrelayd/services.conf";

// What a device without packages offers: web administration, file sharing and the portal.
constexpr const char kBareDevice[] = R"([{"id":"mobile_apps","enabled":true},{"id":"file_sharing","enabled":true},
                                         {"id":"hos_portal","enabled":true}])";
constexpr std::uint32_t kBareMask = 1 | 8 | 16;

const std::string kMissing = std::string("service_permission.cpp:219 invalid relayd config, ") + kPermissionFile;
const std::string kNoList = std::string("service_permission.cpp:221 Invalid relayd config, ") + kPermissionFile;
constexpr const char kBadEntry[] = "service_permission.cpp:236 Invalid service found";

/** The stored mask, as its answers show it. */
std::uint32_t StoredMask(const ServicePermission& permission) {
    std::uint32_t mask = 0;
    SupportService service = {};
    service.id = "probe";
    for (std::uint32_t bit = 1; bit != 0; bit <<= 1U) {
        service.group = static_cast<int>(bit);
        mask |= permission.IsServiceEnabled(&service, 0) ? bit : 0;
    }
    return mask;
}

/** A device without packages and without a permission file. */
class PermissionFile : public DeviceTest {
protected:
    PermissionFile() {
        fs::remove_all("/var/packages");
        fs::remove("/etc/ardv/web.conf");
    }

    ~PermissionFile() override { fs::remove_all("/var/packages"); }

    static void Install(const std::string& package) { WriteText("/var/packages/" + package + "/enabled", ""); }
    static void Remove(const std::string& package) { fs::remove_all("/var/packages/" + package); }

    /** The file after it was brought up to date from `saved`. */
    static Json::Value Generated(const std::string& saved) {
        WriteText(kPermissionFile, saved);
        ServicePermission(false).GenPermissionConf();
        return JsonOf(ReadText(kPermissionFile));
    }

    /** Lines about the file: all but the answers for each service. */
    static std::vector<std::string> GenerateLines(const std::string& saved, int level) {
        WriteText(kPermissionFile, saved);
        ServicePermission permission(false);
        const CapturedLog log(level);
        permission.GenPermissionConf();
        std::vector<std::string> lines;
        for (const auto& line : log.Lines()) {
            if (!line.starts_with("service_permission.cpp:129 ")) {
                lines.push_back(line);
            }
        }
        return lines;
    }

    SystemdCalls systemd_;
};

TEST_F(PermissionFile, IsReadIntoTheMask) {
    WriteText(kPermissionFile, R"([{"id":"pictara","enabled":true},{"id":"hos_portal","enabled":true},
                                   {"id":"filara","enabled":false},{"id":"other","enabled":true}])");
    const auto before = ReadText(kPermissionFile);
    EXPECT_EQ(StoredMask(ServicePermission(false)), 2U | 16U);
    EXPECT_EQ(ReadText(kPermissionFile), before);
}

TEST_F(PermissionFile, MissingOneGivesAnEmptyMaskAndIsNotMade) {
    const CapturedLog log;
    const ServicePermission permission(false);
    EXPECT_EQ(log.Text(), "");
    EXPECT_EQ(StoredMask(permission), 0U);
    EXPECT_FALSE(fs::exists(kPermissionFile));
}

TEST_F(PermissionFile, OneWithoutAListGivesAnEmptyMask) {
    for (const char* text : {R"({"id":"pictara","enabled":true})", "null", "5", "\"pictara\""}) {
        WriteText(kPermissionFile, text);
        EXPECT_EQ(StoredMask(ServicePermission(false)), 0U) << text;
        EXPECT_EQ(ReadText(kPermissionFile), text);
    }
}

TEST_F(PermissionFile, DamagedOneIsMovedAsideAndGivesAnEmptyMask) {
    WriteText(kPermissionFile, "[{\"id\":\"pictara\"");
    ServicePermission permission(false);
    EXPECT_EQ(StoredMask(permission), 0U);
    EXPECT_FALSE(fs::exists(kPermissionFile));
    EXPECT_TRUE(fs::exists(std::string(kPermissionFile) + ".bad"));
}

TEST_F(PermissionFile, IsMadeWithTheGroupsOfWhichAServiceIsOn) {
    const ServicePermission permission(true);
    EXPECT_EQ(ReadText(kPermissionFile),
              "[\n"
              "   {\n      \"enabled\" : true,\n      \"id\" : \"mobile_apps\"\n   },\n"
              "   {\n      \"enabled\" : true,\n      \"id\" : \"file_sharing\"\n   },\n"
              "   {\n      \"enabled\" : true,\n      \"id\" : \"hos_portal\"\n   }\n"
              "]\n");
    EXPECT_EQ(ModeOf(kPermissionFile), 0644U);
    EXPECT_EQ(StoredMask(permission), kBareMask);
}

TEST_F(PermissionFile, HasTheGroupsOfAllPackagesInTheOrderOfTheGroups) {
    for (const char* package : {"Drivara", "Sonara", "Pictara"}) {
        Install(package);
    }
    const ServicePermission permission(true);
    EXPECT_EQ(JsonOf(ReadText(kPermissionFile)), ServicePermission::MaskToJson(63));
    EXPECT_EQ(StoredMask(permission), 63U);
}

TEST_F(PermissionFile, NamesTheFileSyncGroupForEitherOfItsPackages) {
    for (const char* package : {"Filara", "Drivara"}) {
        Install(package);
        EXPECT_EQ(StoredMask(ServicePermission(true)), kBareMask | 4U) << package;
        Remove(package);
        EXPECT_EQ(StoredMask(ServicePermission(true)), kBareMask) << package;
    }
}

TEST_F(PermissionFile, ServicesThatBelongToNoGroupAddNone) {
    systemd_.unitState = 1;
    systemd_.inetdState = 1;
    WriteText(kDeviceSettings, "supportssh=\"yes\"\n");
    const CapturedLog log(7);
    const ServicePermission permission(true);
    EXPECT_THAT(log.Messages(), testing::IsSupersetOf({"service_permission.cpp telnet is enabled",
                                                       "service_permission.cpp ssh is enabled",
                                                       "service_permission.cpp https is enabled"}));
    EXPECT_EQ(JsonOf(ReadText(kPermissionFile)), JsonOf(kBareDevice));
}

TEST_F(PermissionFile, EveryServiceIsAskedForOnceInItsOrderBeforeTheFileIsRead) {
    const CapturedLog log(7);
    ServicePermission(false).GenPermissionConf();
    const auto lines = log.Lines();
    std::size_t place = 0;
    for (const auto* row = grgszSupportService; row->id; ++row, ++place) {
        ASSERT_LT(place, lines.size());
        EXPECT_THAT(lines[place], testing::StartsWith(std::string("service_permission.cpp:129 ") + row->id + " is "));
    }
    EXPECT_EQ(place, 23U);
    ASSERT_EQ(lines.size(), place + 1);
    EXPECT_EQ(lines[place], kMissing);
}

TEST_F(PermissionFile, GroupsCountAsPermittedWhileTheDeviceIsAskedWhateverTheStoredMask) {
    WriteText(kPermissionFile, "[]");
    ServicePermission permission(false);
    EXPECT_EQ(StoredMask(permission), 0U);
    permission.GenPermissionConf();
    EXPECT_EQ(JsonOf(ReadText(kPermissionFile)), JsonOf(kBareDevice));
    EXPECT_EQ(StoredMask(permission), kBareMask);
}

TEST_F(PermissionFile, ChoiceOfTheOwnerStays) {
    const char* chosen = R"([{"id":"hos_portal","enabled":false},{"id":"mobile_apps","enabled":false}])";
    EXPECT_EQ(Generated(chosen), JsonOf(R"([{"id":"mobile_apps","enabled":false},{"id":"file_sharing","enabled":true},
                                            {"id":"hos_portal","enabled":false}])"));
    const ServicePermission permission(true);
    EXPECT_EQ(StoredMask(permission), 8U);
    EXPECT_EQ(StoredMask(ServicePermission(false)), 8U);
}

TEST_F(PermissionFile, GroupThatIsGoneVanishesAndComesBackAsPermitted) {
    Install("Pictara");
    const auto with = Generated(R"([{"id":"pictara","enabled":false},{"id":"photo_portal","enabled":false}])");
    EXPECT_EQ(ServicePermission::JsonToMask(with), kBareMask);
    EXPECT_EQ(with.size(), 5U);
    Remove("Pictara");
    const ServicePermission without(true);
    EXPECT_EQ(JsonOf(ReadText(kPermissionFile)), JsonOf(kBareDevice));
    Install("Pictara");
    EXPECT_EQ(StoredMask(ServicePermission(true)), kBareMask | 2U | 32U);
}

TEST_F(PermissionFile, GroupThatComesBackTakesTheChoiceThatTheFileStillHolds) {
    WriteText(kPermissionFile, R"([{"id":"pictara","enabled":false},{"id":"photo_portal","enabled":true}])");
    Install("Pictara");
    EXPECT_EQ(StoredMask(ServicePermission(true)), kBareMask | 32U);
}

TEST_F(PermissionFile, GroupThatIsOffDoesNotAppearEvenIfItIsChosen) {
    EXPECT_EQ(Generated(R"([{"id":"pictara","enabled":true},{"id":"other","enabled":true}])"), JsonOf(kBareDevice));
}

TEST_F(PermissionFile, LosesWhatElseAnEntryHas) {
    EXPECT_EQ(Generated(R"([{"id":"mobile_apps","enabled":true,"note":"mine"}])"), JsonOf(kBareDevice));
}

TEST_F(PermissionFile, FirstEntryOfAGroupCounts) {
    const auto list = Generated(R"([{"id":"mobile_apps","enabled":false},{"id":"mobile_apps","enabled":true},
                                    {"id":"file_sharing","enabled":true},{"id":"file_sharing","enabled":false}])");
    EXPECT_EQ(ServicePermission::JsonToMask(list), 8U | 16U);
}

struct Choice {
    const char* json;
    bool isPermitted;
};

constexpr Choice kChoices[] = {
    {"true", true}, {"false", false},    {"1", true},       {"0", false},    {"-1", true},
    {"0.0", false}, {"0.5", true},       {"1.5e300", true}, {"null", false}, {"{}", false},
    {"[]", false},  {"\"true\"", false}, {"\"\"", false},
};

TEST_F(PermissionFile, ChoiceIsTakenAsABooleanAndTextIsNoPermission) {
    for (const auto& [json, isPermitted] : kChoices) {
        const auto list = Generated(std::string(R"([{"id":"mobile_apps","enabled":)") + json + "}]");
        EXPECT_EQ(list[0]["id"], Json::Value("mobile_apps"));
        EXPECT_EQ(list[0]["enabled"], Json::Value(isPermitted)) << json;
    }
}

TEST_F(PermissionFile, MalformedEntriesAreReportedAndSkipped) {
    for (const char* entry : {R"({"id":"mobile_apps"})", R"({"enabled":false})", "{}", "null", "5", "\"mobile_apps\"",
                              R"([{"id":"mobile_apps","enabled":false}])"}) {
        const auto saved = std::string("[") + entry + R"(,{"id":"mobile_apps","enabled":false}])";
        EXPECT_THAT(GenerateLines(saved, 3), ElementsAre(kBadEntry, kBadEntry, kBadEntry))
            << entry << ": once in the search for each group";
        EXPECT_EQ(ServicePermission::JsonToMask(JsonOf(ReadText(kPermissionFile))), 8U | 16U) << entry;
        EXPECT_THAT(GenerateLines(saved, 2), IsEmpty());
    }
}

TEST_F(PermissionFile, MalformedEntryBehindTheOneThatIsSoughtIsNotSeen) {
    const char* saved = R"([{"id":"mobile_apps","enabled":true},{"id":"file_sharing","enabled":true},null,
                            {"id":"hos_portal","enabled":false}])";
    EXPECT_THAT(GenerateLines(saved, 3), ElementsAre(kBadEntry));
    EXPECT_EQ(StoredMask(ServicePermission(false)), 1U | 8U);
}

TEST_F(PermissionFile, EntryWhoseIdentifierIsNoTextMatchesNoneAndIsNotReported) {
    const char* saved =
        R"([{"id":5,"enabled":false},{"id":null,"enabled":false},{"id":["mobile_apps"],"enabled":false}])";
    EXPECT_THAT(GenerateLines(saved, 7), IsEmpty());
    EXPECT_EQ(JsonOf(ReadText(kPermissionFile)), JsonOf(kBareDevice));
}

TEST_F(PermissionFile, OneWithoutAListIsReplacedWithAMessageOfLevelThree) {
    for (const char* text : {"{}", "null", "5", R"({"id":"mobile_apps","enabled":false})", "\"mobile_apps\""}) {
        EXPECT_THAT(GenerateLines(text, 3), ElementsAre(kNoList)) << text;
        EXPECT_EQ(JsonOf(ReadText(kPermissionFile)), JsonOf(kBareDevice)) << text;
        EXPECT_THAT(GenerateLines(text, 2), IsEmpty()) << text;
    }
}

TEST_F(PermissionFile, MissingOneIsAMessageOfLevelSeven) {
    ServicePermission permission(false);
    const auto generate = [&](int level) {
        fs::remove(kPermissionFile);
        const CapturedLog log(level);
        permission.GenPermissionConf();
        return log.Lines();
    };
    EXPECT_THAT(generate(7), testing::Contains(kMissing));
    EXPECT_THAT(generate(6), IsEmpty());
}

TEST_F(PermissionFile, DamagedOneIsReplacedAndKeptAside) {
    WriteText(kPermissionFile, "[");
    const CapturedLog log(3);
    const ServicePermission permission(true);
    EXPECT_THAT(log.Messages(), ElementsAre(std::string("config.cpp bad json format [") + kPermissionFile + "]"));
    EXPECT_EQ(ReadText(std::string(kPermissionFile) + ".bad"), "[");
    EXPECT_EQ(StoredMask(permission), kBareMask);
}

TEST_F(PermissionFile, EmptyListIsNoMessage) {
    EXPECT_THAT(GenerateLines("[]", 7), IsEmpty());
}

TEST_F(PermissionFile, IsReplacedEachTimeThatItIsGenerated) {
    struct stat first = {};
    struct stat second = {};
    const ServicePermission early(true);
    ASSERT_EQ(stat(kPermissionFile, &first), 0);
    const auto text = ReadText(kPermissionFile);
    const ServicePermission late(true);
    ASSERT_EQ(stat(kPermissionFile, &second), 0);
    EXPECT_NE(first.st_ino, second.st_ino);
    EXPECT_EQ(ReadText(kPermissionFile), text);
}

TEST_F(PermissionFile, MaskStaysWhereTheFileCannotBeWritten) {
    WriteText(kPermissionFile, R"([{"id":"pictara","enabled":true}])");
    ServicePermission permission(false);
    ASSERT_EQ(StoredMask(permission), 2U);
    fs::remove_all(kConfigFolder);
    WriteText(kConfigFolder, "a file in the place of the folder");
    const CapturedLog log(3);
    permission.GenPermissionConf();
    EXPECT_THAT(log.Messages(), ElementsAre("config.cpp open failed [" + TemporaryOf(kPermissionFile) + "]"));
    EXPECT_EQ(StoredMask(permission), 2U);
    EXPECT_EQ(StoredMask(ServicePermission(true)), 0U);
    fs::remove(kConfigFolder);
}

TEST_F(PermissionFile, MaskFollowsOnceTheNewOneIsWrittenEvenIfItCannotTakeItsPlace) {
    fs::create_directories(std::string(kPermissionFile) + "/inner");
    ServicePermission permission(false);
    const CapturedLog log(0);
    permission.GenPermissionConf();
    EXPECT_EQ(StoredMask(permission), kBareMask);
    EXPECT_EQ(StoredMask(ServicePermission(true)), kBareMask)
        << "and a file that cannot be read afterwards leaves it so";
}

}  // namespace

}  // namespace ARDV::Relay
