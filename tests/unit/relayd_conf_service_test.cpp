// SPDX-License-Identifier: Apache-2.0
#include <relay/config/config.h>

#include <string>
#include <vector>

#include "support/service_device.h"
#include "support/service_faults.h"

namespace ARDV::Relay {

namespace {

using namespace ardv::test;
using testing::ElementsAre;
using testing::IsEmpty;

/** On a device that offers the operating system, FTP and a file service. */
class RelaydConfService : public ServiceDevice {
protected:
    RelaydConfService() {
        Offer(R"([{"service":"dms","section":"System","title":"Portal","ports":["1"]},
                  {"service":"ftp","display_name":"FTP","ports":["21"]},
                  {"service":"drivara","display_name":"Files","ports":["6690"]},
                  {"service":"two","ports":["1","2"]}])");
        faults_.router = {0, 0};
    }

    /** The services of the full form. */
    Json::Value Services(bool full = true) const {
        Json::Value value;
        EXPECT_TRUE(conf_.Write(value, full));
        return value["service"];
    }

    void Merge(const std::string& services) { EXPECT_TRUE(conf_.Overwrite(JsonOf("{\"service\":" + services + "}"))); }

    std::vector<std::string> MessagesOfMerge(const std::string& services, int level = 3) {
        return MessagesAt(level, [&] { Merge(services); });
    }

