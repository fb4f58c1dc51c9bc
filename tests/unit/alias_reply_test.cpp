// SPDX-License-Identifier: Apache-2.0
#include <memory>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <relay/request/request_alias.h>

#include "support/captured_log.h"
#include "support/curl_faults.h"
#include "support/http_server.h"
#include "support/message_level.h"

using namespace ardv::test;
using namespace ARDV::Relay;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr auto kUntouched = static_cast<ALIAS_RET>(-7);

struct Reply {
    std::string text;
    int ret;  // 0: no known word
};

void PrintTo(const Reply& reply, std::ostream* stream) {
    *stream << '"' << reply.text << '"';
}

class AliasReply : public testing::Test {
protected:
    AliasReply() { EndRun(); }
    ~AliasReply() override { EndRun(); }

    // The run of equal failures belongs to the process.
    static void EndRun() {
        const CapturedLog log;
        Parse(CURLE_OK, 200, "");
    }

    struct Read {
        bool done;
        ALIAS_RET ret = kUntouched;
        std::string body = "as it was";
        int status = -7;
    };

    static Read Parse(CURLcode code, int status, const std::string& body) {
        HTTPResponse response{status, body, code};
        Read read{};
        read.done = AliasRequest::ParseCURLHttp(response, read.ret, read.body, read.status);
        return read;
    }

    std::shared_ptr<Request> Finished(int status, const std::string& body) {
        server_.On("/", status, body);
        const CapturedLog log;
        auto request = std::make_shared<Request>(server_.Url().c_str(), "a=1&alias=box%2D1", true);
        request->Send();
        return request;
    }

    static std::string Message(CURLcode code) {
        return "request_alias.cpp curl error: " + std::to_string(code) + ", " + curl_easy_strerror(code);
    }

    HttpServer server_;
};

class AliasWord : public testing::TestWithParam<Reply> {};

