// SPDX-License-Identifier: Apache-2.0
#include <relay/config/service_conf.h>

#include <sstream>
#include <string>
#include <type_traits>

#include "support/service_device.h"
#include "support/service_faults.h"

namespace ARDV::Relay {

namespace {

using namespace ardv::test;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char kWhole[] = R"({"ext_port":8021,"id":"ftp","name":"File transfer","port":21})"
                                "\n";

class ServiceConfTest : public ServiceDevice {
protected:
    static ServiceConf Whole() { return ServiceConf(JsonOf(kWhole), false); }
};

TEST_F(ServiceConfTest, StartsWithoutAnythingAndAsksNobodyWithoutAnIdentifier) {
    ServiceFaults faults;
    const ServiceConf service(nullptr);
    EXPECT_EQ(Written(service, true), "{\"id\":\"\",\"name\":\"\"}\n");
    EXPECT_EQ(service.GetPort(), -1);
    EXPECT_EQ(service.GetExtPort(), -1);
    EXPECT_FALSE(service.IsValid());
    EXPECT_THAT(faults.calls, IsEmpty());
}

TEST_F(ServiceConfTest, IsFilledFromTheDeviceByItsIdentifier) {
    OfferAtPort("ftp", "2121");
    const ServiceConf service("ftp");
    EXPECT_EQ(Written(service, true), "{\"id\":\"ftp\",\"name\":\"shown\",\"port\":2121}\n");
    EXPECT_TRUE(service.IsValid());
}

TEST_F(ServiceConfTest, KeepsTheIdentifierThatTheDeviceDoesNotKnow) {
    OfferAtPort("ftp", "2121");
    const CapturedLog log(0);
    const ServiceConf service("gopher");
    EXPECT_EQ(Written(service, true), "{\"id\":\"gopher\",\"name\":\"\"}\n");
    EXPECT_FALSE(service.IsValid());
}

TEST_F(ServiceConfTest, TakesAValueAloneWithoutReading) {
    OfferAtPort("ftp", "2121");
    ServiceFaults faults;
    EXPECT_EQ(Written(ServiceConf(JsonOf(R"({"id":"ftp"})"), false), true), "{\"id\":\"ftp\",\"name\":\"\"}\n");
    EXPECT_EQ(Written(Whole(), true), kWhole);
    EXPECT_THAT(faults.calls, IsEmpty());
}

TEST_F(ServiceConfTest, ValueGoesBeforeWhatTheDeviceSays) {
    OfferAtPort("ftp", "2121");
    ServiceFaults faults;
    faults.router = {0, 9021};
    EXPECT_EQ(Written(ServiceConf(JsonOf(R"({"id":"ftp"})"), true), true),
              "{\"ext_port\":9021,\"id\":\"ftp\",\"name\":\"shown\",\"port\":2121}\n");
    EXPECT_EQ(Written(ServiceConf(JsonOf(kWhole), true), true), kWhole);
    EXPECT_EQ(Written(ServiceConf(JsonOf(R"({"id":"ftp","port":21})"), true), true),
              "{\"ext_port\":9021,\"id\":\"ftp\",\"name\":\"shown\",\"port\":21}\n");
    EXPECT_EQ(faults.CallsOf("RouterPort"), std::vector<std::string>(3, "RouterPort 2121"))
        << "the device's port is asked for, whatever the value says";
}

TEST_F(ServiceConfTest, ValueThatTheDeviceDoesNotOfferIsTakenAllTheSame) {
    const CapturedLog log(0);
    const ServiceConf service(JsonOf(kWhole), true);
    EXPECT_EQ(Written(service, true), kWhole);
    EXPECT_TRUE(service.IsValid());
}

class WithoutIdentifier : public ServiceConfTest, public testing::WithParamInterface<const char*> {};

TEST_P(WithoutIdentifier, IsNotRead) {
    ServiceFaults faults;
    const ServiceConf service(JsonOf(GetParam()), true);
    EXPECT_THAT(faults.calls, IsEmpty());
    EXPECT_EQ(service.GetId(), "");
    EXPECT_FALSE(service.IsValid());
}

INSTANTIATE_TEST_SUITE_P(Values, WithoutIdentifier,
                         testing::Values("{}", R"({"port":21})", R"({"id":5,"port":21})", R"({"id":null,"port":21})",
                                         R"({"id":["ftp"]})", R"([{"id":"ftp"}])", "\"ftp\"", "5", "null", "true"),
                         [](const auto& value) { return "Number" + std::to_string(value.index); });

TEST_F(ServiceConfTest, MergeChangesOnlyWhatItNames) {
    auto service = Whole();
    EXPECT_TRUE(service.Overwrite(JsonOf(R"({"port":2121,"unknown":1})")));
    EXPECT_EQ(Written(service, true), "{\"ext_port\":8021,\"id\":\"ftp\",\"name\":\"File transfer\",\"port\":2121}\n");
    EXPECT_TRUE(service.Overwrite(JsonOf(R"({"id":"b","name":"","ext_port":-1})")));
    EXPECT_EQ(Written(service, true), "{\"id\":\"b\",\"name\":\"\",\"port\":2121}\n");
}

TEST_F(ServiceConfTest, MergeAsksNobody) {
    auto service = Whole();
    ServiceFaults faults;
    service.Overwrite(JsonOf(R"({"id":"hos"})"));
    EXPECT_THAT(faults.calls, IsEmpty());
}

TEST_F(ServiceConfTest, MembersOfAnotherTypeLeaveTheirSettings) {
    auto service = Whole();
    for (const char* text :
         {R"({"id":1,"name":null,"port":"22","ext_port":[22]})", R"({"id":[],"name":5,"port":true,"ext_port":{}})",
          R"({"port":3000000000,"ext_port":22.5})", R"([{"id":"b"}])", "null", "5", "\"b\"", "true"}) {
        EXPECT_TRUE(service.Overwrite(JsonOf(text))) << text;
        EXPECT_EQ(Written(service, true), kWhole) << text;
    }
}

struct Validity {
    const char* name;
    const char* json;
    bool isValid;
};

class ServiceValidity : public ServiceConfTest, public testing::WithParamInterface<Validity> {};

TEST_P(ServiceValidity, NeedsAnIdentifierAndAPortThatIsNotNegative) {
    const ServiceConf service(JsonOf(GetParam().json), false);
    EXPECT_THAT(MessagesAt(9, [&] { EXPECT_EQ(service.IsValid(), GetParam().isValid); }), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Values, ServiceValidity,
                         testing::Values(Validity{"Both", R"({"id":"ftp","port":21})", true},
                                         Validity{"PortZero", R"({"id":"ftp","port":0})", true},
                                         Validity{"NegativePort", R"({"id":"ftp","port":-1})", false},
                                         Validity{"NoPort", R"({"id":"ftp","name":"x","ext_port":21})", false},
                                         Validity{"NoIdentifier", R"({"name":"x","port":21,"ext_port":21})", false},
                                         Validity{"EmptyIdentifier", R"({"id":"","port":21})", false},
                                         Validity{"Nothing", "{}", false}),
                         [](const auto& value) { return value.param.name; });

TEST_F(ServiceConfTest, SavedFormIsTheIdentifierAlone) {
    EXPECT_EQ(Written(Whole(), false), "{\"id\":\"ftp\"}\n");
}

TEST_F(ServiceConfTest, FullFormHasEachPortWhereThereIsOne) {
    const auto full = [](const char* json) { return Written(ServiceConf(JsonOf(json), false), true); };
    EXPECT_EQ(full(R"({"id":"a","port":0})"), "{\"id\":\"a\",\"name\":\"\",\"port\":0}\n");
    EXPECT_EQ(full(R"({"id":"a","ext_port":0})"), "{\"ext_port\":0,\"id\":\"a\",\"name\":\"\"}\n");
    EXPECT_EQ(full(R"({"id":"a","port":-1,"ext_port":-2})"), "{\"id\":\"a\",\"name\":\"\"}\n");
}

TEST_F(ServiceConfTest, WritesBesideOtherMembersAndReplacesItsOwn) {
    auto value = JsonOf(R"({"id":5,"mine":1,"name":"kept"})");
    EXPECT_TRUE(Whole().Write(value, false));
    EXPECT_EQ(value, JsonOf(R"({"id":"ftp","mine":1,"name":"kept"})"));
    EXPECT_TRUE(Whole().Write(value, true));
    EXPECT_EQ(value, JsonOf(R"({"id":"ftp","mine":1,"name":"File transfer","port":21,"ext_port":8021})"));
}

TEST_F(ServiceConfTest, IsComparedByItsIdentifierAlone) {
    auto other = ServiceConf(JsonOf(R"({"id":"ftp","name":"x","port":1,"ext_port":2})"), false);
    EXPECT_TRUE(Whole() == other);
    EXPECT_FALSE(Whole() != other);
    other = Whole();
    other.SetId("FTP");
    EXPECT_FALSE(Whole() == other);
    EXPECT_TRUE(Whole() != other);
    EXPECT_EQ(other.GetPort(), 21);
}

TEST_F(ServiceConfTest, IsPrintedInFull) {
    std::ostringstream stream;
    stream << Whole();
    EXPECT_EQ(stream.str(), kWhole);
}

TEST_F(ServiceConfTest, HasNoFileOfItsOwnAndAVirtualDestructor) {
    auto service = Whole();
    EXPECT_TRUE(service.WriteConfig());
    EXPECT_TRUE(std::has_virtual_destructor_v<ServiceConf>);
}

TEST_F(ServiceConfTest, CopiesAreOfTheirOwn) {
    auto service = Whole();
    ServiceConf copy(service);
    copy.Overwrite(JsonOf(R"({"id":"b","port":5})"));
    EXPECT_EQ(Written(service, true), kWhole);
    service = copy;
    EXPECT_THAT((std::vector<std::string>{service.GetId(), service.GetName()}), ElementsAre("b", "File transfer"));
}

}  // namespace

}  // namespace ARDV::Relay
