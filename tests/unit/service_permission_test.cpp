// SPDX-License-Identifier: Apache-2.0
#include <relay/service/service_permission.h>

#include <filesystem>
#include <string>
#include <vector>

#include <relay/config/support_service.h>

#include "support/device_test.h"
#include "support/platform_faults.h"
#include "support/systemd_calls.h"

namespace ARDV::Relay {

namespace {

namespace fs = std::filesystem;

using namespace ardv::test;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint32_t kAll = 0xFFFFFFFFU;
constexpr const char kPermissionFile[] = "/usr/ardv/etc/ardvrelayd/services.conf";
constexpr const char kServiceSettings[] = "/etc/example.conf";

struct NamedBit {
    const char* group;
    std::uint32_t bit;
};
constexpr NamedBit kGroupBits[] = {
    {"mobile_apps", 1}, {"pictara", 2}, {"filara", 4}, {"file_sharing", 8}, {"hos_portal", 16}, {"photo_portal", 32},
};

TEST(PermissionMask, HasABitForEachGroupAndForNoOtherName) {
    for (const auto& [group, bit] : kGroupBits) {
        EXPECT_EQ(ServicePermission::GetMaskVal(group), bit) << group;
    }
    for (const char* other :
         {"", "Pictara", "FILARA", "filara ", "filar", "photo", "hos", "mobile_apps,pictara", "1"}) {
        EXPECT_EQ(ServicePermission::GetMaskVal(other), 0U) << other;
    }
    EXPECT_EQ(ServicePermission::GetMaskVal(std::string("pictara\0x", 9)), 0U);
}

TEST(PermissionMask, EntryIsEnabledWhereMaskAndBitMeet) {
    EXPECT_EQ(ServicePermission::GetJsonVal(6, 2, "any"), JsonOf(R"({"id":"any","enabled":true})"));
    EXPECT_EQ(ServicePermission::GetJsonVal(6, 5, "any"), JsonOf(R"({"id":"any","enabled":true})"));
    EXPECT_EQ(ServicePermission::GetJsonVal(6, 8, "any"), JsonOf(R"({"id":"any","enabled":false})"));
    EXPECT_EQ(ServicePermission::GetJsonVal(0, kAll, ""), JsonOf(R"({"id":"","enabled":false})"));
    EXPECT_EQ(ServicePermission::GetJsonVal(kAll, 0x80000000U, "x"), JsonOf(R"({"id":"x","enabled":true})"));
}

TEST(PermissionMask, IsAListOfAllGroupsInTheirOrder) {
    EXPECT_EQ(ServicePermission::MaskToJson(0),
              JsonOf(R"([{"id":"mobile_apps","enabled":false},{"id":"pictara","enabled":false},
                         {"id":"filara","enabled":false},{"id":"file_sharing","enabled":false},
                         {"id":"hos_portal","enabled":false},{"id":"photo_portal","enabled":false}])"));
    for (Json::ArrayIndex i = 0; i < 6; ++i) {
        const auto list = ServicePermission::MaskToJson(kGroupBits[i].bit);
        ASSERT_EQ(list.size(), 6U);
        for (Json::ArrayIndex k = 0; k < 6; ++k) {
            EXPECT_EQ(list[k]["id"], Json::Value(kGroupBits[k].group));
            EXPECT_EQ(list[k]["enabled"], Json::Value(k == i));
        }
    }
}

TEST(PermissionMask, ComesBackFromItsList) {
    for (std::uint32_t mask = 0; mask < 64; ++mask) {
        EXPECT_EQ(ServicePermission::JsonToMask(ServicePermission::MaskToJson(mask)), mask);
    }
    EXPECT_EQ(ServicePermission::JsonToMask(ServicePermission::MaskToJson(kAll)), 63U);
}

struct ListMask {
    const char* list;
    std::uint32_t mask;
};

constexpr ListMask kListMasks[] = {
    {"[]", 0},
    {R"([{"id":"pictara","enabled":true}])", 2},
    {R"([{"enabled":true,"id":"filara","more":1},{"id":"photo_portal","enabled":true}])", 36},
    {R"([{"id":"pictara","enabled":true},{"id":"pictara","enabled":true}])", 2},
    {R"([{"id":"pictara","enabled":true},{"id":"pictara","enabled":false}])", 2},
    {R"([{"id":"pictara","enabled":false}])", 0},
    {R"([{"id":"pictara","enabled":"true"}])", 0},
    {R"([{"id":"pictara","enabled":1}])", 0},
    {R"([{"id":"pictara","enabled":null}])", 0},
    {R"([{"id":"pictara"}])", 0},
    {R"([{"enabled":true}])", 0},
    {R"([{"id":2,"enabled":true},{"id":["pictara"],"enabled":true}])", 0},
    {R"([{"id":"pictara ","enabled":true},{"id":"PICTARA","enabled":true}])", 0},
    {R"(["pictara",null,5,true,[{"id":"pictara","enabled":true}],{"id":"filara","enabled":true}])", 4},
    {R"([{"id":"filara","enabled":true},{"enabled":true}])", 4},
    {R"({"id":"pictara","enabled":true})", 0},
    {"null", 0},
    {"true", 0},
    {"63", 0},
    {R"("pictara")", 0},
};

TEST(PermissionMask, HasTheBitsOfTheEntriesThatAreEnabledByABoolean) {
    const CapturedLog log;
    for (const auto& [list, mask] : kListMasks) {
        EXPECT_EQ(ServicePermission::JsonToMask(JsonOf(list)), mask) << list;
    }
    EXPECT_EQ(log.Text(), "");
}

/** What the tested check answers, and how often it was asked. */
bool checkAnswer = false;
int checkCalls = 0;

bool Check() {
    ++checkCalls;
    return checkAnswer;
}

/** A device of which nothing is known yet, and a service that belongs to no group and names nothing. */
class ServicePermissionTest : public DeviceTest {
protected:
    ServicePermissionTest() {
        checkCalls = 0;
        service_.id = "example";
        service_.group = SERVICE_GROUP_ALWAYS;
        fs::remove_all("/var/packages/Example");
    }

