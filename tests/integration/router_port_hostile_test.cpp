// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "integration/router_port_fixture.h"
#include "support/fake_router.h"
#include "support/shifted_clock.h"

namespace {

using ardv::test::AnswerFor;
using ardv::test::AskForAllServices;
using ardv::test::FakeRouter;
using ardv::test::LetPass;
using ardv::test::RouterPortOf;
using ardv::test::ServicesLoad;
using httplib::Request;
using httplib::Response;
using Handler = FakeRouter::Handler;

constexpr const char* kOtherAddress = "192.168.77.9";
constexpr const char* kXml = "text/xml";

/// One mapping as a router writes it; by default one that counts.
struct Entry {
    std::string routerPort = "30080";
    std::string port = "80";
    std::string client = "192.168.77.2";
    std::string protocol = "TCP";
    std::string enabled = "1";

    std::string Text(const std::string& prefix = "") const {
        const auto element = [&prefix](const std::string& name, const std::string& value) {
            return "<" + prefix + name + ">" + value + "</" + prefix + name + ">";
        };
        return element("NewRemoteHost", "") + element("NewExternalPort", routerPort) +
               element("NewProtocol", protocol) + element("NewInternalPort", port) +
               element("NewInternalClient", client) + element("NewEnabled", enabled) +
               element("NewPortMappingDescription", "test") + element("NewLeaseDuration", "0");
    }
};

std::string Envelope(const std::string& body) {
    return "<?xml version=\"1.0\"?>\r\n<s:Envelope xmlns:s=\"http://schemas.xmlsoap.org/soap/envelope/\"><s:Body>" +
           body + "</s:Body></s:Envelope>\r\n";
}

std::string Fault(int code) {
    return Envelope("<s:Fault><faultcode>s:Client</faultcode><detail><UPnPError><errorCode>" + std::to_string(code) +
                    "</errorCode></UPnPError></detail></s:Fault>");
}

std::string EntryAnswer(const Entry& entry) {
    return Envelope("<u:GetGenericPortMappingEntryResponse>" + entry.Text() +
                    "</u:GetGenericPortMappingEntryResponse>");
}

std::string ListAnswer(const std::string& listing) {
    return Envelope("<u:GetListOfPortMappingsResponse><NewPortListing>" + listing +
                    "</NewPortListing></u:GetListOfPortMappingsResponse>");
}

/// A document of mappings.
std::string Listing(const std::vector<Entry>& entries) {
    std::string text = "<p:PortMappingList xmlns:p=\"urn:schemas-upnp-org:gw:WANIPConnection\">";
    for (const Entry& entry : entries) {
        text += "<p:PortMappingEntry>" + entry.Text("p:") + "</p:PortMappingEntry>\n";
    }
    return text + "</p:PortMappingList>";
}

std::string InCdata(const std::string& document) {
    return "<![CDATA[" + document + "]]>";
}

std::string Escaped(const std::string& document) {
    std::string text;
    for (const char c : document) {
        text += c == '<' ? "&lt;" : c == '>' ? "&gt;" : c == '"' ? "&quot;" : std::string(1, c);
    }
    return text;
}

int IndexIn(const std::string& request) {
    const std::string mark = "<NewPortMappingIndex>";
    return std::stoi(request.substr(request.find(mark) + mark.size()));
}

/// A connection of version 1 with these mappings.
Handler Answering(std::vector<Entry> entries) {
    return [entries = std::move(entries)](const Request& request, Response& answer) {
        const auto index = static_cast<std::size_t>(IndexIn(request.body));
        const bool isThere = index < entries.size();
        answer.status = isThere ? 200 : 500;
        answer.set_content(isThere ? EntryAnswer(entries[index]) : Fault(713), kXml);
    };
}

/// One that gives this text for whatever is asked.
Handler Saying(std::string text, int status = 200) {
    return [text = std::move(text), status](const Request&, Response& answer) {
        answer.status = status;
        answer.set_content(text, kXml);
    };
}

/// One that begins to answer and goes no further until the end of the test.
class Stall {
public:
    ~Stall() { over_.set_value(); }
    Handler Begin(const std::string& text) {
        return [isOver = isOver_, text](const Request&, Response& answer) {  // a copy: the router outlives this
            answer.set_content_provider(
                1000000, kXml, [isOver, text](std::size_t at, std::size_t, httplib::DataSink& sink) {
                    return at == 0 ? sink.write(text.data(), text.size()) : (isOver.wait(), false);
                });
        };
    }

private:
    std::promise<void> over_;
    std::shared_future<void> isOver_{over_.get_future()};
};

class HostileRouter : public ardv::test::RouterPort {
protected:
    void Start(FakeRouter::Script script) {
        router_.reset();
        router_ = std::make_unique<FakeRouter>(*network_, std::move(script));
    }

