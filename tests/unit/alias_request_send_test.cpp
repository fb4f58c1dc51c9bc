// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <relay/request/request_alias.h>

#include "support/captured_log.h"
#include "support/curl_faults.h"
#include "support/file_text.h"
#include "support/http_server.h"

using namespace ardv::test;
using namespace ARDV::Relay;

namespace {

class AliasExchange : public testing::Test {
protected:
    AliasExchange() {
        MakeDevice();
        data_["alias"] = "box";
        data_["serial"] = "AV0000000001";
        data_["token"] = "token";
        data_["id"] = "1234567";
        data_["url"] = server_.Url("");
    }

    bool Exchange(int status, const std::string& body) {
        server_.On("/alias_update.php", status, body);
        return Send();
    }

    bool Send() {
        const CapturedLog log;
        EXPECT_TRUE(request_.SetRequest(ALIAS_REQUEST_CMD_KEEP_ALIVE, data_));
        return request_.Send(ret_, type_);
    }

    std::string Text() const {
        std::string text;
        request_.GetResponse(text);
        return text;
    }

    Json::Value Answer() const {
        Json::Value answer;
        request_.GetResponse(answer);
        return answer;
    }

    int Status() const {
        int status = 0;
        EXPECT_EQ(request_.GetResponse(status), status);
        return status;
    }

