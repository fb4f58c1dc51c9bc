// SPDX-License-Identifier: Apache-2.0
#include <relay/config/service_conf.h>

#include <string>
#include <vector>

#include "support/service_device.h"
#include "support/service_faults.h"

namespace ARDV::Relay {

namespace {

using namespace ardv::test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

const std::string kNoRouterPort = "service_conf.cpp Cannot get router port of port [";

class ServiceRead : public ServiceDevice {
public:
    ~ServiceRead() override { EXPECT_THAT(faults_.held, IsEmpty()) << "a list was not released"; }

protected:
    ServiceRead() { faults_.router = {0, 0}; }

    /** The messages of level 7 of a read that fails, which are none below. */
    static std::vector<std::string> Refusal(const std::string& id) {
        ServiceConf service(nullptr);
        EXPECT_THAT(MessagesAt(6, [&] { EXPECT_FALSE(service.ReadConf(id)); }), IsEmpty()) << id;
        EXPECT_EQ(service.GetId(), id);
        EXPECT_EQ(service.GetPort(), -1);
        return MessagesAt(7, [&] { EXPECT_FALSE(service.ReadConf(id)); });
    }

    ServiceFaults faults_;
};

constexpr const char kEveryService[] = R"([
    {"service":"dms","display_name":"dms","ports":["1"]}, {"service":"dms_https","display_name":"dms_https","ports":["2"]},
    {"service":"http","display_name":"http","ports":["80"]}, {"service":"https","display_name":"https","ports":["443"]},
    {"service":"telnet","display_name":"telnet","ports":["23"]}, {"service":"ssh","display_name":"ssh","ports":["3"]},
    {"service":"webdav_http","display_name":"webdav_http","ports":["5005"]},
    {"service":"webdavs_https","display_name":"webdavs_https","ports":["5006"]},
    {"service":"drivara","display_name":"drivara","ports":["6690"]},
    {"service":"support","display_name":"support","ports":["7000"]}])";

struct Mapping {
    const char* id;
    const char* firewall;
    int port;
};

class FirewallName : public ServiceRead, public testing::WithParamInterface<Mapping> {
protected:
    FirewallName() {
        Offer(kEveryService);
        WriteText(kWebSettings, "http_port=\"5080\"\nhttps_port=\"5443\"\nhttp2=\"yes\"\nwww_http2=\"yes\"\n");
    }

    static void ExpectRead(const std::string& id) {
        const auto [mappedId, firewall, port] = GetParam();
        ServiceConf service(nullptr);
        EXPECT_THAT(MessagesAt(9, [&] { EXPECT_TRUE(service.ReadConf(id)); }), IsEmpty());
        EXPECT_EQ(service.GetId(), id);
        EXPECT_EQ(service.GetName(), firewall);
        EXPECT_EQ(service.GetPort(), port);
        EXPECT_EQ(service.GetExtPort(), -1);
    }
};

TEST_P(FirewallName, IsThatOfTheService) {
    ExpectRead(GetParam().id);
}

TEST_P(FirewallName, IsThatOfTheServiceForTheMakersSupportToo) {
    ExpectRead(std::string("support_") + GetParam().id);
}

INSTANTIATE_TEST_SUITE_P(
    Services, FirewallName,
    testing::Values(Mapping{"hos", "dms", 5080}, Mapping{"hos_https", "dms_https", 5443},
                    Mapping{"hos_portal", "dms", 5080}, Mapping{"hos_portal_https", "dms_https", 5443},
                    Mapping{"hos_portal_http2", "dms_https", 5443}, Mapping{"file_sharing", "dms", 5080},
                    Mapping{"file_sharing_https", "dms_https", 5443}, Mapping{"audio_http", "dms", 5080},
                    Mapping{"audio_https", "dms_https", 5443}, Mapping{"photo_http", "http", 80},
                    Mapping{"photo_portal_http", "http", 80}, Mapping{"photo_https", "https", 443},
                    Mapping{"photo_portal_https", "https", 443}, Mapping{"photo_portal_http2", "https", 443},
                    Mapping{"dms", "dms", 5080}, Mapping{"dms_https", "dms_https", 5443}, Mapping{"http", "http", 80},
                    Mapping{"https", "https", 443}, Mapping{"telnet", "telnet", 23}, Mapping{"ssh", "ssh", 22},
                    Mapping{"webdav_http", "webdav_http", 5005}, Mapping{"webdavs_https", "webdavs_https", 5006},
                    Mapping{"filara", "drivara", 6690}, Mapping{"drivara", "drivara", 6690}),
    [](const auto& mapping) { return mapping.param.id; });

