// SPDX-License-Identifier: Apache-2.0
#include <relay/config/config.h>

#include <filesystem>
#include <string>
#include <vector>

#include <relay/service/service_permission.h>

#include "support/device_test.h"
#include "support/systemd_calls.h"

namespace ARDV::Relay {

namespace {

namespace fs = std::filesystem;

using namespace ardv::test;
using testing::ElementsAre;
using testing::IsEmpty;

using Ids = std::vector<std::string>;

constexpr const char kPermissionFile[] = "/usr/ardv/etc/ardvrelayd/services.conf";
constexpr const char kFirewallFolder[] = "/etc/ardv/services.d";
constexpr const char kFirewallFile[] = "/etc/ardv/services.d/test.json";
constexpr const char kWebSettings[] = "/etc/ardv/web.conf";

constexpr const char kFirewallServices[] =
    R"([{"service":"dms","section":"Management","title":"Pages","ports":["5000"]},{"service":"dms_https","ports":["5001"]},
        {"service":"http","ports":["80"]},{"service":"https","ports":["443"]},{"service":"ssh","ports":["22"]},
        {"service":"telnet","ports":["23"]},{"service":"drivara","ports":["6690"]},{"service":"other","ports":["7000"]}])";

// Those of a device without packages, in the order of the table. Those for HTTP/2 are not valid there.
const Ids kBareServices = {"hos",          "hos_https",          "http",       "https",           "dms_https",
                           "file_sharing", "file_sharing_https", "hos_portal", "hos_portal_https"};

Ids WithSupport(const Ids& ids, bool alone) {
    Ids both;
    for (const auto& id : ids) {
        if (!alone) {
            both.push_back(id);
        }
        both.push_back("support_" + id);
    }
    return both;
}

Ids IdsOf(const RelaydConf& conf) {
    Ids ids;
    for (const auto& service : conf.GetServices()) {
        ids.push_back(service.GetId());
    }
    return ids;
}

/** A device without packages whose owner permits everything. */
class ServiceList : public DeviceTest {
protected:
    ServiceList() {
        fs::remove_all(kFirewallFolder);
        fs::remove_all("/var/packages");
        WriteText(kFirewallFile, kFirewallServices);
        WriteText(kWebSettings, "http_port=\"5080\"\nhttps_port=\"5443\"\n");
        Permit(63);
        Switch(true, false);
    }

    ~ServiceList() override {
        fs::remove_all(kFirewallFolder);
        fs::remove_all("/var/packages");
        fs::remove(kWebSettings);
    }

    static void Permit(std::uint32_t mask) {
        WriteText(kPermissionFile, JsonText::Styled(ServicePermission::MaskToJson(mask)));
    }

    static void Install(const std::string& package) { WriteText("/var/packages/" + package + "/enabled", ""); }

    void Switch(bool tethra, bool supportChannel) {
        auto value = JsonOf(R"({"tethra":{},"support_channel":{}})");
        value["tethra"]["enabled"] = tethra;
        value["support_channel"]["enabled"] = supportChannel;
        EXPECT_TRUE(conf_.Overwrite(value));
    }

    Ids Generated() {
        conf_.GenServiceConf();
        return IdsOf(conf_);
    }

    SystemdCalls systemd_;
    RelaydConf conf_{nullptr};
};

using GeneratedServices = ServiceList;
using AddedService = ServiceList;
using RemovedService = ServiceList;

TEST_F(GeneratedServices, AreThoseOfTheDeviceInTheOrderOfTheTable) {
    EXPECT_EQ(Generated(), kBareServices);
}

TEST_F(GeneratedServices, StandTwiceWhileTheSupportChannelIsOn) {
    Switch(true, true);
    EXPECT_EQ(Generated(), WithSupport(kBareServices, false));
}

TEST_F(GeneratedServices, StandForSupportAloneWhateverTheOwnerPermits) {
    Switch(false, true);
    EXPECT_EQ(Generated(), WithSupport(kBareServices, true));
    Permit(0);
    EXPECT_EQ(Generated(), WithSupport(kBareServices, true));
    fs::remove(kPermissionFile);
    EXPECT_EQ(Generated(), WithSupport(kBareServices, true));
    Switch(true, true);
    EXPECT_EQ(Generated(), WithSupport(kBareServices, true)) << "nothing is permitted for itself";
}

