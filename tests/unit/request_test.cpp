// SPDX-License-Identifier: Apache-2.0
#include <relay/request/request.h>

#include <set>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/captured_log.h"
#include "support/curl_faults.h"
#include "support/file_text.h"
#include "support/http_server.h"
#include "support/message_level.h"

using namespace ardv::test;
using namespace ARDV::Relay;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr auto kFailed = static_cast<RELAYD_RET>(2);

class RequestOnTheWire : public testing::Test {
protected:
    httplib::Request SendAndSee(Request& request) {
        EXPECT_TRUE(request.Send());
        return server_.Seen().back();
    }

    HttpServer server_;
};

TEST_F(RequestOnTheWire, GetsTheUrlWithItsDataUnescaped) {
    Request request(server_.Url("/page").c_str(), "a=%41&b='x'", false);
    const auto seen = SendAndSee(request);
    EXPECT_EQ(seen.method, "GET");
    EXPECT_EQ(seen.target, "/page?a=%41&b='x'");
    EXPECT_EQ(seen.body, "");
}

TEST_F(RequestOnTheWire, GetsTheUrlWithABareQuestionMarkForEmptyData) {
    Request request(server_.Url("/page").c_str(), "", false);
    EXPECT_EQ(SendAndSee(request).target, "/page?");
}

TEST_F(RequestOnTheWire, PostsItsDataAsAForm) {
    Request request(server_.Url("/page").c_str(), "a=1&b=%20", true);
    const auto seen = SendAndSee(request);
    EXPECT_EQ(seen.method, "POST");
    EXPECT_EQ(seen.target, "/page");
    EXPECT_EQ(seen.body, "a=1&b=%20");
    EXPECT_EQ(seen.get_header_value("Content-Type"), "application/x-www-form-urlencoded");
}

TEST_F(RequestOnTheWire, SendsAnEmptyPostAsAGetOfTheBareUrl) {
    Request request(server_.Url("/page").c_str(), "", true);
    const auto seen = SendAndSee(request);
    EXPECT_EQ(seen.method, "GET");
    EXPECT_EQ(seen.target, "/page");
}

TEST_F(RequestOnTheWire, PostsJsonOnOneLineWithALineFeed) {
    Json::Value data;
    data["text"] = "x y";
    data["number"] = 5;
    Request request(server_.Url("/page"), data, true);
    EXPECT_EQ(SendAndSee(request).body, "{\"number\":5,\"text\":\"x y\"}\n");
}

TEST_F(RequestOnTheWire, PostsItsDataUpToTheFirstNul) {
    Request request(server_.Url("/page"), Json::Value(), true);
    request.SetData(std::string("abc\0def", 7), true);
    EXPECT_EQ(SendAndSee(request).body, "abc");
    EXPECT_EQ(request.GetData(), std::string("abc\0def", 7));
    request.SetData(std::string("\0def", 4), true);
    const auto seen = SendAndSee(request);
    EXPECT_EQ(seen.method, "POST");
    EXPECT_EQ(seen.body, "");
}

struct Step {
    std::string data;
    bool post;
    std::string method;
    std::string target;
    std::string body;
};

const Step kSteps[] = {
    {"long=body", true, "POST", "/page", "long=body"},
    {"b", true, "POST", "/page", "b"},
    {"q=1", false, "GET", "/page?q=1", ""},
    {"longer=than=before", true, "POST", "/page", "longer=than=before"},
    {"", true, "GET", "/page", ""},
    {"after=empty", true, "POST", "/page", "after=empty"},
    {"", false, "GET", "/page?", ""},
    {"last=1", true, "POST", "/page", "last=1"},
};

void ExpectStep(const Step& step, const httplib::Request& seen) {
    EXPECT_EQ(seen.method, step.method) << step.data;
    EXPECT_EQ(seen.target, step.target) << step.data;
    EXPECT_EQ(seen.body, step.body) << step.data;
}