TEST_F(ServiceRead, PrefixOfTheMakersSupportCountsOnceAndAtTheBeginning) {
    Offer(kEveryService);
    EXPECT_THAT(Refusal("support_support_hos"), ElementsAre("service_conf.cpp cannot find support_hos in fw service"));
    EXPECT_THAT(Refusal("my_support_hos"), ElementsAre("service_conf.cpp cannot find my_support_hos in fw service"));
    EXPECT_TRUE(ServiceConf(nullptr).ReadConf("support")) << "a name of its own";
    EXPECT_THAT(Refusal("support_"), ElementsAre("service_conf.cpp cannot find  in fw service"));
}

TEST_F(ServiceRead, ListWithoutAServiceIsAMessageOfLevelThree) {
    const auto enumFailure = MatchesRegex("service_conf.cpp enum fw service failed \\[0x[0-9A-F]{4} .*:[0-9]+\\]");
    ServiceConf service(nullptr);
    EXPECT_THAT(MessagesAt(3, [&] { EXPECT_FALSE(service.ReadConf("hos")); }), ElementsAre(enumFailure));
    EXPECT_THAT(MessagesAt(2, [&] { EXPECT_FALSE(service.ReadConf("hos")); }), IsEmpty());
    EXPECT_EQ(service.GetId(), "hos");
    Offer("[]");
    EXPECT_THAT(MessagesAt(9, [&] { EXPECT_FALSE(service.ReadConf("ssh")); }), ElementsAre(enumFailure));
    EXPECT_EQ(service.GetId(), "ssh");
    EXPECT_THAT(faults_.CallsOf("Find"), IsEmpty());
}

TEST_F(ServiceRead, ListThatCannotBeReadIsAMessageWithThePlatformsError) {
    Offer("{");
    EXPECT_THAT(MessagesAt(3, [] { EXPECT_FALSE(ServiceConf(nullptr).ReadConf("hos")); }),
                ElementsAre(MatchesRegex(
                    "service_conf.cpp enum fw service failed \\[0x0B00 firewall_service_list.cpp:[0-9]+\\]")));
}

TEST_F(ServiceRead, ListOfAFailedEnumerationIsReleased) {
    Offer(kEveryService);
    const CapturedLog log(3);
    for (const int result : {0, -1}) {
        faults_.calls.clear();
        faults_.enumResult = result;
        EXPECT_FALSE(ServiceConf(nullptr).ReadConf("hos"));
        EXPECT_THAT(faults_.calls, ElementsAre("Enum", "Free")) << result;
    }
    EXPECT_EQ(log.Messages().size(), 2U);
}

TEST_F(ServiceRead, ListIsReleasedOnceWhateverBecomesOfTheService) {
    Offer(R"([{"service":"two","ports":["1","2"]},{"service":"closed"},{"service":"ftp","ports":["21"]}])");
    const CapturedLog log(0);
    for (const char* id : {"two", "closed", "ftp", "none", "hos_portal_http2", "photo_portal_http2", ""}) {
        faults_.calls.clear();
        ServiceConf(nullptr).ReadConf(id);
        EXPECT_EQ(faults_.CallsOf("Enum").size(), 1U) << id;
        EXPECT_EQ(faults_.CallsOf("Free").size(), 1U) << id;
        EXPECT_THAT(faults_.held, IsEmpty()) << id;
    }
}

struct Http2Switch {
    const char* name;
    const char* id;
    const char* ownSwitch;
    const char* otherSwitch;
};

class Http2Service : public ServiceRead, public testing::WithParamInterface<Http2Switch> {};

TEST_P(Http2Service, IsSilentlyRefusedBeforeAnyLookUpWhileItsHttp2IsOff) {
    Offer(kEveryService);
    for (const char* own : {"no", ""}) {
        faults_.calls.clear();
        WriteText(kWebSettings,
                  std::string(GetParam().ownSwitch) + "=\"" + own + "\"\n" + GetParam().otherSwitch + "=\"yes\"\n");
        EXPECT_THAT(Refusal(GetParam().id), IsEmpty());
        EXPECT_THAT(faults_.calls, ElementsAre("Enum", "Free", "Enum", "Free"));
    }
}