    /// Has a router of version 2 answer every list with this text.
    void StartWithList(const std::string& listing) {
        Start({.description = FakeRouter::GoodDescription("/control", "WANIPConnection:2"),
               .control = Saying(ListAnswer(listing))});
    }

    void GiveOtherAddress() {
        network_->Run({"ip", "address", "add", std::string(kOtherAddress) + "/24", "dev", "lan0r"});
    }

    std::unique_ptr<FakeRouter> router_;
};

}  // namespace

TEST_F(HostileRouter, IsBelievedWhenItSpeaksAsItShould) {
    Start({.control = Answering({{.routerPort = "30443", .port = "443"}, {}})});
    EXPECT_EQ(AnswerFor(80), 30080);
    EXPECT_EQ(AnswerFor(443), 30443);
    EXPECT_EQ(AnswerFor(22), 0);
}

TEST_F(HostileRouter, MayWriteItsListInCdataOrEscaped) {
    StartWithList(InCdata(Listing({{}, {.routerPort = "30443", .port = "443"}})));
    EXPECT_EQ(AnswerFor(80), 30080);
    EXPECT_EQ(AnswerFor(443), 30443);
    StartWithList(Escaped(Listing({{.routerPort = "40080"}})));
    LetPass(std::chrono::seconds(ARDV_PORT_MAPPING_KEPT_SECONDS));
    EXPECT_EQ(AnswerFor(80), 40080);
}

TEST_F(HostileRouter, MayHaveSeveralConnections) {
    const std::string two =
        "<service><serviceType>urn:schemas-upnp-org:service:WANPPPConnection:1</serviceType>"
        "<controlURL>/absent</controlURL></service><service>";
    std::string description = FakeRouter::GoodDescription();
    description.replace(description.find("<service>"), std::string("<service>").size(), two);
    Start({.description = description, .control = Answering({{}})});
    EXPECT_EQ(AnswerFor(80), 30080);
    EXPECT_EQ(AnswerFor(443), -ARDV_ERR_BAD_VALUE) << "it may be mapped by the connection that doesn't answer";
}

TEST_F(HostileRouter, IsAskedEntryByEntryWhenItHasNoList) {
    const Handler entries = Answering({{}});
    Start({.description = FakeRouter::GoodDescription("/control", "WANIPConnection:2"),
           .control = [entries](const Request& request, Response& answer) {
               const bool isList = request.body.find("GetListOfPortMappings") != std::string::npos;
               isList ? Saying(Fault(401), 500)(request, answer) : entries(request, answer);
           }});
    EXPECT_EQ(AnswerFor(80), 30080);
    EXPECT_EQ(AnswerFor(22), 0);
}

TEST_F(HostileRouter, MayHaveAnEmptyList) {
    Start({.description = FakeRouter::GoodDescription("/control", "WANIPConnection:2"),
           .control = Saying(Fault(730), 500)});
    EXPECT_EQ(AnswerFor(80), 0);
}

TEST_F(HostileRouter, IsPassedOverWhenItsDescriptionIsElsewhere) {
    GiveOtherAddress();
    const std::vector<std::string> answers = {FakeRouter::GoodAnswer("http://192.168.77.9/description"),
                                              FakeRouter::GoodAnswer("http://127.0.0.1:8080/description"),
                                              FakeRouter::GoodAnswer("http://router.example/description"),
                                              FakeRouter::GoodAnswer("https://192.168.77.1/description"),
                                              FakeRouter::GoodAnswer("file:///etc/passwd"),
                                              FakeRouter::GoodAnswer("http://192.168.77.1@192.168.77.9/description"),
                                              FakeRouter::GoodAnswer("http://user@192.168.77.1/description"),
                                              FakeRouter::GoodAnswer("description"),
                                              FakeRouter::GoodAnswer("")};
    Start({.searchAnswers = answers, .control = Answering({{}})});
    EXPECT_EQ(RouterPortOf(80), -ARDV_ERR_NO_ANSWER);
    EXPECT_EQ(network_->Connections(), 0);
}

TEST_F(HostileRouter, IsPassedOverWhenItIsNotTheGateway) {
    GiveOtherAddress();
    Start({.answersFrom = kOtherAddress, .control = Answering({{}})});
    EXPECT_EQ(RouterPortOf(80), -ARDV_ERR_NO_ANSWER);
    EXPECT_EQ(network_->Connections(), 0);
}

TEST_F(HostileRouter, IsPassedOverWhenItIsSomethingElse) {
    const std::string good = FakeRouter::GoodAnswer();
    Start({.searchAnswers = {FakeRouter::GoodAnswer("@URL@/description", "urn:schemas-upnp-org:device:MediaServer:1"),
                             "NOTIFY * HTTP/1.1\r\n" + good.substr(good.find('\n') + 1),
                             "HTTP/1.1 404 Not Found\r\n" + good.substr(good.find('\n') + 1)},
           .control = Answering({{}})});
    EXPECT_EQ(RouterPortOf(80), -ARDV_ERR_NO_ANSWER);
    EXPECT_EQ(network_->Connections(), 0);
}

