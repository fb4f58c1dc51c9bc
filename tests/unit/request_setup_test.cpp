// SPDX-License-Identifier: Apache-2.0
#include <dlfcn.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ardv/user_agent.h>

#include <relay/request/request.h>

#include "support/captured_log.h"
#include "support/curl_faults.h"
#include "support/http_server.h"
#include "support/message_level.h"

using namespace ardv::test;
using ARDV::Relay::Request;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char* kUrl = "http://127.0.0.1:9/page";
constexpr const char* kTlsUrl = "https://127.0.0.1:9/page";
constexpr const char* kBundle = "/etc/ssl/certs/ca-certificates.crt";

std::function<int(const char*, char*, size_t, int)> gUserAgent;

}  // namespace

int ALIBHsinfoUserAgentGet(const char* product, char* buffer, size_t size, int flags) {
    if (gUserAgent) {
        return gUserAgent(product, buffer, size, flags);
    }
    const auto real = reinterpret_cast<decltype(&ALIBHsinfoUserAgentGet)>(dlsym(RTLD_NEXT, "ALIBHsinfoUserAgentGet"));
    return real(product, buffer, size, flags);
}

namespace {

class RequestSetUp : public testing::Test {
protected:
    ~RequestSetUp() override {
        Request::SetCookie("");
        gUserAgent = nullptr;
    }

    // Without the options that only tidy up after an earlier use of the handle.
    std::vector<CURLoption> Order() const {
        std::vector<CURLoption> order;
        for (const auto& call : faults_.calls) {
            const bool isTidying = call.option == CURLOPT_HTTPGET || call.option == CURLOPT_POSTFIELDS;
            if (!isTidying && call.option != CURLOPT_POSTFIELDSIZE) {
                order.push_back(call.option);
            }
        }
        return order;
    }

