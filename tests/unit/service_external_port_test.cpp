// SPDX-License-Identifier: Apache-2.0
#include <relay/config/service_conf.h>

#include <optional>
#include <string>

#include "support/platform_faults.h"
#include "support/service_device.h"
#include "support/service_faults.h"

namespace ARDV::Relay {

namespace {

using namespace ardv::test;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

class ExternalPort : public ServiceDevice {
protected:
    ExternalPort() {
        Offer(R"([{"service":"dms","ports":["1"]},{"service":"dms_https","ports":["2"]},
                  {"service":"http","ports":["80"]},{"service":"https","ports":["443"]},{"service":"ftp","ports":["21"]}])");
        WriteText(kWebSettings, "www_http2=\"yes\"\nhttp2=\"yes\"\n");
    }

    static void Note(const char* file, const char* key, const std::string& value) {
        WriteText(file, std::string(key) + "=\"" + value + "\"\n");
    }

    ServiceFaults faults_;
};

struct NotedPort {
    const char* id;
    const char* file;
    const char* key;
    int port;  // on the device
};

class NotedExternalPort : public ExternalPort, public testing::WithParamInterface<NotedPort> {};

TEST_P(NotedExternalPort, GoesBeforeTheRouters) {
    faults_.router = {0, 9000};
    Note(GetParam().file, GetParam().key, "4711");
    for (const auto& id : {std::string(GetParam().id), std::string("support_") + GetParam().id}) {
        EXPECT_THAT(MessagesAt(9, [&] { EXPECT_EQ(ServiceConf(id.c_str()).GetExtPort(), 4711) << id; }), IsEmpty());
    }
    EXPECT_THAT(faults_.CallsOf("RouterPort"), IsEmpty());
}

TEST_P(NotedExternalPort, IsReadIntoSixteenBytes) {
    PlatformFaults faults;
    const ServiceConf service(GetParam().id);
    EXPECT_THAT(faults.calls, Contains(std::string("GetKeyValue ") + GetParam().file + " " + GetParam().key + " 16 0"));
}

TEST_P(NotedExternalPort, IsTheRoutersWhereNothingIsNoted) {
    faults_.router = {0, 9000};
    EXPECT_EQ(ServiceConf(GetParam().id).GetExtPort(), 9000) << "no file";
    Note(GetParam().file, GetParam().key, "");
    EXPECT_EQ(ServiceConf(GetParam().id).GetExtPort(), 9000) << "empty";
    Note(GetParam().file, "external_port_other", "4711");
    EXPECT_EQ(ServiceConf(GetParam().id).GetExtPort(), 9000) << "no such key";
    PlatformFaults faults;
    faults.platformFails = [](const std::string& name) { return name == "GetKeyValue"; };
    EXPECT_EQ(ServiceConf(GetParam().id).GetExtPort(), 9000) << "a failure that left text in the buffer";
    EXPECT_EQ(faults_.CallsOf("RouterPort"),
              std::vector<std::string>(4, "RouterPort " + std::to_string(GetParam().port)));
}

TEST_P(NotedExternalPort, IsNotThatOfAnotherService) {
    for (const char* key : {"external_port_hos_https", "external_port_hos_http", "external_port_photo_https",
                            "external_port_photo_http"}) {
        if (key != std::string(GetParam().key)) {
            Note(GetParam().file, key, "4711");
            EXPECT_EQ(ServiceConf(GetParam().id).GetExtPort(), -1) << key;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Services, NotedExternalPort,
    testing::Values(NotedPort{"hos", kDeviceSettings, "external_port_hos_http", 5000},
                    NotedPort{"dms", kDeviceSettings, "external_port_hos_http", 5000},
                    NotedPort{"file_sharing", kDeviceSettings, "external_port_hos_http", 5000},
                    NotedPort{"audio_http", kDeviceSettings, "external_port_hos_http", 5000},
                    NotedPort{"hos_portal", kDeviceSettings, "external_port_hos_http", 5000},
                    NotedPort{"hos_https", kDeviceSettings, "external_port_hos_https", 5001},
                    NotedPort{"dms_https", kDeviceSettings, "external_port_hos_https", 5001},
                    NotedPort{"hos_portal_http2", kDeviceSettings, "external_port_hos_https", 5001},
                    NotedPort{"photo_http", kPhotoSettings, "external_port_photo_http", 80},
                    NotedPort{"photo_portal_http", kPhotoSettings, "external_port_photo_http", 80},
                    NotedPort{"photo_https", kPhotoSettings, "external_port_photo_https", 443},
                    NotedPort{"photo_portal_https", kPhotoSettings, "external_port_photo_https", 443},
                    NotedPort{"photo_portal_http2", kPhotoSettings, "external_port_photo_https", 443}),
    [](const auto& noted) { return noted.param.id; });

TEST_F(ExternalPort, WebServiceOutsideThePhotoPackageAsksTheRouterAlone) {
    WriteText(kPhotoSettings, "external_port_photo_http=\"4711\"\nexternal_port_photo_https=\"4711\"\n");
    faults_.router = {0, 9000};
    for (const char* id : {"http", "https", "support_http", "support_https"}) {
        EXPECT_EQ(ServiceConf(id).GetExtPort(), 9000) << id;
    }
}

struct NotedText {
    const char* test;
    const char* text;
    int port;
};

class NotedExternalPortText : public ExternalPort, public testing::WithParamInterface<NotedText> {};

TEST_P(NotedExternalPortText, IsAPortOrEndsTheSearchWithoutOne) {
    faults_.router = {0, 9000};
    Note(kDeviceSettings, "external_port_hos_http", GetParam().text);
    ServiceConf service(JsonOf(R"({"ext_port":7})"), false);
    EXPECT_THAT(MessagesAt(9, [&] { EXPECT_TRUE(service.ReadConf("hos")); }), IsEmpty());
    EXPECT_EQ(service.GetExtPort(), GetParam().port);
    EXPECT_THAT(faults_.CallsOf("RouterPort"), IsEmpty());
    EXPECT_TRUE(service.IsValid());
}

INSTANTIATE_TEST_SUITE_P(Texts, NotedExternalPortText,
                         testing::Values(NotedText{"Lowest", "1", 1}, NotedText{"Highest", "65535", 65535},
                                         NotedText{"Zero", "0", -1}, NotedText{"TooHigh", "65536", -1},
                                         NotedText{"WrappingSixteenBits", "70000", -1},
                                         NotedText{"WrappingThirtyTwoBits", "4294972296", -1},
                                         NotedText{"Negative", "-5", -1},
                                         NotedText{"NegativeThatWraps", "-4294962296", -1},
                                         NotedText{"Word", "none", -1}, NotedText{"TrailingText", "5000x", -1},
                                         NotedText{"LongerThanItsBuffer", "0000000000000005000", -1}),
                         [](const auto& noted) { return noted.param.test; });

struct RouterCase {
    const char* test;
    int result;
    int routerPort;
    int port;
    bool isMessage;
};

class RouterPort : public ExternalPort, public testing::WithParamInterface<RouterCase> {};

TEST_P(RouterPort, IsTakenWhereTheRouterNamesAPort) {
    faults_.router = {GetParam().result, GetParam().routerPort};
    ServiceConf service(JsonOf(R"({"ext_port":7})"), false);
    const auto read = [&] { EXPECT_TRUE(service.ReadConf("ftp")); };
    if (GetParam().isMessage) {
        ExpectMessage(7, "service_conf.cpp Cannot get router port of port [21].", read);
    } else {
        EXPECT_THAT(MessagesAt(9, read), IsEmpty());
    }
    EXPECT_EQ(service.GetExtPort(), GetParam().port);
    EXPECT_TRUE(service.IsValid());
    EXPECT_THAT(faults_.CallsOf("RouterPort"), Contains("RouterPort 21"));
}

INSTANTIATE_TEST_SUITE_P(
    Answers, RouterPort,
    testing::Values(RouterCase{"Mapped", 0, 8021, 8021, false}, RouterCase{"Lowest", 0, 1, 1, false},
                    RouterCase{"Highest", 0, 65535, 65535, false}, RouterCase{"NotMapped", 0, 0, -1, false},
                    RouterCase{"TooHigh", 0, 65536, -1, false}, RouterCase{"WrappingSixteenBits", 0, 70000, -1, false},
                    RouterCase{"NegativePort", 0, -8021, -1, false}, RouterCase{"Failure", -1, 0, -1, true},
                    RouterCase{"FailureThatLeftAPort", -1, 8021, -1, true}),
    [](const auto& answer) { return answer.param.test; });

TEST_F(ExternalPort, IsAskedForEvenWithoutAPort) {
    Offer(R"([{"service":"ftp","ports":[]}])");
    ServiceConf service(nullptr);
    EXPECT_THAT(MessagesAt(7, [&] { EXPECT_TRUE(service.ReadConf("ftp")); }),
                ElementsAre("service_conf.cpp ftp port does not exist",
                            "service_conf.cpp Cannot get router port of port [-1]."));
}

TEST_F(ExternalPort, SecureShellSettingIsReadIntoSixteenBytes) {
    OfferAtPort("ssh", "22");
    PlatformFaults faults;
    const ServiceConf service("ssh");
    EXPECT_THAT(faults.calls, Contains(std::string("GetKeyValue ") + kDeviceSettings + " ssh_port 16 0"));
}

}  // namespace

}  // namespace ARDV::Relay