TEST_P(AliasWord, IsLookedUp) {
    ALIAS_RET ret = kUntouched;
    const CapturedLog log;
    EXPECT_EQ(AliasRequest::ParseServerResponse(GetParam().text, ret), GetParam().ret != 0);
    EXPECT_EQ(ret, GetParam().ret != 0 ? GetParam().ret : kUntouched);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(AliasReply, AliasWord,
                         testing::Values(Reply{"good", 1}, Reply{"911", 9}, Reply{"badsys", 4}, Reply{"badauth", 8},
                                         Reply{"badip", 11}, Reply{"alias_not_found", 2}, Reply{"alias_inused", 3},
                                         Reply{"alias_self_inused", 12}, Reply{"badparam", 5},
                                         Reply{"api_key_expired", 14}, Reply{"violation", 30}, Reply{"good:", 1},
                                         Reply{"badauth:expired", 8}, Reply{"911:a:b", 9}, Reply{"", 0}, Reply{":", 0},
                                         Reply{":good", 0}, Reply{"goodness", 0}, Reply{"good ", 0}, Reply{" good", 0},
                                         Reply{"goo", 0}, Reply{"Good", 0}, Reply{"alias", 0}, Reply{"success", 0},
                                         Reply{"error_network", 0}, Reply{std::string("good\0", 5), 0}));

struct StatusWord {
    int ret;
    const char* word;  // null: not known
    int retry;
};

class AliasResult : public testing::TestWithParam<StatusWord> {};

TEST_P(AliasResult, HasAWordAndARetryClass) {
    const auto [code, expected, retry] = GetParam();
    const auto ret = static_cast<ALIAS_RET>(code);
    std::string word = "as it was";
    auto type = static_cast<ALIAS_RETRY_TYPE>(-7);
    const CapturedLog log;
    EXPECT_EQ(AliasRequest::ResponseToString(ret, word), expected != nullptr);
    EXPECT_EQ(word, expected ? expected : "as it was");
    EXPECT_EQ(AliasRequest::GetRetryType(ret, type), expected != nullptr);
    EXPECT_EQ(type, expected ? retry : -7);
    if (expected) {
        EXPECT_THAT(log.Lines(), IsEmpty());
    } else {
        EXPECT_THAT(log.Messages(), ElementsAre("request_alias.cpp Cannot convert response " + std::to_string(code),
                                                "request_alias.cpp Cannot convert retry type " + std::to_string(code)));
    }
}

INSTANTIATE_TEST_SUITE_P(AliasReply, AliasResult,
                         testing::Values(StatusWord{1, "success", 2}, StatusWord{2, "error_not_found", 2},
                                         StatusWord{3, "error_inused", 3}, StatusWord{4, "error_system", 2},
                                         StatusWord{5, "error_bad_param", 2}, StatusWord{6, "error_network", 2},
                                         StatusWord{7, "error_dns", 1}, StatusWord{8, "error_auth", 3},
                                         StatusWord{9, "error_911", 2}, StatusWord{10, "error_server_busy", 2},
                                         StatusWord{11, "error_bad_ip", 3}, StatusWord{12, "error_self_inused", 3},
                                         StatusWord{13, "not_set", 0}, StatusWord{14, "error_api_key_expired", 2},
                                         StatusWord{30, "error_violation", 3}, StatusWord{255, "error_unknown", 2},
                                         StatusWord{0, nullptr, 0}, StatusWord{15, nullptr, 0},
                                         StatusWord{-1, nullptr, 0}, StatusWord{256, nullptr, 0}));

TEST(AliasResult, ReportsAnUnknownOneAsAnError) {
    std::string word;
    ALIAS_RETRY_TYPE type = ALIAS_RETRY_TYPE_NONE;
    ExpectMessage(3, "request_alias.cpp Cannot convert response 0",
                  [&] { AliasRequest::ResponseToString(static_cast<ALIAS_RET>(0), word); });
    ExpectMessage(3, "request_alias.cpp Cannot convert retry type 77",
                  [&] { AliasRequest::GetRetryType(static_cast<ALIAS_RET>(77), type); });
}

struct Cut {
    std::string text;
    std::string trimmed;
};

TEST(AliasTrim, TakesControlBytesBlanksAndHighBytesFromBothEnds) {
    const Cut cases[] = {
        {"good", "good"},
        {" good\r\n", "good"},
        {"\t \n good \t\v\f", "good"},
        {"go od", "go od"},
        {"\x01\x1f\x20good\x20\x1f\x01", "good"},
        {"!good!", "!good!"},
        {"\x7fgood\x7f", "\x7fgood\x7f"},
        {"\xef\xbb\xbfgood", "good"},
        {"good\xc3\xa9", "good"},
        {"\x80good\xff", "good"},
        {"g\xc3\xa9od", "g\xc3\xa9od"},
        {"", ""},
        {" \r\n\t", ""},
        {"\x80\xff", ""},
        {"x", "x"},
        {" x", "x"},
        {"x ", "x"},
        {std::string("good\0bad", 8), "good"},
        {std::string(" good \0bad", 10), "good"},
        {std::string("\0good", 5), ""},
    };
    for (const auto& [text, trimmed] : cases) {
        std::string changed = text;
        EXPECT_EQ(&AliasRequest::Trim(changed), &changed);
        EXPECT_EQ(changed, trimmed) << testing::PrintToString(text);
    }
}

struct StatusOutcome {
    int status;
    int ret;  // 0: as it was
    bool isLogged;
};

class AliasStatusCode : public AliasReply, public testing::WithParamInterface<StatusOutcome> {};

TEST_P(AliasStatusCode, BecomesAResult) {
    const auto [status, ret, isLogged] = GetParam();
    const CapturedLog log(6);
    const auto read = Parse(CURLE_OK, status, " text\n");
    EXPECT_EQ(read.done, status == 200);
    EXPECT_EQ(read.ret, ret == 0 ? kUntouched : ret);
    EXPECT_EQ(read.body, status == 200 ? "text" : "as it was");
    EXPECT_EQ(read.status, status);
    EXPECT_THAT(log.Messages(), isLogged ? std::vector{"request_alias.cpp http status: " + std::to_string(status)}
                                         : std::vector<std::string>());
}

TEST_P(AliasStatusCode, IsTracedWithTheTrimmedBody) {
    const auto parse = [] { Parse(CURLE_OK, GetParam().status, " text\n"); };
    const auto trace = "request_alias.cpp HTTP: " + std::to_string(GetParam().status) + ", Response: text";
    EXPECT_THAT(MessagesAt(7, parse), testing::Contains(trace));
    EXPECT_THAT(MessagesAt(6, parse), testing::Not(testing::Contains(trace)));
}

INSTANTIATE_TEST_SUITE_P(AliasReply, AliasStatusCode,
                         testing::Values(StatusOutcome{200, 0, false}, StatusOutcome{404, 6, false},
                                         StatusOutcome{500, 10, false}, StatusOutcome{501, 10, false},
                                         StatusOutcome{502, 10, false}, StatusOutcome{503, 10, false},
                                         StatusOutcome{504, 10, false}, StatusOutcome{499, 255, true},
                                         StatusOutcome{505, 255, true}, StatusOutcome{302, 255, true},
                                         StatusOutcome{201, 255, true}, StatusOutcome{403, 255, true},
                                         StatusOutcome{405, 255, true}, StatusOutcome{999, 255, true},
                                         StatusOutcome{0, 255, true}, StatusOutcome{-1, 255, true}));

TEST_F(AliasReply, ReportsAnotherStatusAsAnError) {
    ExpectMessage(3, "request_alias.cpp http status: 302", [] { Parse(CURLE_OK, 302, ""); });
}

TEST_F(AliasReply, TrimsTheBodyOfTheRecordItself) {
    HTTPResponse response{404, " x ", CURLE_OK};
    ALIAS_RET ret = kUntouched;
    std::string body;
    int status = 0;
    AliasRequest::ParseCURLHttp(response, ret, body, status);
    EXPECT_EQ(response.body, "x");
}

class AliasFailure : public AliasReply, public testing::WithParamInterface<std::pair<CURLcode, int>> {};

TEST_P(AliasFailure, BecomesAResultWhateverTheStatus) {
    const auto [code, ret] = GetParam();
    for (const int status : {0, 200, 404, -1}) {
        const CapturedLog log;
        const auto read = Parse(code, status, " good ");
        EXPECT_FALSE(read.done);
        EXPECT_EQ(read.ret, ret);
        EXPECT_EQ(read.body, "as it was");
        EXPECT_EQ(read.status, -7);
    }
    ExpectMessage(3, Message(code), [c = code] {
        EndRun();
        Parse(c, 0, "");
    });
}

INSTANTIATE_TEST_SUITE_P(AliasReply, AliasFailure,
                         testing::Values(std::pair(CURLE_COULDNT_RESOLVE_HOST, 7), std::pair(CURLE_COULDNT_CONNECT, 6),
                                         std::pair(CURLE_OPERATION_TIMEDOUT, 6), std::pair(CURLE_SSL_CONNECT_ERROR, 6),
                                         std::pair(CURLE_SEND_ERROR, 6), std::pair(CURLE_RECV_ERROR, 6),
                                         std::pair(CURLE_AGAIN, 6), std::pair(CURLE_COULDNT_RESOLVE_PROXY, 255),
                                         std::pair(CURLE_PEER_FAILED_VERIFICATION, 255),
                                         std::pair(CURLE_WRITE_ERROR, 255), std::pair(CURLE_PARTIAL_FILE, 255),
                                         std::pair(CURLE_GOT_NOTHING, 255), std::pair(CURLE_URL_MALFORMAT, 255)));

TEST_F(AliasReply, LogsARunOfEqualFailuresOnce) {
    const CapturedLog log(6);
    Parse(CURLE_COULDNT_CONNECT, 0, "");
    Parse(CURLE_COULDNT_CONNECT, 0, "");
    Parse(CURLE_SEND_ERROR, 0, "");
    Parse(CURLE_COULDNT_CONNECT, 0, "");
    EXPECT_THAT(log.Messages(),
                ElementsAre(Message(CURLE_COULDNT_CONNECT), Message(CURLE_SEND_ERROR), Message(CURLE_COULDNT_CONNECT)));
}

TEST_F(AliasReply, EndsARunOfFailuresByAnyAnswer) {
    const CapturedLog log(6);
    Parse(CURLE_COULDNT_CONNECT, 0, "");
    Parse(CURLE_OK, 404, "");
    Parse(CURLE_COULDNT_CONNECT, 0, "");
    EXPECT_THAT(log.Messages(), ElementsAre(Message(CURLE_COULDNT_CONNECT), Message(CURLE_COULDNT_CONNECT)));
}

TEST_F(AliasReply, KeepsItsRunApartFromThatOfRequests) {
    const CapturedLog log(6);
    Request request("http://127.0.0.1:9/", "", false);
    request.JobDone(CURLE_COULDNT_CONNECT);
    request.GetError();
    Parse(CURLE_COULDNT_CONNECT, 0, "");
    request.GetError();
    Parse(CURLE_COULDNT_CONNECT, 0, "");
    EXPECT_THAT(log.Messages(),
                ElementsAre("request.cpp curl error: 7, Couldn't connect to server", Message(CURLE_COULDNT_CONNECT)));
    request.InitSend();
    request.JobDone(CURLE_OK);
    request.GetError();
    Parse(CURLE_COULDNT_CONNECT, 0, "");
    EXPECT_EQ(log.Messages().size(), 3U) << "a success of a request (one line) ends that run alone";
}

TEST_F(AliasReply, ReadsAFinishedRequest) {
    ALIAS_RET ret = kUntouched;
    std::string body = "as it was";
    EXPECT_TRUE(AliasRequest::ParseCURLHttp(Finished(200, " x\n"), ret, body));
    EXPECT_EQ(ret, kUntouched);
    EXPECT_EQ(body, "x");
    EXPECT_FALSE(AliasRequest::ParseCURLHttp(Finished(503, "x"), ret, body));
    EXPECT_EQ(ret, ALIAS_RET_SERVER_BUSY);
    EXPECT_EQ(body, "x");
    EXPECT_FALSE(AliasRequest::ParseCURLHttp(std::shared_ptr<Request>(), ret, body));
    EXPECT_EQ(ret, ALIAS_RET_UNKNOWN);
}

struct DaemonReply {
    std::string body;
    bool isKnown;
    int ret;
    std::string extra;
};

TEST_F(AliasReply, GivesTheDaemonResultAndDetail) {
    const DaemonReply cases[] = {
        {"good", true, 1, "as it was"},
        {" good\r\n", true, 1, "as it was"},
        {"badauth:expired", true, 8, "expired"},
        {"alias_inused:box:2", true, 3, "box:2"},
        {"good:", true, 1, ""},
        {"911", true, 9, "as it was"},
    };
    for (const auto& [body, isKnown, expected, detail] : cases) {
        ALIAS_RET ret = kUntouched;
        std::string extra = "as it was";
        EXPECT_TRUE(AliasRequest::GetResponseForDaemon(Finished(200, body), ret, extra)) << body;
        EXPECT_EQ(ret, expected) << body;
        EXPECT_EQ(extra, detail) << body;
    }
}

TEST_F(AliasReply, GivesTheDaemonNoUnknownWordAndNoJson) {
    for (const auto* body : {"{}", "{\"success\":true}", "goodness", "", "unheard:of"}) {
        const auto request = Finished(200, body);
        ALIAS_RET ret = kUntouched;
        std::string extra = "as it was";
        ExpectMessage(3, std::string("request_alias.cpp Unknown response: ") + body,
                      [&] { EXPECT_FALSE(AliasRequest::GetResponseForDaemon(request, ret, extra)); });
        EXPECT_EQ(ret, kUntouched);
        EXPECT_EQ(extra, "as it was");
    }
}

TEST_F(AliasReply, GivesTheDaemonTheReasonOfAFailure) {
    ALIAS_RET ret = kUntouched;
    std::string extra = "as it was";
    for (const auto& [status, expected] : {std::pair(404, 6), std::pair(500, 10), std::pair(302, 255)}) {
        const auto request = Finished(status, "good:x");
        const CapturedLog log;
        EXPECT_FALSE(AliasRequest::GetResponseForDaemon(request, ret, extra));
        EXPECT_EQ(ret, expected);
    }
    const CapturedLog log;
    auto refused = std::make_shared<Request>(RefusedUrl().c_str(), "", true);
    refused->Send();
    EXPECT_FALSE(AliasRequest::GetResponseForDaemon(refused, ret, extra));
    EXPECT_EQ(ret, ALIAS_RET_NETWORK);
    EXPECT_FALSE(AliasRequest::GetResponseForDaemon(nullptr, ret, extra));
    EXPECT_EQ(ret, ALIAS_RET_UNKNOWN);
    EXPECT_EQ(extra, "as it was");
}

struct Named {
    const char* form;
    const char* alias;
};

TEST_F(AliasReply, FindsTheAliasInAForm) {
    const Named cases[] = {
        {"action=map_alias&alias=box&id=1", "box"},
        {"alias=box%2D1", "box%2D1"},
        {"alias=", ""},
        {"x=1&alias=a=b&c", "a"},
        {"&&alias=last", "last"},
        {"alias=one&alias=two", "one"},
        {"alias==x", ""},
    };
    for (const auto& [form, expected] : cases) {
        const auto request = std::make_shared<Request>("http://127.0.0.1:9/", form, true);
        std::string alias = "as it was";
        const CapturedLog log;
        EXPECT_TRUE(AliasRequest::GetAliasName(request, alias)) << form;
        EXPECT_EQ(alias, expected) << form;
        EXPECT_THAT(log.Lines(), IsEmpty());
    }
}

TEST_F(AliasReply, SaysWhereItFoundNoAliasAndMasksSecrets) {
    const Named cases[] = {
        {"", ""},
        {"alias", "alias"},
        {"myalias=box", "myalias=box"},
        {"Alias=box&id=1", "Alias=box&id=1"},
        {"a=1&token=secret&serial=s", "a=1&token=***&serial=s"},
        {"key=secret&kova_password=secret&auth_key=secret&keys=1", "key=***&kova_password=***&auth_key=***&keys=1"},
        {"token=secret=secret&token", "token=***&token=***"},
        {"&a&", "&a&"},
    };
    for (const auto& [form, shown] : cases) {
        const auto request = std::make_shared<Request>("http://127.0.0.1:9/", form, true);
        std::string alias = "as it was";
        ExpectMessage(3, std::string("request_alias.cpp not found alias name from post data [") + shown + "]",
                      [&] { EXPECT_FALSE(AliasRequest::GetAliasName(request, alias)); });
        EXPECT_EQ(alias, "as it was");
    }
}

TEST_F(AliasReply, FindsNoAliasWithoutARequest) {
    std::string alias = "as it was";
    const CapturedLog log;
    EXPECT_FALSE(AliasRequest::GetAliasName(nullptr, alias));
    EXPECT_THAT(log.Messages(), ElementsAre("request_alias.cpp not found alias name from post data []"));
}

}  // namespace