TEST_F(HostileRouter, IsHeardBehindRubbish) {
    Start(
        {.searchAnswers = {"", "\r\n", std::string(3000, 'x'), "HTTP/1.1 200 OK",
                           "HTTP/1.1 200 OK\r\nST:\r\nLOCATION:\r\n", std::string(100, '\0'), FakeRouter::GoodAnswer()},
         .control = Answering({{}})});
    EXPECT_EQ(AnswerFor(80), 30080);
}

TEST_F(HostileRouter, CannotSendTheDeviceElsewhere) {
    GiveOtherAddress();
    std::string based = FakeRouter::GoodDescription("control");
    based.replace(based.find("<device>"), 0, "<URLBase>http://192.168.77.9/</URLBase>");
    for (const std::string& description :
         {FakeRouter::GoodDescription("http://192.168.77.9/control"),
          FakeRouter::GoodDescription("http://127.0.0.1:22/"), FakeRouter::GoodDescription("//192.168.77.9/control"),
          FakeRouter::GoodDescription("gopher://192.168.77.1/control"),
          FakeRouter::GoodDescription("/" + std::string(127, 'a')), based}) {
        Start({.description = description, .control = Answering({{}})});
        const int connections = network_->Connections();
        LetPass(std::chrono::seconds(ARDV_PORT_MAPPING_ABSENCE_KEPT_SECONDS));
        EXPECT_EQ(AnswerFor(80), -ARDV_ERR_BAD_VALUE) << description;
        EXPECT_EQ(network_->Connections() - connections, 1) << description;
    }
}

TEST_F(HostileRouter, CannotRedirectTheDevice) {
    Start({.describe = [](const Request&, Response& answer) { answer.set_redirect("/other"); },
           .control = Answering({{}})});
    const int connections = network_->Connections();
    EXPECT_EQ(AnswerFor(80), -ARDV_ERR_BAD_VALUE);
    EXPECT_EQ(network_->Connections() - connections, 1);
}

TEST_F(HostileRouter, IsCutOffWhenItTalksWithoutEnd) {
    auto sent = std::make_shared<std::atomic<std::size_t>>(0);
    const std::string block(65536, ' ');
    Start({.describe = [=](const Request&, Response& answer) {
        answer.set_chunked_content_provider(kXml, [=](std::size_t, httplib::DataSink& sink) {
            *sent += block.size();
            return sink.write(block.data(), block.size());
        });
    }});
    EXPECT_EQ(AnswerFor(80), -ARDV_ERR_BAD_VALUE);
    EXPECT_LT(*sent, 16u * 1024 * 1024);
}

TEST_F(HostileRouter, IsRefusedWhenItMakesNoSense) {
    for (const char* text :
         {"", "router", "<", "<root>", "<root></root>", "{\"ports\": []}", "<service></service></service>"}) {
        Start({.description = text});
        LetPass(std::chrono::seconds(ARDV_PORT_MAPPING_ABSENCE_KEPT_SECONDS));
        EXPECT_EQ(AnswerFor(80), -ARDV_ERR_BAD_VALUE) << text;
        Start({.control = Saying(text)});
        LetPass(std::chrono::seconds(ARDV_PORT_MAPPING_ABSENCE_KEPT_SECONDS));
        EXPECT_EQ(AnswerFor(80), -ARDV_ERR_BAD_VALUE) << text;
    }
}

TEST_F(HostileRouter, DoesNotMapPortsThatAreNone) {
    for (const char* port :
         {"0", "-1", "65536", "70000", "65616", "4294967376", "99999999999999999999", "80x", " ", "0x50", ""}) {
        StartWithList(InCdata(Listing({{.port = port}, {.routerPort = port}})));
        LetPass(std::chrono::seconds(ARDV_PORT_MAPPING_KEPT_SECONDS));
        EXPECT_EQ(AnswerFor(80), 0) << port;
        EXPECT_EQ(AnswerFor(4464), 0) << port;
    }
    Start({.control = Answering({{.routerPort = "70000"}, {.port = "65616"}, {.routerPort = "30081"}})});
    LetPass(std::chrono::seconds(ARDV_PORT_MAPPING_KEPT_SECONDS));
    EXPECT_EQ(AnswerFor(80), 30081);
}

TEST_F(HostileRouter, CountsOnlyMappingsInForceForThisDevice) {
    Start({.control = Answering({{.routerPort = "1", .enabled = "0"},
                                 {.routerPort = "2", .enabled = ""},
                                 {.routerPort = "3", .client = "device.example"},
                                 {.routerPort = "4", .client = "192.168.77.20"},
                                 {.routerPort = "5", .protocol = "UDP"},
                                 {.routerPort = "6", .protocol = "tcp", .enabled = "True"}})});
    EXPECT_EQ(AnswerFor(80), 6);
}