    CurlFaults faults_;
    Request request_{nullptr, nullptr, false};
};

TEST_F(RequestSetUp, SetsTheOptionsOfAPlainPostInOrder) {
    ASSERT_TRUE(request_.Set(kUrl, std::string("a=1"), true));
    EXPECT_THAT(Order(), ElementsAre(CURLOPT_SHARE, CURLOPT_COOKIEFILE, CURLOPT_WRITEDATA, CURLOPT_URL, CURLOPT_URL,
                                     CURLOPT_COPYPOSTFIELDS, CURLOPT_USERAGENT, CURLOPT_CONNECTTIMEOUT, CURLOPT_TIMEOUT,
                                     CURLOPT_FORBID_REUSE, CURLOPT_WRITEFUNCTION, CURLOPT_ERRORBUFFER));
}

TEST_F(RequestSetUp, SetsTheOptionsOfAnEncryptedGetWithCookiesInOrder) {
    Request::SetCookie("id=1");
    ASSERT_TRUE(request_.Set(kTlsUrl, std::string("a=1"), false));
    EXPECT_THAT(Order(), ElementsAre(CURLOPT_SHARE, CURLOPT_COOKIEFILE, CURLOPT_WRITEDATA, CURLOPT_URL, CURLOPT_URL,
                                     CURLOPT_USERAGENT, CURLOPT_CONNECTTIMEOUT, CURLOPT_TIMEOUT, CURLOPT_FORBID_REUSE,
                                     CURLOPT_WRITEFUNCTION, CURLOPT_ERRORBUFFER, CURLOPT_SSL_VERIFYPEER,
                                     CURLOPT_SSL_VERIFYHOST, CURLOPT_CAPATH, CURLOPT_COOKIE));
}

TEST_F(RequestSetUp, LimitsTimeAndClosesTheConnection) {
    ASSERT_TRUE(request_.Set(kUrl, std::string(), false));
    EXPECT_EQ(faults_.Last(CURLOPT_CONNECTTIMEOUT)->number, 20);
    EXPECT_EQ(faults_.Last(CURLOPT_TIMEOUT)->number, 60);
    EXPECT_EQ(faults_.Last(CURLOPT_FORBID_REUSE)->number, 1);
}

TEST_F(RequestSetUp, SharesCookiesAndKeepsThemInNoFile) {
    ASSERT_TRUE(request_.Set(kUrl, std::string(), false));
    EXPECT_EQ(faults_.Last(CURLOPT_SHARE)->pointer, Request::GetCurlShare(false));
    ASSERT_NE(faults_.Last(CURLOPT_COOKIEFILE)->pointer, nullptr);
    EXPECT_EQ(faults_.Last(CURLOPT_COOKIEFILE)->text, "");
}

TEST_F(RequestSetUp, PutsTheDataOfAGetBehindAQuestionMark) {
    ASSERT_TRUE(request_.Set(kUrl, std::string("a=%20&b"), false));
    EXPECT_EQ(faults_.Last(CURLOPT_URL)->text, std::string(kUrl) + "?a=%20&b");
}

TEST_F(RequestSetUp, ZeroesTheErrorBufferBeforeItHandsItOver) {
    request_.Set(RefusedUrl(), std::string(), false);
    const auto* buffer = static_cast<const char*>(faults_.Last(CURLOPT_ERRORBUFFER)->pointer);
    ASSERT_FALSE(request_.Send());
    ASSERT_STRNE(buffer, "");
    ASSERT_TRUE(request_.Set(kUrl, std::string(), false));
    EXPECT_TRUE(std::all_of(buffer, buffer + CURL_ERROR_SIZE, [](char byte) { return byte == '\0'; }));
    EXPECT_EQ(faults_.Last(CURLOPT_ERRORBUFFER)->pointer, buffer);
}

TEST_F(RequestSetUp, VerifiesCertificateAndNameOfAnEncryptedServer) {
    ASSERT_TRUE(request_.Set(kTlsUrl, std::string(), false));
    EXPECT_EQ(faults_.Last(CURLOPT_SSL_VERIFYPEER)->number, 1);
    EXPECT_EQ(faults_.Last(CURLOPT_SSL_VERIFYHOST)->number, 2);
    ASSERT_TRUE(faults_.Last(CURLOPT_CAPATH)) << "set, to nothing";
    EXPECT_EQ(faults_.Last(CURLOPT_CAPATH)->pointer, nullptr);
}

class UrlWithoutTlsOptions : public RequestSetUp, public testing::WithParamInterface<const char*> {};

TEST_P(UrlWithoutTlsOptions, GetsNone) {
    ASSERT_TRUE(request_.Set(GetParam(), std::string(), false));
    EXPECT_FALSE(faults_.Last(CURLOPT_SSL_VERIFYPEER));
    EXPECT_FALSE(faults_.Last(CURLOPT_SSL_VERIFYHOST));
    EXPECT_FALSE(faults_.Last(CURLOPT_CAPATH));
}

INSTANTIATE_TEST_SUITE_P(RequestSetUp, UrlWithoutTlsOptions,
                         testing::Values("http://nas.zz/", "HTTPS://nas.zz/", "Https://nas.zz/", "https:/",
                                         "https:/nas", " https://nas.zz/", "nas.zz"));

TEST_F(RequestSetUp, LeavesTheTrustDirectoryWhereNoTrustBundleCanBeRead) {
    std::string hidden = std::string(kBundle) + ".hidden";
    ASSERT_EQ(std::rename(kBundle, hidden.c_str()), 0);
    const bool isSet = request_.Set(kTlsUrl, std::string(), false);
    ASSERT_EQ(std::rename(hidden.c_str(), kBundle), 0);
    ASSERT_TRUE(isSet);
    EXPECT_FALSE(faults_.Last(CURLOPT_CAPATH));
    EXPECT_EQ(faults_.Last(CURLOPT_SSL_VERIFYPEER)->number, 1);
}

TEST_F(RequestSetUp, IgnoresARefusedTrustDirectory) {
    faults_.Refuse(CURLOPT_CAPATH);
    const CapturedLog log;
    EXPECT_TRUE(request_.Set(kTlsUrl, std::string(), false));
    EXPECT_TRUE(request_.IsValid());
    EXPECT_THAT(log.Lines(), IsEmpty());
}

struct Refusal {
    CURLoption option;
    const char* name;
};

void PrintTo(const Refusal& refusal, std::ostream* stream) {
    *stream << refusal.name;
}

class RefusedOption : public RequestSetUp, public testing::WithParamInterface<Refusal> {};

TEST_P(RefusedOption, LeavesNoHandleAndSaysWhy) {
    Request::SetCookie("id=1");
    const auto message = std::string("request.cpp set ") + GetParam().name + "to curl handle failed";
    ExpectMessage(3, message, [&] {
        faults_.Refuse(GetParam().option);
        EXPECT_FALSE(request_.Set(kTlsUrl, std::string("a=1"), true));
        EXPECT_FALSE(request_.IsValid());
        EXPECT_TRUE(request_ == nullptr);
        EXPECT_FALSE(request_.Send());
    });
    EXPECT_TRUE(request_.Set(kTlsUrl, std::string("a=1"), true)) << "a later set-up starts afresh";
}

TEST_P(RefusedOption, EndsTheSetUp) {
    Request::SetCookie("id=1");
    faults_.Refuse(GetParam().option);
    const CapturedLog log;
    EXPECT_FALSE(request_.Set(kTlsUrl, std::string("a=1"), true));
    EXPECT_EQ(faults_.calls.back().option, GetParam().option);
}

INSTANTIATE_TEST_SUITE_P(
    RequestSetUp, RefusedOption,
    testing::Values(
        Refusal{CURLOPT_SHARE, "CURLOPT_SHARE"}, Refusal{CURLOPT_COOKIEFILE, "CURLOPT_COOKIEFILE"},
        Refusal{CURLOPT_URL, "CURLOPT_URL"}, Refusal{CURLOPT_USERAGENT, "CURLOPT_USERAGENT"},
        Refusal{CURLOPT_CONNECTTIMEOUT, "CURLOPT_CONNECTTIMEOUT"}, Refusal{CURLOPT_TIMEOUT, "CURLOPT_TIMEOUT"},
        Refusal{CURLOPT_FORBID_REUSE, "CURLOPT_FORBID_REUSE"}, Refusal{CURLOPT_WRITEFUNCTION, "CURLOPT_WRITEFUNCTION"},
        Refusal{CURLOPT_ERRORBUFFER, "CURLOPT_ERRORBUFFER"}, Refusal{CURLOPT_SSL_VERIFYPEER, "CURLOPT_SSL_VERIFYPEER"},
        Refusal{CURLOPT_SSL_VERIFYHOST, "CURLOPT_SSL_VERIFYHOST"}, Refusal{CURLOPT_COOKIE, "CURLOPT_COOKIE"}));

TEST_F(RequestSetUp, SaysTwiceThatTheWriteTargetWasRefused) {
    const auto fail = [this] {
        faults_.Refuse(CURLOPT_WRITEDATA);
        EXPECT_FALSE(request_.Set(kUrl, std::string(), false));
        EXPECT_FALSE(request_.IsValid());
        EXPECT_EQ(faults_.calls.back().option, CURLOPT_WRITEDATA) << "it ends the set-up";
    };
    EXPECT_THAT(MessagesAt(3, fail),
                ElementsAre("request.cpp set CURLOPT_WRITEDATAto curl handle failed", "request.cpp init send failed"));
    EXPECT_THAT(MessagesAt(2, fail), IsEmpty());
    EXPECT_TRUE(request_.Set(kUrl, std::string(), false)) << "a later set-up starts afresh";
}

TEST_F(RequestSetUp, GoesOnWhenTheDataIsRefused) {
    for (const auto& [option, turn, name] :
         {std::tuple(CURLOPT_URL, 2, "CURLOPT_URL"), std::tuple(CURLOPT_COPYPOSTFIELDS, 1, "CURLOPT_POSTFIELDS")}) {
        ExpectMessage(3, std::string("request.cpp set ") + name + "to curl handle failed", [&, o = option, t = turn] {
            faults_.Refuse(o, t);
            EXPECT_TRUE(request_.Set(kUrl, std::string("a=1"), true));
            EXPECT_TRUE(request_.IsValid());
            EXPECT_EQ(request_.GetData(), "a=1");
        });
    }
}

TEST_F(RequestSetUp, FailsWithoutAShareAndAddsNoMessageOfItsOwn) {
    Request::CleanDnsCache();
    faults_.noShare = true;
    const CapturedLog log;
    EXPECT_FALSE(request_.Set(kUrl, std::string(), false));
    EXPECT_FALSE(request_.IsValid());
    EXPECT_THAT(log.Messages(), ElementsAre("request.cpp curl_share_init failed"));
}

TEST_F(RequestSetUp, FailsSilentlyWithoutAHandle) {
    faults_.noHandle = true;
    const CapturedLog log;
    EXPECT_FALSE(request_.Set(kUrl, std::string(), false));
    EXPECT_FALSE(request_.IsValid());
    EXPECT_EQ(request_.GetUrl(), kUrl);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(RequestSetUp, RefusesAnEmptyUrlAndKeepsNoHandle) {
    const CapturedLog log;
    EXPECT_FALSE(request_.Set("", std::string("a=1"), true));
    EXPECT_EQ(faults_.handlesMade, 0);
    ASSERT_TRUE(request_.Set(kUrl, std::string("a=1"), true));
    EXPECT_FALSE(request_.Set("", std::string("b=2"), true));
    EXPECT_FALSE(request_.IsValid());
    EXPECT_TRUE(request_ == nullptr);
    EXPECT_EQ(request_.GetUrl(), kUrl);
    EXPECT_EQ(request_.GetData(), "a=1");
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(RequestSetUp, ResetsItsHandleInPlaceOfMakingANewOne) {
    ASSERT_TRUE(request_.Set(kUrl, std::string(), false));
    ASSERT_TRUE(request_.Set(kTlsUrl, std::string(), true));
    EXPECT_EQ(faults_.handlesMade, 1);
    EXPECT_EQ(request_.GetUrl(), kTlsUrl);
}

TEST_F(RequestSetUp, IsNotValidWithoutAUrl) {
    EXPECT_FALSE(request_.IsValid());
    EXPECT_EQ(faults_.handlesMade, 0);
    EXPECT_EQ(request_.GetUrl(), "");
    EXPECT_EQ(request_.GetData(), "");
    EXPECT_EQ(request_.GetResponse(), "");
    EXPECT_EQ(request_.GetHttpStatus(), -1);
    EXPECT_EQ(request_.GetCurlResult(), CURLE_OK);
    EXPECT_TRUE(request_ == nullptr);
}

TEST_F(RequestSetUp, TakesNoDataForTheEmptyText) {
    const Request request(kUrl, nullptr, true);
    EXPECT_TRUE(request.IsValid());
    EXPECT_EQ(request.GetData(), "");
}

TEST_F(RequestSetUp, WritesJsonDataOnOneLine) {
    Json::Value data;
    data["b"] = Json::arrayValue;
    data["b"].append(1);
    data["a"] = "x y";
    const Request request(std::string(kUrl), data, true);
    EXPECT_EQ(request.GetData(), "{\"a\":\"x y\",\"b\":[1]}\n");
    ASSERT_TRUE(request_.Set(kUrl, data, true));
    EXPECT_EQ(request_.GetData(), "{\"a\":\"x y\",\"b\":[1]}\n");
    ASSERT_TRUE(request_.SetData(Json::Value("t"), true));
    EXPECT_EQ(request_.GetData(), "\"t\"\n");
}

TEST_F(RequestSetUp, TakesNoDataWhileItIsNotValid) {
    EXPECT_FALSE(request_.SetData(std::string("a=1"), true));
    EXPECT_FALSE(request_.SetData(Json::Value("a"), false));
    EXPECT_EQ(request_.GetData(), "");
}

TEST_F(RequestSetUp, ReportsDataThatLibcurlRefuses) {
    ASSERT_TRUE(request_.Set(kUrl, std::string("a=1"), true));
    const std::tuple<CURLoption, bool, const char*> cases[] = {
        {CURLOPT_URL, true, "CURLOPT_URL"},
        {CURLOPT_URL, false, "CURLOPT_URL"},
        {CURLOPT_COPYPOSTFIELDS, true, "CURLOPT_POSTFIELDS"},
        {CURLOPT_POSTFIELDSIZE, true, "CURLOPT_POSTFIELDS"},
    };
    for (const auto& [option, post, name] : cases) {
        const auto message = std::string("request.cpp set ") + name + "to curl handle failed";
        ExpectMessage(3, message, [&, o = option, p = post] {
            faults_.Refuse(o);
            EXPECT_FALSE(request_.SetData(std::string("b=2"), p));
            EXPECT_TRUE(request_.IsValid());
        });
    }
}

TEST_F(RequestSetUp, AsksThePlatformForItsUserAgent) {
    std::string asked;
    bool isZeroed = false;
    gUserAgent = [&](const char* product, char* buffer, size_t size, int flags) {
        asked = product + std::string(" ") + std::to_string(size) + " " + std::to_string(flags);
        isZeroed = std::all_of(buffer, buffer + size, [](char byte) { return byte == '\0'; });
        std::strcpy(buffer, "Tethra/9");
        return -1;
    };
    ASSERT_TRUE(request_.Set(kUrl, std::string(), false)) << "its result does not matter";
    EXPECT_EQ(asked, "Tethra 1024 0");
    EXPECT_TRUE(isZeroed);
    EXPECT_EQ(faults_.Last(CURLOPT_USERAGENT)->text, "Tethra/9");
}

TEST_F(RequestSetUp, SendsNoUserAgentWhereThePlatformHasNone) {
    const HttpServer server;
    gUserAgent = [](const char*, char*, size_t, int) { return 0; };
    ASSERT_TRUE(request_.Set(server.Url(), std::string(), false));
    EXPECT_EQ(faults_.Last(CURLOPT_USERAGENT)->text, "");
    ASSERT_TRUE(request_.Send());
    EXPECT_FALSE(server.Seen().at(0).has_header("User-Agent"));
}

TEST_F(RequestSetUp, SendsTheUserAgentOfThePlatform) {
    const HttpServer server;
    ASSERT_TRUE(request_.Set(server.Url(), std::string(), false));
    ASSERT_TRUE(request_.Send());
    char userAgent[256] = {};
    ASSERT_EQ(ALIBHsinfoUserAgentGet("Tethra", userAgent, sizeof userAgent, 0), 0);
    EXPECT_THAT(userAgent, testing::StartsWith("Tethra"));
    EXPECT_EQ(server.Seen().at(0).get_header_value("User-Agent"), userAgent);
}

TEST_F(RequestSetUp, SetsTheProcessCookieOnlyWhereThereIsOne) {
    ASSERT_TRUE(request_.Set(kUrl, std::string(), false));
    EXPECT_FALSE(faults_.Last(CURLOPT_COOKIE));
    EXPECT_TRUE(Request::SetCookie("a=1; b=2"));
    EXPECT_EQ(Request::GetCookie(), "a=1; b=2");
    ASSERT_TRUE(request_.Set(kUrl, std::string(), false));
    EXPECT_EQ(faults_.Last(CURLOPT_COOKIE)->text, "a=1; b=2");
}

TEST_F(RequestSetUp, ResolvesToIpv6Only) {
    ASSERT_TRUE(request_.Set(kUrl, std::string(), false));
    EXPECT_TRUE(request_.SetResolveIPv6());
    EXPECT_EQ(faults_.Last(CURLOPT_IPRESOLVE)->number, 2);
    ExpectMessage(3, "request.cpp set CURLOPT_IPRESOLVEto curl handle failed", [&] {
        faults_.Refuse(CURLOPT_IPRESOLVE);
        EXPECT_FALSE(request_.SetResolveIPv6());
    });
    EXPECT_TRUE(request_.IsValid());
}

TEST_F(RequestSetUp, ReplacesTheTimeToConnect) {
    ASSERT_TRUE(request_.Set(kUrl, std::string(), false));
    EXPECT_TRUE(request_.SetConnectionTimeout(5));
    EXPECT_EQ(faults_.Last(CURLOPT_CONNECTTIMEOUT)->number, 5);
    ExpectMessage(3, "request.cpp set CURLOPT_CONNECTTIMEOUTto curl handle failed", [&] {
        faults_.Refuse(CURLOPT_CONNECTTIMEOUT);
        EXPECT_FALSE(request_.SetConnectionTimeout(5));
    });
    EXPECT_FALSE(request_.SetConnectionTimeout(-1));
}

TEST_F(RequestSetUp, KeepsALongConnectionAliveWithoutATimeLimit) {
    ASSERT_TRUE(request_.Set(kUrl, std::string(), false));
    faults_.calls.clear();
    EXPECT_TRUE(request_.SetTcpKeepAlive(45));
    EXPECT_THAT(Order(),
                ElementsAre(CURLOPT_TCP_KEEPALIVE, CURLOPT_TCP_KEEPIDLE, CURLOPT_TCP_KEEPINTVL, CURLOPT_TIMEOUT));
    EXPECT_EQ(faults_.calls[0].number, 1);
    EXPECT_EQ(faults_.calls[1].number, 45);
    EXPECT_EQ(faults_.calls[2].number, 45);
    EXPECT_EQ(faults_.calls[3].number, 0);
}

class RefusedKeepAlive : public RequestSetUp, public testing::WithParamInterface<Refusal> {};

TEST_P(RefusedKeepAlive, StopsThereAndSucceedsAllTheSame) {
    ASSERT_TRUE(request_.Set(kUrl, std::string(), false));
    const auto message = std::string("request.cpp set ") + GetParam().name + "to curl handle failed";
    ExpectMessage(3, message, [&] {
        faults_.Refuse(GetParam().option);
        EXPECT_TRUE(request_.SetTcpKeepAlive(45));
        EXPECT_EQ(faults_.calls.back().option, GetParam().option);
    });
}

INSTANTIATE_TEST_SUITE_P(RequestSetUp, RefusedKeepAlive,
                         testing::Values(Refusal{CURLOPT_TCP_KEEPALIVE, "CURLOPT_TCP_KEEPALIVE"},
                                         Refusal{CURLOPT_TCP_KEEPIDLE, "CURLOPT_TCP_KEEPIDLE"},
                                         Refusal{CURLOPT_TCP_KEEPINTVL, "CURLOPT_TCP_KEEPINTVL"},
                                         Refusal{CURLOPT_TIMEOUT, "CURLOPT_TIMEOUT"}));

TEST_F(RequestSetUp, HasNoOptionsToSetWhileItIsNotValid) {
    const CapturedLog log;
    EXPECT_FALSE(request_.SetResolveIPv6());
    EXPECT_FALSE(request_.SetConnectionTimeout(5));
    EXPECT_TRUE(request_.SetTcpKeepAlive(5));
    EXPECT_TRUE(request_.InitSend());
    EXPECT_THAT(log.Messages(), ElementsAre("request.cpp set CURLOPT_IPRESOLVEto curl handle failed",
                                            "request.cpp set CURLOPT_CONNECTTIMEOUTto curl handle failed",
                                            "request.cpp set CURLOPT_TCP_KEEPALIVEto curl handle failed"));
}

TEST_F(RequestSetUp, LosesItsHandleWhenTheWriteTargetIsRefused) {
    ASSERT_TRUE(request_.Set(kUrl, std::string(), false));
    ExpectMessage(3, "request.cpp set CURLOPT_WRITEDATAto curl handle failed", [&] {
        ASSERT_TRUE(request_.Set(kUrl, std::string(), false));
        faults_.Refuse(CURLOPT_WRITEDATA);
        EXPECT_FALSE(request_.InitSend());
        EXPECT_FALSE(request_.IsValid());
    });
}

}  // namespace