TEST_F(GeneratedServices, AreNoneWithBothSwitchesOff) {
    ASSERT_EQ(Generated(), kBareServices);
    Switch(false, false);
    EXPECT_THAT(Generated(), IsEmpty());
}

TEST_F(GeneratedServices, AreThoseThatTheOwnerPermits) {
    Permit(8);
    EXPECT_EQ(Generated(), (Ids{"http", "https", "dms_https", "file_sharing", "file_sharing_https"}));
    Permit(2);
    EXPECT_EQ(Generated(), (Ids{"http", "https"})) << "those of no group are permitted as soon as anything is";
    Permit(0);
    EXPECT_THAT(Generated(), IsEmpty());
    fs::remove(kPermissionFile);
    EXPECT_THAT(Generated(), IsEmpty());
}

TEST_F(GeneratedServices, AreThoseThatAreOn) {
    systemd_.unitState = 1;
    systemd_.inetdState = 1;
    WriteText(kDeviceSettings, "supportssh=\"yes\"\n");
    WriteText(kWebSettings, "http2=\"yes\"\nhttps_redirect=\"yes\"\nhttp_default_conf=\"no\"\n");
    EXPECT_EQ(Generated(), (Ids{"hos", "hos_https", "http", "https", "telnet", "ssh", "dms_https", "file_sharing",
                                "file_sharing_https", "hos_portal_https", "hos_portal_http2"}));
}

TEST_F(GeneratedServices, DoNotPileUp) {
    Generated();
    EXPECT_EQ(Generated(), kBareServices);
    Switch(true, true);
    Generated();
    EXPECT_EQ(Generated(), WithSupport(kBareServices, false));
}

TEST_F(GeneratedServices, TakeThePlaceOfThoseThatWereThere) {
    ASSERT_TRUE(conf_.AddServiceById("other"));
    EXPECT_EQ(Generated(), kBareServices);
}

TEST_F(GeneratedServices, HaveTheFileSyncServiceOnceForEachOfItsPackages) {
    Permit(4);
    Install("Drivara");
    EXPECT_EQ(Generated(), (Ids{"http", "https", "filara"}));
    Install("Filara");
    EXPECT_EQ(Generated(), (Ids{"http", "https", "filara", "filara"}));
    Switch(false, true);
    const auto support = Generated();
    EXPECT_EQ(std::count(support.begin(), support.end(), "support_filara"), 2);
}

TEST_F(GeneratedServices, HaveThePortsOfTheDeviceForThemselvesAndForSupport) {
    Switch(true, true);
    Generated();
    const auto portOf = [this](const char* id) { return conf_.GetServiceById(id)->GetPort(); };
    EXPECT_EQ(portOf("hos"), 5080);
    EXPECT_EQ(portOf("support_hos"), 5080);
    EXPECT_EQ(portOf("dms_https"), 5443);
    EXPECT_EQ(portOf("support_dms_https"), 5443);
    EXPECT_EQ(portOf("support_http"), 80);
    EXPECT_EQ(conf_.GetServiceById("support_hos")->GetName(), "Management:Pages");
}

TEST_F(GeneratedServices, LeaveOutWhatTheDeviceDoesNotOfferWithAMessageOfLevelSeven) {
    WriteText(kFirewallFile, R"([{"service":"dms","ports":["5000"]},{"service":"dms_https","ports":["5001"]},
                                 {"service":"https","ports":["443"]},{"service":"http","ports":["80","81"]}])");
    Switch(true, true);
    const CapturedLog log(7);
    const auto ids = Generated();
    EXPECT_THAT(ids, testing::Not(testing::Contains("http")));
    EXPECT_THAT(ids, testing::IsSupersetOf({"hos", "https", "support_https"}));
    EXPECT_THAT(log.Messages(),
                testing::IsSupersetOf({"config.cpp service config is invalid, http",
                                       "config.cpp service config is invalid, support_http",
                                       "config.cpp service config is invalid, hos_portal_http2",
                                       "config.cpp service config is invalid, support_hos_portal_http2"}));
    EXPECT_THAT(MessagesAt(6, [this] { Generated(); }), IsEmpty());
}

TEST_F(GeneratedServices, ReadThePermissionFileAndLeaveItAlone) {
    WriteText(kPermissionFile, R"([ {"id":"pictara","enabled":true} ])");
    Generated();
    EXPECT_EQ(ReadText(kPermissionFile), R"([ {"id":"pictara","enabled":true} ])");
    fs::remove(kPermissionFile);
    Generated();
    EXPECT_FALSE(fs::exists(kPermissionFile));
}