    HttpServer server_;
    Json::Value data_;
    AliasRequest request_;
    ALIAS_RET ret_ = static_cast<ALIAS_RET>(-7);
    ALIAS_RESPONSE_TYPE type_ = static_cast<ALIAS_RESPONSE_TYPE>(-7);
};

TEST_F(AliasExchange, PostsAFormToThePageOfTheCommand) {
    EXPECT_TRUE(Exchange(200, "good"));
    const auto seen = server_.Seen().at(0);
    EXPECT_EQ(seen.method, "POST");
    EXPECT_EQ(seen.path, "/alias_update.php");
    EXPECT_EQ(seen.get_header_value("Content-Type"), "application/x-www-form-urlencoded");
    EXPECT_EQ(seen.body,
              "action=keep_alive_alias&alias=box&id=1234567&key=example-api-key&mac=02%3A00%3A5e%3A10%3A00%3A01"
              "&model=AV-220&serial=AV0000000001&token=token");
}

TEST_F(AliasExchange, PostsTheSecondRequestAlone) {
    EXPECT_TRUE(Exchange(200, "good"));
    server_.On("/alias_query.php", 200, "good");
    ASSERT_TRUE(request_.SetRequest(ALIAS_REQUEST_CMD_QUERY, data_));
    EXPECT_TRUE(request_.Send(ret_));
    EXPECT_EQ(server_.Seen().at(1).path, "/alias_query.php");
    EXPECT_EQ(server_.Seen().at(1).body,
              "action=query_alias&alias=box&key=example-api-key&mac=02%3A00%3A5e%3A10%3A00%3A01&model=AV-220");
}

TEST_F(AliasExchange, SendsNoCommandToTheBaseUrl) {
    server_.On("/", 200, "badparam");
    ASSERT_TRUE(request_.SetRequest(ALIAS_REQUEST_CMD_NONE, data_));
    EXPECT_TRUE(request_.Send(ret_));
    EXPECT_EQ(ret_, ALIAS_RET_BAD_PARAM);
    EXPECT_EQ(server_.Seen().at(0).path, "/");
}

struct Answer {
    int status;
    std::string body;
    bool done;
    int ret;
    int type;
};

void PrintTo(const Answer& answer, std::ostream* stream) {
    *stream << answer.status << " \"" << answer.body.substr(0, 40) << '"';
}

class AliasAnswer : public AliasExchange, public testing::WithParamInterface<Answer> {};

TEST_P(AliasAnswer, BecomesAResult) {
    const auto& [status, body, done, ret, type] = GetParam();
    EXPECT_EQ(Exchange(status, body), done);
    EXPECT_EQ(ret_, ret);
    EXPECT_EQ(type_, type);
    EXPECT_EQ(Status(), status);
    if (type == ALIAS_RESPONSE_TYPE_NONE) {
        EXPECT_EQ(Text(), "");
    } else {
        std::string trimmed = body;
        EXPECT_EQ(Text(), AliasRequest::Trim(trimmed));
    }
    EXPECT_EQ(Answer().isObject(), type == ALIAS_RESPONSE_TYPE_JSON);
}

INSTANTIATE_TEST_SUITE_P(
    Words, AliasAnswer,
    testing::Values(Answer{200, "good", true, 1, 2}, Answer{200, "911", true, 9, 2}, Answer{200, "badsys", true, 4, 2},
                    Answer{200, "badauth", true, 8, 2}, Answer{200, "badip", true, 11, 2},
                    Answer{200, "alias_not_found", true, 2, 2}, Answer{200, "alias_inused", true, 3, 2},
                    Answer{200, "alias_self_inused", true, 12, 2}, Answer{200, "badparam", true, 5, 2},
                    Answer{200, "api_key_expired", true, 14, 2}, Answer{200, "violation", true, 30, 2},
                    Answer{200, "badauth:expired", true, 8, 2}, Answer{200, " good\r\n", true, 1, 2},
                    Answer{200, "\xef\xbb\xbfgood", true, 1, 2},
                    Answer{200, std::string("good\0junk", 9), true, 1, 2}));

INSTANTIATE_TEST_SUITE_P(Json, AliasAnswer,
                         testing::Values(Answer{200, "{}", true, 1, 1},
                                         Answer{200, " {\"alias\":\"box\"}\n", true, 1, 1},
                                         Answer{200, "[]", false, 255, 2}, Answer{200, "[{}]", false, 255, 2},
                                         Answer{200, "5", false, 255, 2}, Answer{200, "\"good\"", false, 255, 2},
                                         Answer{200, "null", false, 255, 2}, Answer{200, "{\"a\":", false, 255, 2},
                                         Answer{200, std::string(100000, '['), false, 255, 2}));

INSTANTIATE_TEST_SUITE_P(Unknown, AliasAnswer,
                         testing::Values(Answer{200, "goodness", false, 255, 2}, Answer{200, "", false, 255, 2},
                                         Answer{200, "<html>good</html>", false, 255, 2},
                                         Answer{200, "\xff\xfe\x80", false, 255, 2}));

INSTANTIATE_TEST_SUITE_P(Statuses, AliasAnswer,
                         testing::Values(Answer{404, "good", true, 6, 3}, Answer{500, "good", true, 10, 3},
                                         Answer{501, "good", true, 10, 3}, Answer{502, "good", true, 10, 3},
                                         Answer{503, "{}", true, 10, 3}, Answer{504, "good", true, 10, 3},
                                         Answer{505, "good", true, 255, 3}, Answer{302, "good", true, 255, 3},
                                         Answer{403, "good", true, 255, 3}, Answer{201, "good", true, 255, 3}));

TEST_F(AliasExchange, ReadsAStatusBeyondAllOthers) {
    const RawServer server("HTTP/1.1 999 Odd\r\nContent-Length: 4\r\n\r\ngood");
    data_["url"] = server.Url().substr(0, server.Url().size() - 1);
    EXPECT_TRUE(Send());
    EXPECT_EQ(ret_, ALIAS_RET_UNKNOWN);
    EXPECT_EQ(type_, ALIAS_RESPONSE_TYPE_NONE);
    EXPECT_EQ(Status(), 999);
}

TEST_F(AliasExchange, TellsTheReasonOfAFailedTransfer) {
    const RawServer cut("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\ngood");
    WriteHosts("127.0.0.1", {});
    const std::pair<std::string, ALIAS_RET> cases[] = {
        {RefusedUrl(), ALIAS_RET_NETWORK},
        {"http://nowhere.zz/", ALIAS_RET_DNS},
        {cut.Url(), ALIAS_RET_UNKNOWN},
        {"gopherish://127.0.0.1/", ALIAS_RET_UNKNOWN},
        {"https" + server_.Url().substr(4), ALIAS_RET_NETWORK},
    };
    for (const auto& [url, ret] : cases) {
        data_["url"] = url.substr(0, url.size() - 1);
        EXPECT_TRUE(Send()) << url;
        EXPECT_EQ(ret_, ret) << url;
        EXPECT_EQ(type_, ALIAS_RESPONSE_TYPE_NONE) << url;
        EXPECT_EQ(Status(), -1) << url;
    }
}

TEST_F(AliasExchange, TimesOutOnASilentServer) {
    const RawServer silent;
    CurlFaults faults;
    faults.timeoutMilliseconds = 200;
    data_["url"] = silent.Url().substr(0, silent.Url().size() - 1);
    EXPECT_TRUE(Send());
    EXPECT_EQ(ret_, ALIAS_RET_NETWORK);
    EXPECT_EQ(type_, ALIAS_RESPONSE_TYPE_NONE);
}

TEST_F(AliasExchange, KeepsTheLastGoodAnswers) {
    EXPECT_TRUE(Exchange(200, "{\"a\":1}"));
    EXPECT_TRUE(Exchange(200, "good"));
    EXPECT_TRUE(Exchange(503, ""));
    EXPECT_EQ(Text(), "good");
    EXPECT_EQ(Answer()["a"], 1);
    EXPECT_EQ(Status(), 503);
}

TEST_F(AliasExchange, ReadsItsOwnRequest) {
    ASSERT_TRUE(Exchange(200, " badauth:x\n"));
    auto ret = static_cast<ALIAS_RET>(-7);
    std::string body;
    int status = 0;
    EXPECT_TRUE(request_.ParseCURLHttp(ret, body, status));
    EXPECT_EQ(ret, -7);
    EXPECT_EQ(body, "badauth:x");
    EXPECT_EQ(status, 200);
    ASSERT_TRUE(Exchange(404, "x"));
    EXPECT_FALSE(request_.ParseCURLHttp(ret, body, status));
    EXPECT_EQ(ret, ALIAS_RET_NETWORK);
    EXPECT_EQ(body, "badauth:x");
    EXPECT_EQ(status, 404);
}

TEST_F(AliasExchange, DropsTheTypeOnDemand) {
    server_.On("/alias_update.php", 200, "goodness");
    ASSERT_TRUE(request_.SetRequest(ALIAS_REQUEST_CMD_DELETE, data_));
    EXPECT_FALSE(request_.Send(ret_));
    EXPECT_EQ(ret_, ALIAS_RET_UNKNOWN);
}

TEST_F(AliasExchange, CanBeCopied) {
    ASSERT_TRUE(Exchange(200, "{\"a\":1}"));
    auto copy = request_;
    request_ = AliasRequest();
    Json::Value answer;
    copy.GetResponse(answer);
    EXPECT_EQ(answer["a"], 1);
    EXPECT_TRUE(copy.Send(ret_));
    EXPECT_EQ(ret_, ALIAS_RET_SUCCESS);
    EXPECT_EQ(server_.Seen().size(), 2U);
}

}  // namespace