    ~ServicePermissionTest() override {
        fs::remove_all("/var/packages");
        fs::remove("/etc/ardv/web.conf");
    }

    static ServicePermission WithStored(std::uint32_t mask) {
        WriteText(kPermissionFile, JsonText::Styled(ServicePermission::MaskToJson(mask)));
        return ServicePermission(false);
    }

    bool IsEnabled(std::uint32_t mask = kAll) const {
        return ServicePermission(false).IsServiceEnabled(&service_, mask);
    }

    /** Has the service name all that can be asked for, and the device grant all of it. */
    void AskAndGrantAll() {
        service_.conf_file = kServiceSettings;
        service_.conf_key = "run";
        service_.conf_value = "yes";
        service_.unit = "inetd.service";
        service_.package = "Example";
        service_.check = &Check;
        WriteText(kServiceSettings, "run=\"yes\"\n");
        WriteText("/var/packages/Example/enabled", "");
        checkAnswer = true;
        systemd_.unitState = 1;
        systemd_.inetdState = 1;
        systemd_.onCall = [this](const std::string&) { checksBeforeTheUnit_ = checkCalls; };
    }

    /** Expects the last test asked to be the only one that says no, and those behind it not to be asked. */
    void ExpectDisabledAfter(std::size_t keys, int checks, const std::vector<std::string>& units) {
        PlatformFaults faults;
        EXPECT_FALSE(IsEnabled());
        EXPECT_EQ(faults.CallsOf("CheckKeyValue").size(), keys);
        EXPECT_EQ(checkCalls, checks);
        EXPECT_EQ(systemd_.calls, units);
    }