TEST_F(RequestOnTheWire, ChangesMethodAndDataOfOneRequestAsOftenAsAsked) {
    Request request(server_.Url("/page").c_str(), "first", false);
    for (const auto& step : kSteps) {
        ASSERT_TRUE(request.SetData(step.data, step.post));
        ExpectStep(step, SendAndSee(request));
    }
}

TEST_F(RequestOnTheWire, IsSetUpAnewForEachUse) {
    Request request(nullptr, nullptr, false);
    for (const auto& step : kSteps) {
        ASSERT_TRUE(request.Set(server_.Url("/page"), step.data, step.post));
        ExpectStep(step, SendAndSee(request));
    }
}

TEST_F(RequestOnTheWire, KeepsItsBodyWhenTheCallersTextIsGone) {
    Request request(server_.Url("/page").c_str(), "", true);
    {
        std::string text(3000, 'x');
        ASSERT_TRUE(request.SetData(text, true));
        text.assign(3000, 'y');
    }
    EXPECT_EQ(SendAndSee(request).body, std::string(3000, 'x'));
}

TEST_F(RequestOnTheWire, ConnectsAnewForEachTransfer) {
    Request request(server_.Url().c_str(), "", false);
    std::set<int> ports;
    for (int i = 0; i < 3; ++i) {
        ports.insert(SendAndSee(request).remote_port);
    }
    EXPECT_EQ(ports.size(), 3U);
}

TEST_F(RequestOnTheWire, ReceivesTheBodyOfEachTransferAlone) {
    server_.On("/", 200, std::string("one\0two", 7));
    Request request(server_.Url().c_str(), "", false);
    ASSERT_TRUE(request.Send());
    EXPECT_EQ(request.GetResponse(), std::string("one\0two", 7));
    server_.On("/", 200, "three");
    EXPECT_TRUE(request.Send());
    EXPECT_EQ(request.GetResponse(), "three");
    EXPECT_EQ(request.GetHttpStatus(), 200);
    EXPECT_EQ(request.GetCurlResult(), CURLE_OK);
}

TEST_F(RequestOnTheWire, ForgetsTheLastAnswerWhenATransferFails) {
    Request request(server_.Url().c_str(), "", false);
    ASSERT_TRUE(request.Send());
    const CapturedLog log;
    const CurlFaults faults;
    server_.On("/", [](const auto&, auto& response) {
        response.set_content_provider(100, "text/plain", [](auto, auto, auto&) { return false; });
    });
    EXPECT_FALSE(request.Send());
    EXPECT_EQ(request.GetResponse(), "");
    EXPECT_EQ(request.GetHttpStatus(), -1);
    Json::Value out;
    request.Write(out);
    EXPECT_FALSE(out.isMember("response"));
}

class OtherStatus : public RequestOnTheWire, public testing::WithParamInterface<std::pair<int, RELAYD_RET>> {};

TEST_P(OtherStatus, HidesTheBodyAndIsNoSuccess) {
    const auto [status, ret] = GetParam();
    server_.On("/", status, "{\"a\":1}");
    Request request(server_.Url().c_str(), "", false);
    EXPECT_FALSE(request.Send());
    EXPECT_EQ(request.GetCurlResult(), CURLE_OK);
    EXPECT_EQ(request.GetHttpStatus(), status);
    EXPECT_EQ(request.GetResponse(), "");
    Json::Value out = "as it was";
    EXPECT_FALSE(request.GetResponse(out));
    EXPECT_EQ(out, "as it was");
    EXPECT_EQ(request.GetError(), ret);
    EXPECT_EQ(server_.Seen().size(), 1U) << "no redirect is followed";
}

INSTANTIATE_TEST_SUITE_P(RequestOnTheWire, OtherStatus,
                         testing::Values(std::pair(201, RELAYD_RET_ERR_UNKNOWN), std::pair(302, RELAYD_RET_ERR_UNKNOWN),
                                         std::pair(404, RELAYD_RET_ERR_NETWORK),
                                         std::pair(503, RELAYD_RET_ERR_SERVER_BUSY)));