    ServiceFaults faults_;
    RelaydConf conf_{nullptr};
};

TEST_F(RelaydConfService, AreReadFromTheDeviceInTheOrderOfTheList) {
    EXPECT_THAT(MessagesOfMerge(R"([{"id":"ftp"},{"id":"hos"},{"id":"support_ftp"}])", 9), IsEmpty());
    EXPECT_EQ(Services(),
              JsonOf(R"([{"id":"ftp","name":"FTP","port":21},{"id":"hos","name":"System:Portal","port":5000},
                                     {"id":"support_ftp","name":"FTP","port":21}])"));
    EXPECT_EQ(faults_.CallsOf("Enum").size(), 3U);
    EXPECT_THAT(faults_.held, IsEmpty());
}

TEST_F(RelaydConfService, GoByTheListWhereItSaysMoreThanTheIdentifier) {
    faults_.router = {0, 8021};
    Merge(R"([{"id":"ftp","port":2121},{"id":"hos","name":"mine","ext_port":80},{"id":"gopher","port":70}])");
    EXPECT_EQ(Services(), JsonOf(R"([{"id":"ftp","name":"FTP","port":2121,"ext_port":8021},
                                     {"id":"hos","name":"mine","port":5000,"ext_port":80},
                                     {"id":"gopher","name":"","port":70}])"));
}

TEST_F(RelaydConfService, AreWrittenByTheirIdentifiersAloneForTheFile) {
    Merge(R"([{"id":"ftp","port":2121,"note":1},{"id":"hos"}])");
    EXPECT_EQ(Services(false), JsonOf(R"([{"id":"ftp"},{"id":"hos"}])"));
}

TEST_F(RelaydConfService, WithTheSameIdentifierAreSilentlyDroppedButTheFirst) {
    EXPECT_THAT(MessagesOfMerge(R"([{"id":"hos"},{"id":"ftp"},{"id":"hos","port":80},{"id":"hos"}])", 9), IsEmpty());
    EXPECT_EQ(Services(), JsonOf(R"([{"id":"hos","name":"System:Portal","port":5000},
                                     {"id":"ftp","name":"FTP","port":21}])"));
}

TEST_F(RelaydConfService, FileThatNamesOneTwiceGivesOne) {
    WriteText(kConfigFile, R"({"service":[{"id":"hos"},{"id":"hos"}]})");
    const RelaydConf conf(kConfigFile);
    ASSERT_EQ(conf.GetServices().size(), 1U);
    EXPECT_EQ(conf.GetServices()[0].GetId(), "hos");
    EXPECT_EQ(conf.GetServices()[0].GetPort(), 5000);
}

TEST_F(RelaydConfService, ThatAreNotValidAreDroppedWithTheirIndexInAMessageOfLevelThree) {
    const std::string list = R"([{"id":"gopher"},{"id":"ftp"},{"id":"two"},{"port":5},{"id":"hos","port":-1}])";
    EXPECT_THAT(MessagesOfMerge(list),
                ElementsAre("config.cpp invalid service config: 0", "config.cpp invalid service config: 2",
                            "config.cpp invalid service config: 3", "config.cpp invalid service config: 4"));
    EXPECT_EQ(Services(false), JsonOf(R"([{"id":"ftp"}])"));
    EXPECT_THAT(MessagesOfMerge(list, 2), IsEmpty());
}

TEST_F(RelaydConfService, ThatAreNotValidLeaveTheirIdentifierToALaterOne) {
    EXPECT_THAT(MessagesOfMerge(R"([{"id":"gopher"},{"id":"gopher","port":70}])"),
                ElementsAre("config.cpp invalid service config: 0"));
    EXPECT_EQ(Services(), JsonOf(R"([{"id":"gopher","name":"","port":70}])"));
}

TEST_F(RelaydConfService, WithANulByteInItsNameIsNotTheOneThatTheNameBeginsWith) {
    OfferAtPort("ssh", "22");
    EXPECT_THAT(MessagesOfMerge(R"([{"id":"ssh\u0000x"}])"), ElementsAre("config.cpp invalid service config: 0"));
    EXPECT_EQ(Services(), Json::Value(Json::arrayValue));
    EXPECT_THAT(MessagesOfMerge(R"([{"id":"ssh\u0000x"},{"id":"ssh"},{"id":"ssh\u0000"},{"id":"support_ssh\u0000x"}])"),
                ElementsAre("config.cpp invalid service config: 0", "config.cpp invalid service config: 2",
                            "config.cpp invalid service config: 3"));
    EXPECT_EQ(Services(), JsonOf(R"([{"id":"ssh","name":"shown","port":22}])"));
}

TEST_F(RelaydConfService, FileWithANulByteInANameGivesNoService) {
    OfferAtPort("ssh", "22");
    WriteText(kConfigFile, R"({"service":[{"id":"ssh\u0000x"}]})");
    const CapturedLog log(3);
    EXPECT_TRUE(conf_.ReadConfigFile(kConfigFile));
    EXPECT_THAT(log.Messages(), ElementsAre("config.cpp invalid service config: 0"));
    EXPECT_THAT(conf_.GetServices(), IsEmpty());
}

TEST_F(RelaydConfService, TwiceTheSameThatIsNotValidIsTwoMessages) {
    EXPECT_EQ(MessagesOfMerge(R"([{"id":"gopher"},{"id":"gopher"}])").size(), 2U);
}

TEST_F(RelaydConfService, ElementsThatAreNoObjectsAreNotValid) {
    EXPECT_EQ(MessagesOfMerge(R"([5,"hos",null,[],{},true,["hos"],{"id":["hos"]}])").size(), 8U);
    EXPECT_EQ(Services(), Json::Value(Json::arrayValue));
}

TEST_F(RelaydConfService, AreReplacedAsAWhole) {
    Merge(R"([{"id":"ftp"},{"id":"hos"}])");
    Merge(R"([{"id":"filara"}])");
    EXPECT_EQ(Services(), JsonOf(R"([{"id":"filara","name":"Files","port":6690}])"));
    Merge("[]");
    EXPECT_EQ(Services(), Json::Value(Json::arrayValue));
}

TEST_F(RelaydConfService, StayWhereTheListIsMissingOrNone) {
    Merge(R"([{"id":"ftp"}])");
    const auto before = Services();
    faults_.calls.clear();
    EXPECT_TRUE(conf_.Overwrite(JsonOf(R"({"serverID":"7"})")));
    for (const char* text : {"{\"id\":\"hos\"}", "\"hos\"", "5", "null", "true", "{}"}) {
        EXPECT_THAT(MessagesOfMerge(text, 9), IsEmpty()) << text;
        EXPECT_EQ(Services(), before) << text;
    }
    EXPECT_THAT(faults_.calls, IsEmpty());
}

TEST_F(RelaydConfService, BadOneDoesNotSpoilTheFile) {
    WriteText(kConfigFile, R"({"serverID":"7","service":[{"id":"gopher"},{"id":"ftp"}]})");
    const CapturedLog log(3);
    EXPECT_TRUE(conf_.ReadConfigFile(kConfigFile));
    EXPECT_THAT(log.Messages(), ElementsAre("config.cpp invalid service config: 0"));
    EXPECT_TRUE(conf_.IsValid());
    EXPECT_EQ(Services(false), JsonOf(R"([{"id":"ftp"}])"));
}

TEST_F(RelaydConfService, PortIsThatOfTheDeviceAtEachLoad) {
    WriteText(kConfigFile, R"({"service":[{"id":"ftp"}]})");
    EXPECT_EQ(RelaydConf(kConfigFile).GetServices().at(0).GetPort(), 21);
    OfferAtPort("ftp", "2121");
    EXPECT_EQ(RelaydConf(kConfigFile).GetServices().at(0).GetPort(), 2121);
}

TEST_F(RelaydConfService, IsFoundByItsIdentifier) {
    Merge(R"([{"id":"ftp"},{"id":"hos"}])");
    ASSERT_NE(conf_.GetServiceById("hos"), nullptr);
    EXPECT_EQ(conf_.GetServiceById("hos")->GetName(), "System:Portal");
    EXPECT_EQ(conf_.GetServiceById("hos"), &conf_.GetServices()[1]);
    for (const char* id : {"HOS", "ho", "support_hos", ""}) {
        EXPECT_EQ(conf_.GetServiceById(id), nullptr) << id;
    }
}

/** Makes a service of the list invalid, which no operation of the library does. */
void BreakService(const RelaydConf& conf, std::size_t index) {
    const_cast<ServiceConf&>(conf.GetServices().at(index)).Overwrite(JsonOf(R"({"port":-1})"));
}

TEST_F(RelaydConfService, FirstInvalidOneOfTheListIsAMessageOfLevelThreeAfterTheServers) {
    Merge(R"([{"id":"hos"},{"id":"ftp"},{"id":"filara"}])");
    EXPECT_TRUE(conf_.IsValid());
    BreakService(conf_, 2);
    ExpectMessage(3, "config.cpp wrong service [filara] config", [this] { EXPECT_FALSE(conf_.IsValid()); });
    BreakService(conf_, 1);
    ExpectMessage(3, "config.cpp wrong service [ftp] config", [this] { EXPECT_FALSE(conf_.IsValid()); });
    conf_.Overwrite(JsonOf(R"({"server_waitcmd":{"port":-1}})"));
    ExpectMessage(3, "config.cpp wrong wait cmd server config", [this] { EXPECT_FALSE(conf_.IsValid()); });
}

TEST_F(RelaydConfService, InvalidOneIsNeverSaved) {
    WriteText(kConfigFile, R"({"service":[{"id":"ftp"}]})");
    RelaydConf conf(kConfigFile);
    BreakService(conf, 0);
    const CapturedLog log(0);
    EXPECT_FALSE(conf.WriteConfig());
    EXPECT_EQ(ReadText(kConfigFile), R"({"service":[{"id":"ftp"}]})");
}

}  // namespace

}  // namespace ARDV::Relay