TEST_P(Http2Service, IsLookedUpWhileItsHttp2IsOn) {
    Offer(kEveryService);
    WriteText(kWebSettings, std::string(GetParam().ownSwitch) + "=\"yes\"\n" + GetParam().otherSwitch + "=\"no\"\n");
    const CapturedLog log(0);
    ServiceConf(nullptr).ReadConf(GetParam().id);
    EXPECT_EQ(faults_.CallsOf("Find").size(), 1U);
}

TEST_P(Http2Service, IsAskedForAfterTheListIsRead) {
    EXPECT_EQ(MessagesAt(3, [] { ServiceConf(nullptr).ReadConf(GetParam().id); }).size(), 1U);
}

INSTANTIATE_TEST_SUITE_P(
    Services, Http2Service,
    testing::Values(Http2Switch{"Portal", "hos_portal_http2", "http2", "www_http2"},
                    Http2Switch{"PortalForSupport", "support_hos_portal_http2", "http2", "www_http2"},
                    Http2Switch{"PortalWithin", "a_hos_portal_http2_b", "http2", "www_http2"},
                    Http2Switch{"Photos", "photo_portal_http2", "www_http2", "http2"},
                    Http2Switch{"PhotosForSupport", "support_photo_portal_http2", "www_http2", "http2"},
                    Http2Switch{"PhotosWithin", "a_photo_portal_http2_b", "www_http2", "http2"}),
    [](const auto& service) { return service.param.name; });

TEST_F(ServiceRead, OtherServicesDoNotNeedHttp2) {
    Offer(kEveryService);
    const CapturedLog log(0);
    for (const char* id : {"hos_portal", "hos_portal_https", "photo_portal_http", "photo_portal_https"}) {
        EXPECT_TRUE(ServiceConf(nullptr).ReadConf(id)) << id;
    }
}

class FileSync : public ServiceRead, public testing::WithParamInterface<const char*> {};

TEST_P(FileSync, IsThatOfWhicheverPackageIsThere) {
    OfferAtPort("drivara", "6690");
    EXPECT_EQ(ServiceConf(GetParam()).GetPort(), 6690);
    OfferAtPort("filara", "6691");
    EXPECT_EQ(ServiceConf(GetParam()).GetPort(), 6691);
    EXPECT_EQ(ServiceConf(GetParam()).GetId(), GetParam());
}

TEST_P(FileSync, IsThatOfTheDrivePackageWhereBothAreThere) {
    Offer(R"([{"service":"filara","ports":["6691"]},{"service":"drivara","ports":["6690"]}])");
    EXPECT_EQ(ServiceConf(GetParam()).GetPort(), 6690);
    EXPECT_THAT(faults_.CallsOf("Find"), ElementsAre("Find drivara"));
}

TEST_P(FileSync, IsLookedForByBothNames) {
    Offer(kEveryService);
    OfferAtPort("ftp", "21");
    const auto messages = Refusal(GetParam());
    EXPECT_THAT(faults_.CallsOf("Find"), ElementsAre("Find drivara", "Find filara", "Find drivara", "Find filara"));
    const auto name = std::string(GetParam()).substr(std::string(GetParam()).rfind('_') + 1);
    EXPECT_THAT(messages, ElementsAre("service_conf.cpp cannot find " + name + " in fw service"));
}

INSTANTIATE_TEST_SUITE_P(Names, FileSync, testing::Values("filara", "drivara", "support_filara", "support_drivara"),
                         [](const auto& name) { return name.param; });

TEST_F(ServiceRead, ServiceThatTheDeviceLacksIsAMessageWithItsFirewallName) {
    OfferAtPort("ftp", "21");
    EXPECT_THAT(Refusal("gopher"), ElementsAre("service_conf.cpp cannot find gopher in fw service"));
    EXPECT_THAT(Refusal("support_hos"), ElementsAre("service_conf.cpp cannot find dms in fw service"));
    EXPECT_THAT(Refusal("FTP"), ElementsAre("service_conf.cpp cannot find FTP in fw service"));
}

TEST_F(ServiceRead, ServiceWithoutPortRulesIsAMessageWithTheNameItWasLookedUpBy) {
    Offer(R"([{"service":"dms","display_name":"x"},{"service":"ftp","ports":"21"}])");
    EXPECT_THAT(Refusal("support_hos"), ElementsAre("service_conf.cpp hos does not support port forwarding"));
    EXPECT_THAT(Refusal("ftp"), ElementsAre("service_conf.cpp ftp does not support port forwarding"));
    EXPECT_EQ(ServiceConf("hos").GetName(), "") << "nothing is taken of it";
}