TEST_F(RequestOnTheWire, FollowsNoRedirect) {
    server_.On("/", [this](const auto&, auto& response) { response.set_redirect(server_.Url("/other"), 302); });
    Request request(server_.Url().c_str(), "", false);
    EXPECT_FALSE(request.Send());
    EXPECT_EQ(server_.Seen().size(), 1U);
}

void AnswerInChunks(HttpServer& server, std::size_t size, std::atomic<std::size_t>& sent) {
    server.On("/", [size, &sent](const auto&, auto& response) {
        response.set_chunked_content_provider("text/plain", [size, &sent](std::size_t, httplib::DataSink& sink) {
            const std::string block(std::min<std::size_t>(64U << 10U, size - sent), 'x');
            if (!block.empty() && !sink.write(block.data(), block.size())) {
                return false;
            }
            if ((sent += block.size()) == size) {
                sink.done();
            }
            return true;
        });
    });
}

TEST_F(RequestOnTheWire, ReceivesSixteenMebibytes) {
    std::atomic<std::size_t> sent = 0;
    AnswerInChunks(server_, 16U << 20U, sent);
    Request request(server_.Url().c_str(), "", false);
    ASSERT_TRUE(request.Send());
    EXPECT_EQ(request.GetResponse().size(), 16U << 20U);
    EXPECT_EQ(Request::kMaxResponseSize, 16U << 20U);
}

class TooLarge : public RequestOnTheWire, public testing::WithParamInterface<std::size_t> {};

TEST_P(TooLarge, IsCut) {
    std::atomic<std::size_t> sent = 0;
    AnswerInChunks(server_, GetParam(), sent);
    Request request(server_.Url().c_str(), "", false);
    const CapturedLog log;
    EXPECT_FALSE(request.Send());
    EXPECT_EQ(request.GetCurlResult(), CURLE_WRITE_ERROR);
    EXPECT_EQ(request.GetError(), kFailed);
    EXPECT_EQ(request.GetResponse(), "");
    EXPECT_LE(sent, 40U << 20U) << "the rest of it never travels";
}

INSTANTIATE_TEST_SUITE_P(RequestOnTheWire, TooLarge, testing::Values((16U << 20U) + 1, 100U << 20U));

TEST_F(RequestOnTheWire, FailsOnAnAnswerThatIsCutOff) {
    for (const auto* bytes : {"HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n{\"a\":",
                              "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\n{\"a\":"}) {
        const RawServer server(bytes);
        Request request(server.Url().c_str(), "a=1", true);
        const CapturedLog log;
        EXPECT_FALSE(request.Send()) << bytes;
        EXPECT_EQ(request.GetCurlResult(), CURLE_PARTIAL_FILE) << bytes;
        EXPECT_EQ(request.GetError(), kFailed);
        EXPECT_EQ(request.GetResponse(), "");
    }
}

TEST_F(RequestOnTheWire, FailsOnAnAnswerThatIsNoHttp) {
    const RawServer server("SSH-2.0-garbage\r\n\xff\xfe");
    Request request(server.Url().c_str(), "a=1", true);
    const CapturedLog log;
    EXPECT_FALSE(request.Send());
    EXPECT_NE(request.GetCurlResult(), CURLE_OK);
    EXPECT_EQ(request.GetError(), kFailed);
    EXPECT_THAT(server.Received(), HasSubstr("a=1"));
}

TEST(Request, GivesUpOnASilentServer) {
    const RawServer server;
    CurlFaults faults;
    faults.timeoutMilliseconds = 200;
    Request request(server.Url().c_str(), "", false);
    const CapturedLog log;
    EXPECT_FALSE(request.Send());
    EXPECT_EQ(request.GetCurlResult(), CURLE_OPERATION_TIMEDOUT);
    EXPECT_EQ(request.GetError(), RELAYD_RET_ERR_NETWORK);
}