    SupportService service_ = {};
    SystemdCalls systemd_;
    int checksBeforeTheUnit_ = -1;
};

TEST_F(ServicePermissionTest, ServiceThatAsksForNothingIsEnabled) {
    PlatformFaults faults;
    EXPECT_TRUE(IsEnabled());
    EXPECT_THAT(faults.CallsOf("CheckKeyValue"), IsEmpty());
    EXPECT_THAT(systemd_.calls, IsEmpty());
}

TEST_F(ServicePermissionTest, AnswerIsAMessageOfLevelSevenWithItsNumber) {
    const ServicePermission permission(false);
    ExpectMessage(7, "service_permission.cpp example is enabled",
                  [&] { permission.IsServiceEnabled(&service_, kAll); });
    ExpectMessage(7, "service_permission.cpp example is disabled", [&] { permission.IsServiceEnabled(&service_, 0); });
    const CapturedLog log;
    permission.IsServiceEnabled(&service_, 0);
    service_.package = "Example";
    permission.IsServiceEnabled(&service_, kAll);
    service_.package = nullptr;
    permission.IsServiceEnabled(&service_, kAll);
    EXPECT_THAT(log.Lines(), ElementsAre("service_permission.cpp:129 example is disabled",
                                         "service_permission.cpp:129 example is disabled",
                                         "service_permission.cpp:129 example is enabled"));
}

TEST_F(ServicePermissionTest, NoServiceIsNotEnabled) {
    EXPECT_FALSE(ServicePermission(false).IsServiceEnabled(nullptr, kAll));
}

struct MaskCase {
    int group;
    std::uint32_t stored;
    std::uint32_t argument;
    bool isPermitted;
};

constexpr MaskCase kMaskCases[] = {
    {2, 0, 0, false},        {2, 2, 0, true},    {2, 0, 2, true},    {2, 61, 0, false},    {2, 61, 2, true},
    {2, 0, 61, false},       {2, 63, 0, true},   {2, 0, kAll, true}, {2, 61, kAll, true},  {2, 2, 61, true},
    {1, 1, 0, true},         {1, 62, 0, false},  {32, 32, 0, true},  {32, 31, 0, false},   {6, 4, 0, true},
    {-1, 0, 0, false},       {-1, 1, 0, true},   {-1, 32, 0, true},  {-1, 0, 1, true},     {-1, 0, kAll, true},
    {-1, 0, 1U << 31, true}, {64, 63, 0, false}, {64, 0, 64, true},  {0, 63, kAll, false}, {0, 0, 0, false},
};

TEST_F(ServicePermissionTest, IsGrantedByTheArgumentOrTheStoredMask) {
    for (const auto& [group, stored, argument, isPermitted] : kMaskCases) {
        service_.group = group;
        EXPECT_EQ(WithStored(stored).IsServiceEnabled(&service_, argument), isPermitted)
            << group << " of " << stored << " and " << argument;
    }
}

TEST_F(ServicePermissionTest, ServiceThatPassesEveryTestIsEnabled) {
    AskAndGrantAll();
    PlatformFaults faults;
    EXPECT_TRUE(IsEnabled());
    EXPECT_THAT(faults.CallsOf("CheckKeyValue"), ElementsAre("CheckKeyValue /etc/example.conf run yes 0"));
    EXPECT_EQ(checkCalls, 1) << "asked for yes, and not for no after it";
    EXPECT_EQ(checksBeforeTheUnit_, 1);
    EXPECT_THAT(systemd_.calls, ElementsAre("State inetd.service", "Inetd telnetd"));
}

TEST_F(ServicePermissionTest, ForbiddenServiceIsNotLookedAt) {
    AskAndGrantAll();
    service_.group = 0;
    ExpectDisabledAfter(0, 0, {});
}

TEST_F(ServicePermissionTest, SettingThatIsOffEndsTheTests) {
    AskAndGrantAll();
    WriteText(kServiceSettings, "run=\"no\"\n");
    ExpectDisabledAfter(1, 0, {});
}

TEST_F(ServicePermissionTest, CheckThatSaysNoEndsTheTests) {
    AskAndGrantAll();
    checkAnswer = false;
    ExpectDisabledAfter(1, 1, {});
}

TEST_F(ServicePermissionTest, UnitThatIsNotActiveEndsTheTests) {
    AskAndGrantAll();
    systemd_.unitState = 0;
    ExpectDisabledAfter(1, 1, {"State inetd.service"});
}

TEST_F(ServicePermissionTest, InetdServiceThatIsOffEndsTheTests) {
    AskAndGrantAll();
    systemd_.inetdState = 0;
    ExpectDisabledAfter(1, 1, {"State inetd.service", "Inetd telnetd"});
}

TEST_F(ServicePermissionTest, PackageIsTheLastTest) {
    AskAndGrantAll();
    fs::remove("/var/packages/Example/enabled");
    ExpectDisabledAfter(1, 1, {"State inetd.service", "Inetd telnetd"});
}

TEST_F(ServicePermissionTest, SettingIsAskedForWithTheFlagOfTheService) {
    service_.conf_file = kServiceSettings;
    service_.conf_key = "run";
    service_.conf_value = "on";
    WriteText(kServiceSettings, "run=\"on\"\n");
    PlatformFaults faults;
    service_.is_default = 1;
    EXPECT_TRUE(IsEnabled());
    service_.is_default = 0;
    EXPECT_TRUE(IsEnabled());
    EXPECT_THAT(faults.CallsOf("CheckKeyValue"),
                ElementsAre("CheckKeyValue /etc/example.conf run on 1", "CheckKeyValue /etc/example.conf run on 0"));
}

TEST_F(ServicePermissionTest, SettingPassesWithAnyResultThatIsNotZero) {
    service_.conf_file = kServiceSettings;
    service_.conf_key = "run";
    service_.conf_value = "on";
    PlatformFaults faults;
    for (const int result : {1, 2, -1}) {
        faults.keyValueResult = result;
        EXPECT_TRUE(IsEnabled()) << result;
    }
    faults.keyValueResult = 0;
    EXPECT_FALSE(IsEnabled());
}

TEST_F(ServicePermissionTest, SettingOfAMissingFileOrKeyOrOfAnotherValueIsOff) {
    service_.conf_file = kServiceSettings;
    service_.conf_key = "run";
    service_.conf_value = "yes";
    fs::remove(kServiceSettings);
    EXPECT_FALSE(IsEnabled());
    for (const char* text : {"", "other=\"yes\"\n", "run=\"\"\n", "run=\"no\"\n", "run=\"YES\"\n", "run=\"yes1\"\n"}) {
        WriteText(kServiceSettings, text);
        EXPECT_FALSE(IsEnabled()) << text;
    }
    WriteText(kServiceSettings, "run=yes\n");
    EXPECT_TRUE(IsEnabled());
}

struct CheckCase {
    const char* value;
    bool answer;
    bool isEnabled;
    int calls;
};

constexpr CheckCase kCheckCases[] = {
    {"yes", true, true, 1},    {"yes", false, false, 1}, {"no", false, true, 1}, {"no", true, false, 1},
    {nullptr, false, true, 0}, {nullptr, true, true, 0}, {"", false, true, 0},   {"Yes", false, true, 0},
    {"NO", true, true, 0},     {"yes ", false, true, 0}, {"n", true, true, 0},   {"true", false, true, 0},
};

TEST_F(ServicePermissionTest, CheckMustAnswerAsTheValueSays) {
    service_.check = &Check;
    for (const auto& [value, answer, isEnabled, calls] : kCheckCases) {
        service_.conf_value = value;
        checkAnswer = answer;
        checkCalls = 0;
        EXPECT_EQ(IsEnabled(), isEnabled) << (value ? value : "none") << " " << answer;
        EXPECT_EQ(checkCalls, calls) << (value ? value : "none") << " " << answer;
    }
}

TEST_F(ServicePermissionTest, ValueWithoutACheckPasses) {
    for (const char* value : {"yes", "no"}) {
        service_.conf_value = value;
        EXPECT_TRUE(IsEnabled()) << value;
    }
}

TEST_F(ServicePermissionTest, UnitMustBeActive) {
    service_.unit = "example.service";
    for (const int state : {0, 2, -1}) {
        systemd_.unitState = state;
        EXPECT_FALSE(IsEnabled()) << state;
    }
    systemd_.unitState = 1;
    EXPECT_TRUE(IsEnabled());
    EXPECT_THAT(systemd_.calls, testing::Each("State example.service"));
}

TEST_F(ServicePermissionTest, InetdIsAskedForTelnetBehindItsOwnUnitAlone) {
    systemd_.unitState = 1;
    for (const char* unit : {"inetd", "xinetd.service", "inetd.service2", "INETD.service"}) {
        service_.unit = unit;
        EXPECT_TRUE(IsEnabled()) << unit;
    }
    service_.unit = "inetd.service";
    EXPECT_FALSE(IsEnabled());
    systemd_.inetdState = -1;
    EXPECT_FALSE(IsEnabled()) << "a failure to ask is no yes";
    systemd_.inetdState = 1;
    EXPECT_TRUE(IsEnabled());
}

TEST_F(ServicePermissionTest, PackageIsEnabledByTheMereExistenceOfItsFile) {
    const std::string path = "/var/packages/Example/enabled";
    service_.package = "Example";
    EXPECT_FALSE(IsEnabled());
    fs::create_directories("/var/packages/Example");
    EXPECT_FALSE(IsEnabled());
    fs::create_symlink("/nowhere", path);
    EXPECT_FALSE(IsEnabled());
    fs::remove(path);
    WriteText(path, "");
    fs::permissions(path, fs::perms::none);
    EXPECT_TRUE(IsEnabled());
    fs::remove(path);
    fs::create_directory(path);
    EXPECT_TRUE(IsEnabled());
}

const SupportService* RowOf(const std::string& id) {
    const auto* row = grgszSupportService;
    while (row->id && id != row->id) {
        ++row;
    }
    return row;
}

bool IsRowEnabled(const std::string& id) {
    return ServicePermission(false).IsServiceEnabled(RowOf(id), kAll);
}

TEST_F(ServicePermissionTest, TelnetIsOnWithItsUnitAndItsInetdService) {
    for (int state = 0; state < 4; ++state) {
        systemd_.unitState = state & 1;
        systemd_.inetdState = state >> 1;
        EXPECT_EQ(IsRowEnabled("telnet"), state == 3) << state;
    }
}

TEST_F(ServicePermissionTest, SecureShellIsOnWithItsSettingAndItsUnit) {
    EXPECT_FALSE(IsRowEnabled("ssh"));
    EXPECT_THAT(systemd_.calls, IsEmpty());
    WriteText(kDeviceSettings, "supportssh=\"yes\"\n");
    EXPECT_FALSE(IsRowEnabled("ssh"));
    systemd_.unitState = 1;
    EXPECT_TRUE(IsRowEnabled("ssh"));
    EXPECT_THAT(systemd_.calls, testing::Each("State sshd.service"));
}

TEST_F(ServicePermissionTest, WebFoldersAreOnWithTheirSettingAndTheirPackage) {
    constexpr const char kWebFolderSettings[] = "/var/packages/WebDAVServer/target/etc/webdav.cfg";
    WriteText("/var/packages/WebDAVServer/enabled", "");
    EXPECT_FALSE(IsRowEnabled("webdav_http"));
    WriteText(kWebFolderSettings, "enable_http=yes\n");
    EXPECT_TRUE(IsRowEnabled("webdav_http"));
    EXPECT_FALSE(IsRowEnabled("webdavs_https"));
    WriteText(kWebFolderSettings, "enable_https=yes\n");
    EXPECT_FALSE(IsRowEnabled("webdav_http"));
    EXPECT_TRUE(IsRowEnabled("webdavs_https"));
    fs::remove("/var/packages/WebDAVServer/enabled");
    EXPECT_FALSE(IsRowEnabled("webdavs_https"));
}

struct PortalCase {
    const char* settings;
    bool isEnabled;
};

constexpr PortalCase kPortalCases[] = {
    {"", true},
    {"https_redirect=\"no\"\nhttp_default_conf=\"no\"\n", true},
    {"https_redirect=\"yes\"\nhttp_default_conf=\"no\"\n", false},
    {"https_redirect=\"yes\"\nhttp_default_conf=\"yes\"\n", true},
    {"https_redirect=\"no\"\nhttp_default_conf=\"yes\"\n", true},
};

TEST_F(ServicePermissionTest, PlainPortalIsWithheldWhileTheWebServerSendsOnToHttps) {
    for (const auto& [settings, isEnabled] : kPortalCases) {
        WriteText("/etc/ardv/web.conf", settings);
        EXPECT_EQ(IsRowEnabled("hos_portal"), isEnabled) << settings;
        EXPECT_TRUE(IsRowEnabled("hos_portal_https"));
    }
}

}  // namespace

}  // namespace ARDV::Relay