TEST_F(ServiceRead, EntryWithoutAServiceNameIsAMessageWithTheNameItWasLookedUpBy) {
    Offer(kEveryService);
    const char* const ports[] = {"21"};
    const ARDV_FW_SERVICE nameless = {nullptr, "Section", "Title", "shown", ports, 1};
    faults_.found = &nameless;
    EXPECT_THAT(Refusal("support_hos"), ElementsAre("service_conf.cpp hos cannot find service name"));
    const ARDV_FW_SERVICE bare = {nullptr, nullptr, nullptr, nullptr, nullptr, 0};
    faults_.found = &bare;
    EXPECT_THAT(Refusal("ftp"), ElementsAre("service_conf.cpp ftp cannot find service name")) << "this comes first";
}

struct Naming {
    const char* test;
    const char* members;
    const char* name;
};

class ServiceName : public ServiceRead, public testing::WithParamInterface<Naming> {};

TEST_P(ServiceName, IsSectionAndTitleOrElseTheDisplayName) {
    Offer(std::string(R"([{"service":"ftp","ports":["21"])") + GetParam().members + "}]");
    ServiceConf service(JsonOf(R"({"name":"before"})"), false);
    EXPECT_TRUE(service.ReadConf("ftp"));
    EXPECT_EQ(service.GetName(), GetParam().name);
}

INSTANTIATE_TEST_SUITE_P(Entries, ServiceName,
                         testing::Values(Naming{"All", R"(,"section":"S","title":"T","display_name":"D")", "S:T"},
                                         Naming{"SectionAndTitle", R"(,"section":"S","title":"T")", "S:T"},
                                         Naming{"SectionAlone", R"(,"section":"S","display_name":"D")", "D"},
                                         Naming{"TitleAlone", R"(,"title":"T","display_name":"D")", "D"},
                                         Naming{"DisplayNameAlone", R"(,"display_name":"D")", "D"},
                                         Naming{"SectionAndNothingElse", R"(,"section":"S")", "before"},
                                         Naming{"None", "", "before"}),
                         [](const auto& naming) { return naming.param.test; });

struct ListedPorts {
    const char* test;
    const char* ports;
    int port;
};

class ListedPort : public ServiceRead, public testing::WithParamInterface<ListedPorts> {};

TEST_P(ListedPort, IsTheOnlyOneIfItIsAPort) {
    Offer(std::string(R"([{"service":"ftp","display_name":"shown","ports":)") + GetParam().ports + "}]");
    ServiceConf service(JsonOf(R"({"port":7})"), false);
    const auto messages = MessagesAt(7, [&] { EXPECT_TRUE(service.ReadConf("ftp")); });
    EXPECT_EQ(service.GetPort(), GetParam().port);
    EXPECT_EQ(service.GetName(), "shown");
    EXPECT_THAT(faults_.CallsOf("RouterPort"), ElementsAre("RouterPort " + std::to_string(GetParam().port)));
    if (GetParam().port == 7) {
        EXPECT_THAT(messages, ElementsAre("service_conf.cpp ftp port does not exist"));
        EXPECT_THAT(MessagesAt(6, [&] { service.ReadConf("ftp"); }), IsEmpty());
    } else {
        EXPECT_THAT(messages, IsEmpty());
    }
}

// Where the device names none, the port stays at 7.
INSTANTIATE_TEST_SUITE_P(Entries, ListedPort,
                         testing::Values(ListedPorts{"One", R"(["21"])", 21}, ListedPorts{"Lowest", R"(["1"])", 1},
                                         ListedPorts{"Highest", R"(["65535"])", 65535},
                                         ListedPorts{"LeadingZero", R"(["0021"])", 21}, ListedPorts{"None", "[]", 7},
                                         ListedPorts{"Two", R"(["21","22"])", 7},
                                         ListedPorts{"TheSameTwice", R"(["21","21"])", 7},
                                         ListedPorts{"Zero", R"(["0"])", 7}, ListedPorts{"TooHigh", R"(["65536"])", 7},
                                         ListedPorts{"FarTooHigh", R"(["4294967317"])", 7},
                                         ListedPorts{"Endless", R"(["99999999999999999999999"])", 7},
                                         ListedPorts{"Negative", R"(["-21"])", 7},
                                         ListedPorts{"Range", R"(["21:25"])", 7}, ListedPorts{"Word", R"(["ftp"])", 7}),
                         [](const auto& ports) { return ports.param.test; });