TEST_F(GeneratedServices, ReadThePermissionFileEvenWithBothSwitchesOff) {
    Switch(false, false);
    WriteText(kPermissionFile, "[");
    const CapturedLog log(0);
    EXPECT_THAT(Generated(), IsEmpty());
    EXPECT_TRUE(fs::exists(std::string(kPermissionFile) + ".bad"));
}

TEST_F(GeneratedServices, AreSavedByTheirIdentifiers) {
    WriteText(kConfigFile, R"({"tethra":{"enabled":true}})");
    RelaydConf conf(kConfigFile);
    Permit(8);
    conf.GenServiceConf();
    EXPECT_TRUE(conf.WriteConfig());
    EXPECT_EQ(JsonOf(ReadText(kConfigFile))["service"],
              JsonOf(R"([{"id":"http"},{"id":"https"},{"id":"dms_https"},{"id":"file_sharing"},
                         {"id":"file_sharing_https"}])"));
}

TEST_F(AddedService, StandsAtTheEndOfTheList) {
    for (const char* id : {"https", "hos", "other"}) {
        EXPECT_TRUE(conf_.AddServiceById(id)) << id;
    }
    EXPECT_EQ(IdsOf(conf_), (Ids{"https", "hos", "other"}));
    EXPECT_EQ(conf_.GetServiceById("hos")->GetPort(), 5080);
    EXPECT_EQ(conf_.GetServiceById("other")->GetPort(), 7000);
}

TEST_F(AddedService, MustBePermitted) {
    Permit(2);
    EXPECT_FALSE(conf_.AddServiceById("hos"));
    EXPECT_TRUE(conf_.AddServiceById("http")) << "of no group";
    Permit(0);
    EXPECT_FALSE(conf_.AddServiceById("https"));
    EXPECT_EQ(IdsOf(conf_), Ids{"http"});
    Permit(1);
    EXPECT_TRUE(conf_.AddServiceById("hos"));
}

TEST_F(AddedService, MustBeOn) {
    EXPECT_FALSE(conf_.AddServiceById("telnet"));
    EXPECT_THAT(IdsOf(conf_), IsEmpty());
    systemd_.unitState = 1;
    systemd_.inetdState = 1;
    EXPECT_TRUE(conf_.AddServiceById("telnet"));
}

TEST_F(AddedService, NeedsNeitherSwitch) {
    Switch(false, false);
    EXPECT_TRUE(conf_.AddServiceById("hos"));
}

TEST_F(AddedService, IsForbiddenByNobodyIfTheTableDoesNotHaveIt) {
    fs::remove(kPermissionFile);
    for (const char* id : {"other", "support_hos", "drivara"}) {
        EXPECT_TRUE(conf_.AddServiceById(id)) << id;
    }
    EXPECT_EQ(IdsOf(conf_), (Ids{"other", "support_hos", "drivara"}));
}

TEST_F(AddedService, ThatTheDeviceDoesNotOfferIsRefusedWithAMessageOfLevelThree) {
    for (const char* id : {"none", "", "hos_portal_http2", "HOS"}) {
        ExpectMessage(3, "config.cpp invalid service config", [&] { EXPECT_FALSE(conf_.AddServiceById(id)) << id; });
    }
    EXPECT_THAT(IdsOf(conf_), IsEmpty());
}

TEST_F(AddedService, IsInTheListOnlyOnceAndStillCountsAsAdded) {
    ASSERT_TRUE(conf_.AddServiceById("hos"));
    ASSERT_TRUE(conf_.AddServiceById("other"));
    const CapturedLog log(6);
    EXPECT_TRUE(conf_.AddServiceById("hos"));
    Permit(0);
    EXPECT_TRUE(conf_.AddServiceById("hos")) << "what is there is not judged again";
    EXPECT_EQ(IdsOf(conf_), (Ids{"hos", "other"}));
    EXPECT_EQ(log.Text(), "");
}

TEST_F(AddedService, IsRefusedIfTheDeviceNoLongerOffersItEvenIfItIsInTheList) {
    ASSERT_TRUE(conf_.AddServiceById("other"));
    WriteText(kFirewallFile, "[{\"service\":\"dms\",\"ports\":[\"5000\"]}]");
    const CapturedLog log(3);
    EXPECT_FALSE(conf_.AddServiceById("other"));
    EXPECT_EQ(IdsOf(conf_), Ids{"other"});
}