TEST(Request, NamesTheUrlOfAFailedTransfer) {
    const auto url = RefusedUrl();
    Request request(url.c_str(), "secret=1", false);
    ExpectMessage(3, "request.cpp curl_easy_perform failed (7): [" + url + "]", [&] { EXPECT_FALSE(request.Send()); });
    EXPECT_EQ(request.GetCurlResult(), CURLE_COULDNT_CONNECT);
    EXPECT_EQ(request.GetError(), RELAYD_RET_ERR_NETWORK);
}

TEST(Request, TellsAnUnknownHostFromADeadOne) {
    WriteHosts("127.0.0.1", {"nas.zz"});
    Request request("http://nowhere.zz/", "", false);
    const CapturedLog log;
    EXPECT_FALSE(request.Send());
    EXPECT_EQ(request.GetCurlResult(), CURLE_COULDNT_RESOLVE_HOST);
    EXPECT_EQ(request.GetError(), RELAYD_RET_ERR_RESOLV);
}

TEST(Request, ReachesNoIpv4AddressWhereOnlyIpv6IsWanted) {
    WriteHosts("127.0.0.1", {"nas.zz"});
    const HttpServer server;
    Request request(server.Url("/", "nas.zz").c_str(), "", false);
    ASSERT_TRUE(request.Send());
    ASSERT_TRUE(request.SetResolveIPv6());
    const CapturedLog log;
    EXPECT_FALSE(request.Send());
    EXPECT_EQ(request.GetCurlResult(), CURLE_COULDNT_CONNECT);
    EXPECT_EQ(server.Seen().size(), 1U);
}