TEST_F(ServiceRead, ServiceOfTwoPortsIsNotValidAfterConstruction) {
    Offer(R"([{"service":"ftp","ports":["20","21"]}])");
    const ServiceConf service("ftp");
    EXPECT_EQ(service.GetPort(), -1);
    EXPECT_FALSE(service.IsValid());
}

TEST_F(ServiceRead, PortsOfTheOperatingSystemAreTheWebServersWhateverTheListSays) {
    Offer(R"([{"service":"dms","ports":["1","2"]},{"service":"dms_https","ports":[]}])");
    EXPECT_EQ(ServiceConf("hos").GetPort(), 5000);
    EXPECT_EQ(ServiceConf("hos_https").GetPort(), 5001);
    WriteText(kWebSettings, "http_port=\"80\"\nhttps_port=\"443\"\n");
    EXPECT_THAT(MessagesAt(9, [] { EXPECT_EQ(ServiceConf("hos").GetPort(), 80); }), IsEmpty());
    EXPECT_EQ(ServiceConf("hos_https").GetPort(), 443);
}

TEST_F(ServiceRead, PortsOfTheOperatingSystemHaveSixteenBits) {
    Offer(kEveryService);
    for (const char* id : {"hos", "hos_https"}) {
        faults_.webPort = 0x10000 + 5080;
        EXPECT_EQ(ServiceConf(id).GetPort(), 5080);
        faults_.webPort = -1;
        EXPECT_EQ(ServiceConf(id).GetPort(), 65535);
    }
}

struct SecureShell {
    const char* test;
    const char* settings;
    int port;
};

class SecureShellPort : public ServiceRead, public testing::WithParamInterface<SecureShell> {};

TEST_P(SecureShellPort, IsTheSettingOrTheUsualOneWhateverTheListSays) {
    Offer(R"([{"service":"ssh","ports":["3","4"]}])");
    WriteText(kDeviceSettings, GetParam().settings);
    const auto messages = MessagesAt(7, [] { EXPECT_EQ(ServiceConf("ssh").GetPort(), GetParam().port); });
    EXPECT_EQ(messages.empty(), GetParam().port > 0);
}

INSTANTIATE_TEST_SUITE_P(Settings, SecureShellPort,
                         testing::Values(SecureShell{"Absent", "", 22}, SecureShell{"Empty", "ssh_port=\"\"\n", 22},
                                         SecureShell{"Set", "ssh_port=\"2222\"\n", 2222},
                                         SecureShell{"Highest", "ssh_port=\"65535\"\n", 65535},
                                         SecureShell{"TooHigh", "ssh_port=\"65558\"\n", -1},
                                         SecureShell{"Word", "ssh_port=\"none\"\n", -1}),
                         [](const auto& shell) { return shell.param.test; });

TEST_F(ServiceRead, SecureShellPortIsTheUsualOneWhereTheSettingsCannotBeRead) {
    OfferAtPort("ssh", "3");
    std::filesystem::remove(kDeviceSettings);
    EXPECT_EQ(ServiceConf("ssh").GetPort(), 22);
    std::filesystem::create_directory(kDeviceSettings);
    EXPECT_EQ(ServiceConf("ssh").GetPort(), 22);
    std::filesystem::remove(kDeviceSettings);
}

TEST_F(ServiceRead, LaterReadReplacesWhatTheDeviceSaysAnew) {
    OfferAtPort("ftp", "21");
    faults_.router = {0, 8021};
    ServiceConf service("ftp");
    EXPECT_EQ(service.GetExtPort(), 8021);
    OfferAtPort("web", "8080");
    faults_.router = {0, 0};
    EXPECT_TRUE(service.ReadConf("web"));
    EXPECT_EQ(Written(service, true), "{\"id\":\"web\",\"name\":\"shown\",\"port\":8080}\n");
}

TEST_F(ServiceRead, WithoutARouterThatAnswersTheServiceIsThereWithoutAnExternalPort) {
    OfferAtPort("ftp", "21");
    faults_.router.reset();
    ServiceConf service(nullptr);
    ExpectMessage(7, kNoRouterPort + "21].", [&] { EXPECT_TRUE(service.ReadConf("ftp")); });
    EXPECT_EQ(service.GetExtPort(), -1);
    EXPECT_TRUE(service.IsValid());
}

}  // namespace

}  // namespace ARDV::Relay