TEST_F(AddedService, ForFileSyncNeedsBothOfItsPackages) {
    EXPECT_FALSE(conf_.AddServiceById("filara"));
    Install("Drivara");
    EXPECT_FALSE(conf_.AddServiceById("filara"));
    Install("Filara");
    EXPECT_TRUE(conf_.AddServiceById("filara"));
    EXPECT_EQ(IdsOf(conf_), Ids{"filara"});
    fs::remove("/var/packages/Drivara/enabled");
    RelaydConf another(nullptr);
    EXPECT_FALSE(another.AddServiceById("filara"));
}

TEST_F(AddedService, IsJudgedByTheNameThatItHasInTheList) {
    Permit(2);
    EXPECT_FALSE(conf_.AddServiceById(std::string("hos\0x", 5)));
    Permit(1);
    EXPECT_TRUE(conf_.AddServiceById(std::string("hos\0x", 5)));
    EXPECT_TRUE(conf_.AddServiceById("hos"));
    EXPECT_EQ(IdsOf(conf_), Ids{"hos"});
}

TEST_F(AddedService, ReadsThePermissionFileEvenIfTheServiceIsRefused) {
    WriteText(kPermissionFile, "[");
    const CapturedLog log(3);
    EXPECT_FALSE(conf_.AddServiceById("none"));
    EXPECT_THAT(log.Messages(), ElementsAre(std::string("config.cpp bad json format [") + kPermissionFile + "]",
                                            "config.cpp invalid service config"));
}

TEST_F(RemovedService, IsTheFirstOfItsName) {
    Permit(4);
    Install("Drivara");
    Install("Filara");
    ASSERT_EQ(Generated(), (Ids{"http", "https", "filara", "filara"}));
    ASSERT_TRUE(conf_.AddServiceById("other"));
    const auto* second = &conf_.GetServices()[3];
    const auto name = second->GetName();
    EXPECT_TRUE(conf_.RemoveServiceById("filara"));
    EXPECT_EQ(IdsOf(conf_), (Ids{"http", "https", "filara", "other"}));
    EXPECT_EQ(conf_.GetServices()[2].GetName(), name);
    EXPECT_TRUE(conf_.RemoveServiceById("filara"));
    EXPECT_FALSE(conf_.RemoveServiceById("filara"));
    EXPECT_EQ(IdsOf(conf_), (Ids{"http", "https", "other"}));
}

TEST_F(RemovedService, MustHaveTheNameToTheByte) {
    ASSERT_TRUE(conf_.AddServiceById("hos"));
    for (const auto& id : {std::string("HOS"), std::string("ho"), std::string("hos_https"), std::string("hos "),
                           std::string(), std::string("hos\0", 4)}) {
        EXPECT_FALSE(conf_.RemoveServiceById(id)) << id;
    }
    EXPECT_EQ(IdsOf(conf_), Ids{"hos"});
}

TEST_F(RemovedService, IsRemovedWhateverItsPermission) {
    ASSERT_TRUE(conf_.AddServiceById("hos"));
    Permit(0);
    const CapturedLog log;
    EXPECT_TRUE(conf_.RemoveServiceById("hos"));
    EXPECT_EQ(log.Text(), "") << "permissions are not even asked";
    EXPECT_THAT(IdsOf(conf_), IsEmpty());
    EXPECT_FALSE(conf_.RemoveServiceById("hos"));
}

TEST_F(RemovedService, ReadsThePermissionFileAllTheSame) {
    WriteText(kPermissionFile, "[");
    const CapturedLog log(3);
    EXPECT_FALSE(conf_.RemoveServiceById("none"));
    EXPECT_THAT(log.Messages(), ElementsAre(std::string("config.cpp bad json format [") + kPermissionFile + "]"));
}

TEST_F(ServiceList, FindsTheFirstServiceOfANameOrNone) {
    EXPECT_EQ(conf_.GetServiceById("hos"), nullptr);
    Permit(4);
    Install("Drivara");
    Install("Filara");
    Generated();
    EXPECT_EQ(conf_.GetServiceById("filara"), &conf_.GetServices()[2]);
    EXPECT_EQ(conf_.GetServiceById("http"), &conf_.GetServices()[0]);
    for (const char* id : {"", "filar", "filara2", "FILARA"}) {
        EXPECT_EQ(conf_.GetServiceById(id), nullptr) << id;
    }
}

}  // namespace

}  // namespace ARDV::Relay