TEST(Request, SendsNothingWhileItIsNotValid) {
    Request request(nullptr, nullptr, false);
    const CapturedLog log;
    EXPECT_FALSE(request.Send());
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST(Request, SendsNothingWhenItsWriteTargetIsRefused) {
    const HttpServer server;
    CurlFaults faults;
    Request request(server.Url().c_str(), "", false);
    faults.Refuse(CURLOPT_WRITEDATA);
    const CapturedLog log;
    EXPECT_FALSE(request.Send());
    EXPECT_FALSE(request.IsValid());
    EXPECT_THAT(server.Seen(), IsEmpty());
}

TEST(Request, KnowsNoStatusBeforeATransfer) {
    CurlFaults faults;
    Request request("http://127.0.0.1:9/", "", false);
    EXPECT_EQ(request.GetHttpStatus(), -1);
    EXPECT_EQ(faults.infoCalls[CURLINFO_RESPONSE_CODE], 0);
}

TEST(Request, AsksForStatusAndCookiesOfATransferOnce) {
    const HttpServer server;
    CurlFaults faults;
    Request request(server.Url().c_str(), "", false);
    ASSERT_TRUE(request.Send());
    EXPECT_EQ(request.GetHttpStatus(), 200);
    EXPECT_EQ(request.GetHttpStatus(), 200);
    EXPECT_EQ(faults.infoCalls[CURLINFO_RESPONSE_CODE], 1);
    EXPECT_EQ(faults.infoCalls[CURLINFO_COOKIELIST], 1);
}

TEST(Request, FailsWhenTheStatusCannotBeHad) {
    const HttpServer server;
    CurlFaults faults;
    faults.failingInfo[CURLINFO_RESPONSE_CODE] = CURLE_UNKNOWN_OPTION;
    Request request(server.Url().c_str(), "", false);
    const auto text = std::string(curl_easy_strerror(CURLE_UNKNOWN_OPTION));
    ExpectMessage(3, "request.cpp Fail to get curl http info: 48, " + text, [&] {
        EXPECT_FALSE(request.Send());
        EXPECT_EQ(request.GetHttpStatus(), -1);
    });
    faults.failingInfo.clear();
    EXPECT_EQ(request.GetHttpStatus(), -1) << "it is not asked for again";
    EXPECT_EQ(faults.infoCalls[CURLINFO_RESPONSE_CODE], 2) << "once for each transfer";
    EXPECT_EQ(faults.infoCalls[CURLINFO_COOKIELIST], 0);
    EXPECT_EQ(request.GetError(), RELAYD_RET_ERR_UNKNOWN);
}

TEST_F(RequestOnTheWire, ReadsAJsonAnswer) {
    server_.On("/", 200, "{\"a\": [1, \"x\"]}");
    Request request(server_.Url().c_str(), "", false);
    Json::Value out;
    EXPECT_FALSE(request.GetResponse(out)) << "nothing has come yet";
    ASSERT_TRUE(request.Send());
    EXPECT_TRUE(request.GetResponse(out));
    EXPECT_EQ(out["a"][1], "x");
}

TEST_F(RequestOnTheWire, RefusesAnAnswerThatIsNoJson) {
    for (const auto& body : {std::string("{\"a\":"), std::string("good"), std::string(), std::string(100000, '[')}) {
        server_.On("/", 200, body);
        Request request(server_.Url().c_str(), "", false);
        ASSERT_TRUE(request.Send());
        Json::Value out = "as it was";
        ExpectMessage(7, "request.cpp failed to parse response: " + body,
                      [&] { EXPECT_FALSE(request.GetResponse(out)); });
        EXPECT_EQ(out, "as it was");
    }
}

TEST(Request, ReadsItsDataAsJson) {
    Json::Value data;
    data["a"] = 1;
    Request request("http://127.0.0.1:9/", data, true);
    Json::Value out;
    ASSERT_TRUE(request.GetData(out));
    EXPECT_EQ(out, data);
    for (const auto& text : {std::string("a=1"), std::string(100000, '[')}) {
        ASSERT_TRUE(request.SetData(text, true));
        ExpectMessage(7, "request.cpp failed to parse response: " + text, [&] { EXPECT_FALSE(request.GetData(out)); });
        EXPECT_EQ(out, data);
    }
    ASSERT_TRUE(request.SetData(std::string("token=secret&a=1"), true));
    ExpectMessage(7, "request.cpp failed to parse response: token=***&a=1",
                  [&] { EXPECT_FALSE(request.GetData(out)); });
}

TEST_F(RequestOnTheWire, DescribesItself) {
    server_.On("/", 200, "body");
    Request request(server_.Url().c_str(), "a=1", true);
    Json::Value out;
    out["other"] = true;
    EXPECT_TRUE(request.Write(out));
    Json::Value expected;
    expected["other"] = true;
    expected["url"] = server_.Url();
    expected["data"] = "a=1";
    expected["mode"] = "sync";
    EXPECT_EQ(out, expected);
    ASSERT_TRUE(request.Send());
    EXPECT_TRUE(request.Write(out));
    expected["http_status"] = 200;
    expected["response"] = "body";
    EXPECT_EQ(out, expected);
    server_.On("/", 404, "body");
    EXPECT_FALSE(request.Send());
    request.Write(out);
    EXPECT_EQ(out["http_status"], 404);
    EXPECT_EQ(out["response"], "");
}

TEST(Request, DescribesItselfInPlaceOfAValueThatIsNoObject) {
    const Request request(nullptr, nullptr, false);
    Json::Value out = Json::arrayValue;
    EXPECT_TRUE(request.Write(out));
    EXPECT_EQ(out["url"], "");
}

TEST(Request, IsFoundByItsHandleAlone) {
    CurlFaults faults;
    const Request request("http://127.0.0.1:9/", "", false);
    const Request other("http://127.0.0.1:9/", "", false);
    int nothing = 0;
    EXPECT_TRUE(request != nullptr);
    EXPECT_FALSE(request == &nothing);
    EXPECT_TRUE(request != &nothing);
}

}  // namespace
