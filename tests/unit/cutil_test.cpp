// SPDX-License-Identifier: Apache-2.0
#include <relay/common/ardvrelayd.h>

#include <syslog.h>

#include <array>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "support/device_test.h"
#include "support/memory_faults.h"
#include "support/platform_faults.h"
#include "support/system_log.h"

namespace {

using namespace ardv::test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const std::string kNoFile = "cutil.cpp invalid relayd config, /usr/ardv/etc/ardvrelayd/ardvrelayd.conf";

/** What a function left in a caller's buffer that held something else before. */
template <typename Call>
std::string BufferAfter(Call&& call, std::size_t size = 64) {
    std::array<char, 64> buffer = {};
    buffer.fill('x');
    call(buffer.data(), size);
    return {buffer.data(), buffer.size()};
}

/** What a buffer of 64 bytes holds once a text was written over its first bytes. */
std::string Holding(const std::string& text) {
    return text + '\0' + std::string(63 - text.size(), 'x');
}

const std::string kUntouched(64, 'x');

using ServerId = DeviceTest;

struct Asked {
    const char* name;
    const char* configuration;
    const char* service;
    int result;
    const char* id;
};

class ServerIdAnswer : public DeviceTest, public testing::WithParamInterface<Asked> {};

TEST_P(ServerIdAnswer, TellsTheIdAndWhetherTheServiceIsRelayed) {
    WriteText(kConfigFile, GetParam().configuration);
    const CapturedLog log;
    const auto buffer = BufferAfter([](char* text, std::size_t size) {
        EXPECT_EQ(ALIBRelaydGetServerId(GetParam().service, text, size), GetParam().result);
    });
    EXPECT_EQ(buffer, Holding(GetParam().id));
    EXPECT_EQ(ALIBRelaydGetServerId(GetParam().service, nullptr, 64), GetParam().result) << "without a buffer";
    EXPECT_EQ(log.Text(), "");
    EXPECT_EQ(ReadText(kConfigFile), GetParam().configuration);
}

INSTANTIATE_TEST_SUITE_P(
    Configurations, ServerIdAnswer,
    testing::Values(Asked{"Plain", R"({"serverID":"abc"})", nullptr, 1, "abc"},
                    Asked{"Empty", R"({"serverID":""})", nullptr, 0, ""}, Asked{"None", "{}", nullptr, 0, ""},
                    Asked{"Number", R"({"serverID":7})", nullptr, 0, ""},
                    Asked{"Null", R"({"serverID":null})", "photo", 0, ""},
                    Asked{"EmptyWithService", R"({"serverID":"","service":[{"id":"photo"}]})", "photo", 0, ""},
                    Asked{"NoServices", R"({"serverID":"abc"})", "photo", 0, "abc"},
                    Asked{"ServicesOfAnotherType", R"({"serverID":"abc","service":{"id":"photo"}})", "photo", 0, "abc"},
                    Asked{"NoService", R"({"serverID":"abc","service":[]})", "photo", 0, "abc"},
                    Asked{"OneService", R"({"serverID":"abc","service":[{"id":"photo"}]})", "photo", 1, "abc"},
                    Asked{"LastService", R"({"serverID":"abc","service":[5,{"id":"a"},{"id":"photo"}]})", "photo", 1,
                          "abc"},
                    Asked{"OtherServices", R"({"serverID":"abc","service":[{"id":"photos"},{"id":"Photo"},"photo"]})",
                          "photo", 0, "abc"},
                    Asked{"AnyService", R"({"serverID":"abc","service":[]})", nullptr, 1, "abc"},
                    Asked{"IdOfAnotherType", R"({"serverID":"abc","service":[{"id":["photo"]}]})", "photo", 0, "abc"},
                    Asked{"EmptyNameAndNoId", R"({"serverID":"abc","service":[{"id":"a"},{}]})", "", 1, "abc"},
                    Asked{"EmptyNameAndNoObject", R"({"serverID":"abc","service":[5]})", "", 1, "abc"},
                    Asked{"EmptyNameAndIdsAlone", R"({"serverID":"abc","service":[{"id":"a"}]})", "", 0, "abc"}),
    [](const auto& asked) { return asked.param.name; });

TEST_F(ServerId, IsCutToTheBuffer) {
    WriteText(kConfigFile, R"({"serverID":"abcdef"})");
    const auto bufferOf = [](std::size_t room) {
        return BufferAfter(
            [](char* text, std::size_t size) { EXPECT_EQ(ALIBRelaydGetServerId("photo", text, size), 0); }, room);
    };
    EXPECT_EQ(bufferOf(3), Holding("ab"));
    EXPECT_EQ(bufferOf(1), Holding(""));
    EXPECT_EQ(bufferOf(0), kUntouched);
    EXPECT_EQ(bufferOf(7), Holding("abcdef"));
}

TEST_F(ServerId, WithoutAFileIsAFailureThatEmptiesTheBuffer) {
    ExpectMessage(7, kNoFile, [] {
        EXPECT_EQ(BufferAfter(
                      [](char* text, std::size_t size) { EXPECT_EQ(ALIBRelaydGetServerId(nullptr, text, size), -1); }),
                  Holding(""));
    });
}

TEST_F(ServerId, OfADamagedFileIsAFailureThatMovesItAside) {
    WriteText(kConfigFile, "{");
    const CapturedLog log;
    EXPECT_EQ(ALIBRelaydGetServerId(nullptr, nullptr, 0), -1);
    EXPECT_THAT(log.Messages(), ElementsAre("config.cpp bad json format [" + std::string(kConfigFile) + "]", kNoFile));
    EXPECT_EQ(ReadText(std::string(kConfigFile) + ".bad"), "{");
}

TEST_F(ServerId, OfAFileThatIsNoObjectIsAFailureWithoutAMessage) {
    for (const char* text : {"[]", "\"serverID\"", "5", "null", "true"}) {
        WriteText(kConfigFile, text);
        const CapturedLog log;
        EXPECT_EQ(BufferAfter(
                      [](char* room, std::size_t size) { EXPECT_EQ(ALIBRelaydGetServerId(nullptr, room, size), -1); }),
                  Holding(""))
            << text;
        EXPECT_EQ(log.Text(), "");
    }
}

/** No exception may pass into a program in C. */
template <typename Call>
void ExpectCaught(Call call) {
    WriteText(kConfigFile, R"({"serverID":"abc"})");
    PlatformFaults faults;
    faults.onRead = [](const std::string& path) {
        if (path == kConfigFile) {
            throw std::runtime_error("a reason");
        }
    };
    ExpectMessage(3, "cutil.cpp exception caught: a reason", [&] { EXPECT_EQ(call(), -1); });
}

/** Wherever memory runs out, the call fails or manages without. */
template <typename Call>
void ExpectSafeWithoutMemory(Call call, int usual) {
    const CapturedLog log(0);
    int failures = 0;
    for (bool isLeft = true; isLeft; ++failures) {
        WriteText(kConfigFile, R"({"serverID":"abc","server_global":{"host":"g.tethra.zz"}})");
        int result = 0;
        isLeft = IsShortOfMemory(failures, [&] { result = call(); });
        EXPECT_THAT(result, testing::AnyOf(usual, isLeft ? -1 : usual)) << failures;
    }
    EXPECT_GT(failures, 5);
}

TEST_F(ServerId, IsAFailureWhereAnythingIsThrown) {
    ExpectCaught([] { return ALIBRelaydGetServerId(nullptr, nullptr, 0); });
}

TEST_F(ServerId, CannotBeHadWithoutMemory) {
    ExpectSafeWithoutMemory([] { return ALIBRelaydGetServerId(nullptr, nullptr, 0); }, 1);
}

class PortalDomain : public DeviceTest {
protected:
    static void WriteHost(const std::string& host) {
        Json::Value configuration;
        configuration["server_global"]["host"] = host;
        WriteText(kConfigFile, ARDV::Relay::JsonText::Compact(configuration));
    }
};

TEST_F(PortalDomain, IsThatOfTheDefaultHostWithoutAFile) {
    const CapturedLog log;
    EXPECT_EQ(BufferAfter([](char* text, std::size_t size) { EXPECT_EQ(ALIBRelaydGetPortalDomain(text, size), 0); }),
              Holding("tethra.example"));
    EXPECT_THAT(log.Messages(), ElementsAre(std::string("config.cpp invalid relayd config, ") + kConfigFile));
}

TEST_F(PortalDomain, IsWhatFollowsTheHostsFirstLabels) {
    const std::pair<std::string, std::string> cases[] = {
        {"g.tethra.zz", "tethra.zz"},
        {"eu1.global.tethra.example", "tethra.example"},
        {"x.tethra.one.tethra.two", "tethra.two"},
        {"-.tethra.Z9", "tethra.Z9"},
        {"..tethra.zz", "tethra.zz"},
        {std::string(1024 - 10, 'a') + ".tethra.zz", "tethra.zz"},
    };
    for (const auto& [host, domain] : cases) {
        WriteHost(host);
        const CapturedLog log;
        EXPECT_EQ(
            BufferAfter([](char* text, std::size_t size) { EXPECT_EQ(ALIBRelaydGetPortalDomain(text, size), 0); }),
            Holding(domain))
            << host;
        EXPECT_EQ(log.Text(), "");
    }
}

TEST_F(PortalDomain, IsCutToTheBuffer) {
    WriteHost("g.tethra.zz");
    const auto bufferOf = [](std::size_t room) {
        return BufferAfter([](char* text, std::size_t size) { EXPECT_EQ(ALIBRelaydGetPortalDomain(text, size), 0); },
                           room);
    };
    EXPECT_EQ(bufferOf(5), Holding("teth"));
    EXPECT_EQ(bufferOf(1), Holding(""));
    EXPECT_EQ(bufferOf(0), kUntouched);
}

TEST_F(PortalDomain, OfAnEmptyHostIsAFailureOfTheConfigurationToo) {
    WriteHost("");
    std::array<char, 64> buffer = {};
    const CapturedLog log(3);
    EXPECT_THAT(SystemLogOf([&buffer] { ALIBRelaydGetPortalDomain(buffer.data(), buffer.size()); }),
                testing::EndsWith("Failed to parse control domain: "));
    EXPECT_THAT(log.Messages(),
                ElementsAre("config.cpp wrong global server config", "config.cpp invalid relayd config"));
}

class OtherHost : public PortalDomain, public testing::WithParamInterface<std::string> {};

TEST_P(OtherHost, HasNoPortalDomainWhichTheSystemLogTells) {
    WriteHost(GetParam());
    const auto text = SystemLogOf([] {
        const CapturedLog log;
        int result = 0;
        const auto buffer =
            BufferAfter([&](char* room, std::size_t size) { result = ALIBRelaydGetPortalDomain(room, size); });
        syslog(LOG_INFO, "result %d, %s, log \"%s\"", result, buffer == kUntouched ? "untouched" : "written",
               log.Text().c_str());
    });
    EXPECT_THAT(text, testing::StartsWith("<11>")) << "priority error of a user program";
    EXPECT_THAT(text, testing::ContainsRegex(": cutil\\.cpp:[0-9]+ Failed to parse control domain: "));
    EXPECT_THAT(text, HasSubstr("control domain: " + GetParam().substr(0, GetParam().find('\n'))));
    EXPECT_THAT(text, testing::EndsWith("result -1, untouched, log \"\""));
}

INSTANTIATE_TEST_SUITE_P(Hosts, OtherHost,
                         testing::Values("tethra.zz", ".tethra.zz", "g.tethra.", "g.tethra.zz.", "g.tethra.a-b",
                                         "g.tethra.zz.other", "g.TETHRA.zz", "g.tethra", "gtethra.zz", "g.xtethra.zz",
                                         "g.other.zz", "g\n.tethra.zz", "g.tethra.zz\n",
                                         std::string(1024 - 9, 'a') + ".tethra.zz"));

TEST_F(PortalDomain, NeedsABufferAndReadsNothingWithoutOne) {
    WriteText(kConfigFile, "{");
    const CapturedLog log;
    EXPECT_EQ(ALIBRelaydGetPortalDomain(nullptr, 64), -1);
    EXPECT_EQ(ALIBRelaydGetPortalDomain(nullptr, 0), -1);
    EXPECT_EQ(ReadText(kConfigFile), "{");
    EXPECT_EQ(log.Text(), "");
}

TEST_F(PortalDomain, IsAFailureWhereAnythingIsThrown) {
    std::array<char, 64> buffer = {};
    ExpectCaught([&buffer] { return ALIBRelaydGetPortalDomain(buffer.data(), buffer.size()); });
    EXPECT_EQ(buffer[0], '\0');
}

TEST_F(PortalDomain, CannotBeHadWithoutMemory) {
    std::array<char, 64> buffer = {};
    ExpectSafeWithoutMemory([&buffer] { return ALIBRelaydGetPortalDomain(buffer.data(), buffer.size()); }, 0);
}

}  // namespace