TEST_F(HostileRouter, IsLeftWhenItsEntriesDoNotEnd) {
    std::atomic<int> asked = 0;
    Start({.control = [&asked](const Request& request, Response& answer) {
        ++asked;
        answer.set_content(EntryAnswer({.port = IndexIn(request.body) == 0 ? "80" : "81", .client = "192.168.77.2"}),
                           kXml);
    }});
    const auto start = std::chrono::steady_clock::now();
    EXPECT_LT(RouterPortOf(22), 0) << "it may be mapped in what wasn't read";
    EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), 1.0);
    EXPECT_LE(asked, 512);
    EXPECT_EQ(AnswerFor(80), 30080);
    router_.reset();
}

TEST_F(HostileRouter, IsLeftWhenItsListDoesNotEnd) {
    std::vector<Entry> entries(600, Entry{.routerPort = "9", .port = "9"});
    entries.back() = {};
    StartWithList(InCdata(Listing(entries)));
    EXPECT_EQ(AnswerFor(9), 9);
    EXPECT_EQ(AnswerFor(80), -ARDV_ERR_BAD_VALUE) << "it may be mapped in what wasn't read";
}

TEST_F(HostileRouter, MayBeSlowWheneverItIsAsked) {
    constexpr std::chrono::milliseconds kPause{20};
    constexpr std::size_t kEntries = 25;
    std::vector<Entry> entries(kEntries, Entry{.routerPort = "9", .port = "9"});
    entries.back() = {};
    Start({.control = [entries = Answering(entries), kPause](const Request& request, Response& answer) {
        std::this_thread::sleep_for(kPause);
        entries(request, answer);
    }});
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(AnswerFor(80), 30080) << round;
        LetPass(std::chrono::seconds(ARDV_PORT_MAPPING_KEPT_SECONDS));
    }
}

TEST_F(HostileRouter, IsLeftInTimeWhenItStalls) {
    Stall stall;
    Start({.describe = stall.Begin("<root>")});
    const ServicesLoad description = AskForAllServices();
    EXPECT_TRUE(description.isUniform);
    EXPECT_EQ(description.answer, -ARDV_ERR_NO_ANSWER);
    EXPECT_LT(description.time.count(), 1.0);
}

TEST_F(HostileRouter, IsLeftInTimeWhenItStallsInItsList) {
    Stall stall;
    Start({.description = FakeRouter::GoodDescription("/control", "WANIPConnection:2"),
           .control = stall.Begin("<s:Envelope>")});
    const ServicesLoad list = AskForAllServices();
    EXPECT_TRUE(list.isUniform);
    EXPECT_EQ(list.answer, -ARDV_ERR_NO_ANSWER);
    EXPECT_LT(list.time.count(), 1.0);
}

TEST_F(HostileRouter, DoesNoHarmByDamagedAnswers) {
    const std::string good = ListAnswer(InCdata(Listing({{}, {.routerPort = "30443", .port = "443"}})));
    std::minstd_rand random(1);  // NOLINT(cert-msc51-cpp): the same damage every time
    std::mutex mutex;            // the server's threads say what the test has put in place
    std::string said = good;
    const auto say = [&](const std::string& text) {
        const std::lock_guard lock(mutex);
        said = text;
    };
    Start({.description = FakeRouter::GoodDescription("/control", "WANIPConnection:2"),
           .control = [&](const Request& request, Response& answer) {
               const std::lock_guard lock(mutex);
               Saying(said)(request, answer);
           }});
    for (int round = 0; round < 60; ++round) {
        std::string text = good.substr(0, round % 3 == 0 ? random() % good.size() : good.size());
        for (int change = 0; change < round % 5; ++change) {
            text[random() % text.size()] = "<>&;/![]\"\0x"[random() % 11];
        }
        text += round % 20 == 19 ? std::string(50000, '<') + "<" + std::string(50000, 'a') + ">" : "";
        LetPass(std::chrono::seconds(ARDV_PORT_MAPPING_ABSENCE_KEPT_SECONDS));
        say(text);
        const int port = RouterPortOf(443);
        const bool isFailure = port == -ARDV_ERR_BAD_VALUE || port == -ARDV_ERR_NO_ANSWER;
        EXPECT_TRUE(isFailure || port == 0 || text.find(">" + std::to_string(port) + "<") != std::string::npos)
            << port << ": " << text;
    }
    say(good);
    LetPass(std::chrono::seconds(ARDV_PORT_MAPPING_ABSENCE_KEPT_SECONDS));
    EXPECT_EQ(AnswerFor(443), 30443);
    router_.reset();
}
