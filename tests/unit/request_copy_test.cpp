// SPDX-License-Identifier: Apache-2.0
#include <relay/request/request.h>

#include <memory>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/captured_log.h"
#include "support/curl_faults.h"
#include "support/http_server.h"

using namespace ardv::test;
using namespace ARDV::Relay;
using testing::SizeIs;

namespace {

class RequestCopy : public testing::Test {
protected:
    RequestCopy() {
        const CapturedLog log;
        Request::CleanDnsCache();  // cookies of other tests
    }

    Json::Value Describe(const Request& request) {
        Json::Value out;
        request.Write(out);
        return out;
    }

    std::unique_ptr<Request> Make(const std::string& data, bool post) {
        return std::make_unique<Request>(server_.Url().c_str(), data.c_str(), post);
    }

    HttpServer server_;
};

TEST_F(RequestCopy, StartsWithUrlAndDataAndNoOutcome) {
    const auto source = Make("a=1", true);
    ASSERT_TRUE(source->Send());
    Request copy(*source);
    EXPECT_TRUE(copy.IsValid());
    EXPECT_EQ(copy.GetUrl(), server_.Url());
    EXPECT_EQ(copy.GetData(), "a=1");
    EXPECT_EQ(copy.GetResponse(), "");
    EXPECT_EQ(copy.GetHttpStatus(), -1);
    EXPECT_FALSE(Describe(copy).isMember("http_status"));
    EXPECT_EQ(source->GetResponse(), "ok") << "the source keeps its own";
    EXPECT_EQ(source->GetHttpStatus(), 200);
}

TEST_F(RequestCopy, ForgetsTheSourcesFailureAndCookies) {
    server_.On("/", [](const auto&, auto& response) { response.set_header("Set-Cookie", "copy=1"); });
    const auto source = Make("", false);
    ASSERT_TRUE(source->Send());
    std::list<std::string> cookies;
    ASSERT_TRUE(source->GetCookies(cookies));
    Request copy(*source);
    EXPECT_FALSE(copy.GetCookies(cookies));
    const CapturedLog log;
    Request failed(RefusedUrl().c_str(), "", false);
    ASSERT_FALSE(failed.Send());
    const Request second(failed);
    EXPECT_EQ(second.GetCurlResult(), CURLE_OK);
}

TEST_F(RequestCopy, HasAHandleOfItsOwn) {
    const auto source = Make("", false);
    Request copy(*source);
    EXPECT_TRUE(copy != nullptr);
    source->Set("", std::string(), false);
    EXPECT_TRUE(copy.Send());
}

class CopiedBody : public RequestCopy, public testing::WithParamInterface<std::tuple<std::string, bool>> {};

TEST_P(CopiedBody, OutlivesItsSource) {
    const auto& [data, post] = GetParam();
    auto source = Make(data, post);
    Request copy(*source);
    Request assigned(nullptr, nullptr, false);
    assigned = *source;
    source.reset();
    for (auto* request : {&copy, &assigned}) {
        ASSERT_TRUE(request->Send());
        EXPECT_EQ(request->GetResponse(), "ok");
        const auto seen = server_.Seen().back();
        EXPECT_EQ(seen.body, post ? data : "");
        EXPECT_EQ(seen.method, post && !data.empty() ? "POST" : "GET");
        EXPECT_FALSE(seen.get_header_value("User-Agent").empty());
    }
}

INSTANTIATE_TEST_SUITE_P(RequestCopy, CopiedBody,
                         testing::Values(std::tuple("a=1", true), std::tuple("", true), std::tuple("a=1", false),
                                         std::tuple(std::string(7000, 'x'), true)));

TEST_F(RequestCopy, OutlivesASourceWhoseDataBeginsWithNul) {
    auto source = Make("", true);
    ASSERT_TRUE(source->SetData(std::string("\0abc", 4), true));
    Request copy(*source);
    source.reset();
    ASSERT_TRUE(copy.Send());
    EXPECT_EQ(server_.Seen().back().method, "POST");
    EXPECT_EQ(server_.Seen().back().body, "");
}

TEST_F(RequestCopy, OutlivesASourceWhoseBodyWasTakenAway) {
    auto source = Make("long=body", true);
    ASSERT_TRUE(source->SetData(std::string("q=1"), false));
    Request copy(*source);
    source.reset();
    ASSERT_TRUE(copy.Send());
    EXPECT_EQ(server_.Seen().back().target, "/?q=1");
    EXPECT_EQ(server_.Seen().back().method, "GET");
}

TEST_F(RequestCopy, KeepsTheSourcesBodyWhenThatChanges) {
    const auto source = Make("first=1", true);
    Request copy(*source);
    ASSERT_TRUE(source->SetData(std::string("second=22"), true));
    ASSERT_TRUE(copy.Send());
    EXPECT_EQ(server_.Seen().back().body, "first=1");
}

TEST_F(RequestCopy, WritesItsErrorTextIntoNobodyElsesBuffer) {
    const CurlFaults faults;
    auto source = std::make_unique<Request>(RefusedUrl().c_str(), "a=1", true);
    Request copy(*source);
    const auto* own = faults.Last(CURLOPT_ERRORBUFFER)->pointer;
    const auto* object = reinterpret_cast<const char*>(&copy);
    EXPECT_TRUE(own >= object && own < object + sizeof copy);
    source.reset();
    const CapturedLog log;
    EXPECT_FALSE(copy.Send());
    EXPECT_STRNE(static_cast<const char*>(own), "");
}

TEST_F(RequestCopy, SetsNothingElseOnTheDuplicate) {
    CurlFaults faults;
    const auto source = Make("a=1", true);
    faults.calls.clear();
    const Request copy(*source);
    std::vector<CURLoption> set;
    for (const auto& call : faults.calls) {
        set.push_back(call.option);
    }
    EXPECT_THAT(set, testing::UnorderedElementsAre(CURLOPT_ERRORBUFFER, CURLOPT_WRITEDATA));
}

TEST_F(RequestCopy, OfARequestWithoutAHandleHasNone) {
    const Request source(nullptr, nullptr, false);
    const Request copy(source);
    EXPECT_FALSE(copy.IsValid());
    Request assigned(server_.Url().c_str(), "", false);
    assigned = source;
    EXPECT_FALSE(assigned.IsValid());
    EXPECT_TRUE(assigned == nullptr);
    EXPECT_EQ(assigned.GetUrl(), "");
}

TEST_F(RequestCopy, IsNotValidWhenTheHandleCannotBeDuplicated) {
    CurlFaults faults;
    const auto source = Make("a=1", true);
    faults.noDuplicate = true;
    const Request copy(*source);
    EXPECT_FALSE(copy.IsValid());
    EXPECT_EQ(copy.GetUrl(), server_.Url());
    EXPECT_EQ(copy.GetData(), "a=1");
    EXPECT_TRUE(source->IsValid());
}

TEST_F(RequestCopy, IsNotValidWhenItsWriteTargetIsRefused) {
    CurlFaults faults;
    const auto source = Make("a=1", true);
    faults.Refuse(CURLOPT_WRITEDATA);
    const CapturedLog log;
    const Request copy(*source);
    EXPECT_FALSE(copy.IsValid());
    EXPECT_THAT(log.Messages(), testing::ElementsAre("request.cpp set CURLOPT_WRITEDATAto curl handle failed"));
}

TEST_F(RequestCopy, AssignmentReplacesAllButTheCookies) {
    server_.On("/", [](const auto&, auto& response) { response.set_header("Set-Cookie", "own=1"); });
    Request request(server_.Url().c_str(), "a=1", true);
    ASSERT_TRUE(request.Send());
    const Request other(server_.Url("/other").c_str(), "b=2", true);
    request = other;
    std::list<std::string> cookies;
    EXPECT_TRUE(request.GetCookies(cookies));
    EXPECT_THAT(cookies, SizeIs(1));
    EXPECT_EQ(request.GetData(), "b=2");
    EXPECT_EQ(request.GetHttpStatus(), -1);
    EXPECT_EQ(request.GetResponse(), "");
    ASSERT_TRUE(request.Send());
    EXPECT_EQ(server_.Seen().back().path, "/other");
    EXPECT_EQ(server_.Seen().back().body, "b=2");
}

TEST_F(RequestCopy, SurvivesAssignmentToItself) {
    Request request(server_.Url().c_str(), "a=1", true);
    ASSERT_TRUE(request.Send());
    auto& self = request;
    request = self;
    EXPECT_TRUE(request.IsValid());
    EXPECT_EQ(request.GetUrl(), server_.Url());
    EXPECT_EQ(request.GetData(), "a=1");
    ASSERT_TRUE(request.Send());
    EXPECT_EQ(server_.Seen().back().body, "a=1");
}

TEST_F(RequestCopy, CanBeCopiedFurther) {
    auto source = Make("a=1", true);
    auto second = std::make_unique<Request>(*source);
    auto third = std::make_unique<Request>(*second);
    source.reset();
    second.reset();
    ASSERT_TRUE(third->Send());
    EXPECT_EQ(server_.Seen().back().body, "a=1");
}

}  // namespace
