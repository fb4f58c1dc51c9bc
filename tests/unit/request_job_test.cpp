// SPDX-License-Identifier: Apache-2.0
#include <relay/request/request.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <set>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/captured_log.h"
#include "support/curl_faults.h"
#include "support/event_loop.h"
#include "support/http_server.h"
#include "support/message_level.h"

using namespace ardv::test;
using namespace ARDV::Relay;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// Drives its requests as a daemon does.
class RequestJob : public testing::Test {
protected:
    using Job = std::shared_ptr<Request>;

    RequestJob() {
        const CapturedLog log;
        Request::CleanDnsCache();  // cookies of other tests
        loop_.onFinished = [this](CURL* handle, CURLcode code) {
            const auto job = std::find_if(jobs_.begin(), jobs_.end(), [handle](const auto& j) { return *j == handle; });
            ASSERT_NE(job, jobs_.end());
            EXPECT_TRUE((*job)->JobDone(code));
            done_.push_back(*job);
        };
    }

    Job Add(const std::string& url, const std::string& data = "", bool post = false) {
        jobs_.push_back(std::make_shared<Request>(url.c_str(), data.c_str(), post));
        EXPECT_TRUE(jobs_.back()->JobAdd(loop_.Multi()));
        return jobs_.back();
    }

    bool WaitForAll() {
        return loop_.RunUntil([this] { return done_.size() == jobs_.size(); });
    }

    static std::string Mode(const Request& request) {
        Json::Value out;
        request.Write(out);
        return out["mode"].asString();
    }

    HttpServer server_;
    EventLoop loop_;
    std::vector<Job> jobs_;
    std::vector<Job> done_;
};

TEST_F(RequestJob, RunsInAnEngine) {
    server_.On("/", 200, "{\"a\":1}");
    const auto job = Add(server_.Url(), "x=1", true);
    EXPECT_EQ(Mode(*job), "async");
    EXPECT_EQ(job->GetHttpStatus(), -1);
    ASSERT_TRUE(WaitForAll());
    EXPECT_EQ(Mode(*job), "async") << "it is in the engine until it is removed";
    EXPECT_EQ(job->GetError(), RELAYD_RET_SUCCESS);
    EXPECT_EQ(job->GetResponse(), "{\"a\":1}");
    EXPECT_EQ(server_.Seen().at(0).body, "x=1");
    EXPECT_TRUE(job->JobRemove(loop_.Multi()));
    EXPECT_EQ(Mode(*job), "sync");
}

TEST_F(RequestJob, KeepsItsOutcomeWhenItIsRemoved) {
    server_.On("/", 200, "body");
    const auto job = Add(server_.Url());
    ASSERT_TRUE(WaitForAll());
    ASSERT_TRUE(job->JobRemove(loop_.Multi()));
    EXPECT_FALSE(job->IsValid());
    EXPECT_TRUE(*job == nullptr);
    EXPECT_EQ(job->GetResponse(), "body");
    EXPECT_EQ(job->GetHttpStatus(), 200);
    EXPECT_EQ(job->GetCurlResult(), CURLE_OK);
    EXPECT_FALSE(job->Send()) << "it must be set up again";
    EXPECT_FALSE(job->JobAdd(loop_.Multi()));
    EXPECT_EQ(job->GetResponse(), "body");
}

TEST_F(RequestJob, RunsAgainOnceItIsSetUpAgain) {
    const auto job = Add(server_.Url());
    ASSERT_TRUE(WaitForAll());
    ASSERT_TRUE(job->JobRemove(loop_.Multi()));
    ASSERT_TRUE(job->Set(server_.Url("/second"), std::string(), false));
    ASSERT_TRUE(job->JobAdd(loop_.Multi()));
    done_.clear();
    ASSERT_TRUE(WaitForAll());
    ASSERT_TRUE(job->JobRemove(loop_.Multi()));
    ASSERT_TRUE(job->Set(server_.Url("/third"), std::string(), false));
    EXPECT_TRUE(job->Send());
    EXPECT_EQ(server_.Seen().back().path, "/third");
}

TEST_F(RequestJob, CannotBeSentAsWell) {
    const auto job = Add(server_.Url());
    const CapturedLog log;
    EXPECT_FALSE(job->Send());
    ASSERT_TRUE(WaitForAll());
    EXPECT_FALSE(job->Send());
    EXPECT_EQ(job->GetResponse(), "ok") << "what has come is left alone";
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_EQ(server_.Seen().size(), 1U);
}

TEST_F(RequestJob, RecordsAFailedTransfer) {
    const CapturedLog log;
    const auto job = Add(RefusedUrl());
    ASSERT_TRUE(WaitForAll());
    EXPECT_EQ(job->GetCurlResult(), CURLE_COULDNT_CONNECT);
    EXPECT_EQ(job->GetError(), RELAYD_RET_ERR_NETWORK);
    EXPECT_EQ(job->GetResponse(), "");
    Json::Value out;
    job->Write(out);
    EXPECT_EQ(out["http_status"], 0);
    EXPECT_EQ(out["response"], "");
}

TEST_F(RequestJob, RecordsTheStatusOfAnAnswerThatWasCutOff) {
    const RawServer cut("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nbegun");
    const CapturedLog log;
    const auto job = Add(cut.Url());
    ASSERT_TRUE(WaitForAll());
    EXPECT_EQ(job->GetHttpStatus(), 200);
    EXPECT_EQ(job->GetCurlResult(), CURLE_PARTIAL_FILE);
    EXPECT_EQ(job->GetError(), static_cast<RELAYD_RET>(2));
}

TEST_F(RequestJob, GivesUpOnASilentServer) {
    const RawServer silent;
    CurlFaults faults;
    faults.timeoutMilliseconds = 200;
    const CapturedLog log;
    const auto job = Add(silent.Url());
    ASSERT_TRUE(WaitForAll());
    EXPECT_EQ(job->GetCurlResult(), CURLE_OPERATION_TIMEDOUT);
}

TEST_F(RequestJob, GathersItsCookiesOnce) {
    server_.On("/", [](const auto&, auto& response) { response.set_header("Set-Cookie", "job=1"); });
    const auto job = Add(server_.Url());
    ASSERT_TRUE(WaitForAll());
    EXPECT_EQ(job->GetHttpStatus(), 200);
    std::list<std::string> cookies;
    EXPECT_TRUE(job->GetCookies(cookies));
    EXPECT_THAT(cookies, ElementsAre("127.0.0.1\tFALSE\t/\tFALSE\t0\tjob\t1"));
}

TEST_F(RequestJob, GathersItsCookiesAlsoWhenItFailed) {
    const RawServer cut("HTTP/1.1 200 OK\r\nSet-Cookie: job=1\r\nContent-Length: 100\r\n\r\nbegun");
    const auto job = Add(cut.Url());
    ASSERT_TRUE(WaitForAll());
    ASSERT_EQ(job->GetCurlResult(), CURLE_PARTIAL_FILE);
    std::list<std::string> cookies;
    EXPECT_TRUE(job->GetCookies(cookies));
    EXPECT_THAT(cookies, ElementsAre("127.0.0.1\tFALSE\t/\tFALSE\t0\tjob\t1"));
}

TEST_F(RequestJob, RunsAHundredAtOnce) {
    constexpr int kJobs = 100;
    for (int i = 0; i < kJobs; ++i) {
        const auto path = "/" + std::to_string(i);
        server_.On(path, 200, "answer " + std::to_string(i));
        Add(server_.Url(path), "", true);
    }
    EXPECT_EQ(std::set<Job>(jobs_.begin(), jobs_.end()).size(), std::size_t{kJobs});
    ASSERT_TRUE(WaitForAll());
    for (int i = 0; i < kJobs; ++i) {
        const auto& job = jobs_[static_cast<std::size_t>(i)];
        EXPECT_EQ(job->GetError(), RELAYD_RET_SUCCESS);
        EXPECT_EQ(job->GetResponse(), "answer " + std::to_string(i));
        EXPECT_TRUE(job->JobRemove(loop_.Multi()));
    }
    EXPECT_EQ(server_.Seen().size(), std::size_t{kJobs});
}

TEST_F(RequestJob, NeedsAnEngineAndASetUp) {
    Request request(nullptr, nullptr, false);
    const CapturedLog log;
    EXPECT_FALSE(request.JobAdd(loop_.Multi()));
    ASSERT_TRUE(request.Set(server_.Url(), std::string(), false));
    EXPECT_FALSE(request.JobAdd(nullptr));
    EXPECT_FALSE(request.JobRemove(nullptr));
    EXPECT_TRUE(request.IsValid());
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_TRUE(request.Send());
}

TEST_F(RequestJob, CannotBeAddedTwice) {
    const auto job = Add(server_.Url());
    ExpectMessage(3, "request.cpp curl_multi_add_handle() failed", [&] { EXPECT_FALSE(job->JobAdd(loop_.Multi())); });
    EXPECT_EQ(Mode(*job), "async");
    EXPECT_TRUE(WaitForAll());
    EXPECT_EQ(job->GetResponse(), "ok");
}

TEST_F(RequestJob, StaysOutOfAnEngineThatRefusesIt) {
    CurlFaults faults;
    faults.addResult = CURLM_OUT_OF_MEMORY;
    Request request(server_.Url().c_str(), "", false);
    ExpectMessage(3, "request.cpp curl_multi_add_handle() failed",
                  [&] { EXPECT_FALSE(request.JobAdd(loop_.Multi())); });
    EXPECT_EQ(Mode(request), "sync");
    EXPECT_TRUE(request.Send());
}

TEST_F(RequestJob, StaysAddedToAnEngineThatCannotStart) {
    CurlFaults faults;
    Request request(server_.Url().c_str(), "", false);
    ExpectMessage(3, "request.cpp curl_multi_socket_action failed", [&] {
        ASSERT_TRUE(request.Set(server_.Url(), std::string(), false));
        faults.actionResult = CURLM_INTERNAL_ERROR;
        EXPECT_FALSE(request.JobAdd(loop_.Multi()));
        faults.actionResult.reset();
        EXPECT_EQ(Mode(request), "sync");
        EXPECT_EQ(curl_multi_add_handle(loop_.Multi(), nullptr), CURLM_BAD_EASY_HANDLE);
        const CapturedLog log;
        EXPECT_FALSE(request.JobAdd(loop_.Multi())) << "it is in there";
        EXPECT_TRUE(request.JobRemove(loop_.Multi()));
    });
}

TEST_F(RequestJob, StartsWhereTheEngineAsksToBeCalledAgain) {
    CurlFaults faults;
    faults.actionResult = CURLM_CALL_MULTI_PERFORM;
    const auto job = Add(server_.Url());
    faults.actionResult.reset();
    EXPECT_TRUE(WaitForAll());
}

TEST_F(RequestJob, IsNotAddedWhenItsWriteTargetIsRefused) {
    CurlFaults faults;
    Request request(server_.Url().c_str(), "", false);
    faults.Refuse(CURLOPT_WRITEDATA);
    const CapturedLog log;
    EXPECT_FALSE(request.JobAdd(loop_.Multi()));
    EXPECT_FALSE(request.IsValid());
}

TEST_F(RequestJob, KeepsItsHandleWhenItCannotBeRemoved) {
    const auto job = Add(server_.Url());
    CURLM* other = curl_multi_init();
    ExpectMessage(3, "request.cpp curl_multi_remove_handle() failed", [&] { EXPECT_FALSE(job->JobRemove(other)); });
    curl_multi_cleanup(other);
    EXPECT_TRUE(job->IsValid());
    EXPECT_EQ(Mode(*job), "async");
    EXPECT_TRUE(WaitForAll());
    EXPECT_TRUE(job->JobRemove(loop_.Multi()));
}

TEST_F(RequestJob, CannotBeRemovedWithoutAHandle) {
    Request request(nullptr, nullptr, false);
    const CapturedLog log;
    EXPECT_FALSE(request.JobRemove(loop_.Multi()));
    EXPECT_THAT(log.Messages(), ElementsAre("request.cpp curl_multi_remove_handle() failed"));
}

TEST_F(RequestJob, LeavesTheEngineWhenItIsRemovedUnfinished) {
    const RawServer silent;
    const auto job = Add(silent.Url());
    const auto other = Add(server_.Url());
    ASSERT_TRUE(loop_.RunUntil([this] { return done_.size() == 1; }));
    EXPECT_TRUE(job->JobRemove(loop_.Multi()));
    int running = -1;
    curl_multi_socket_action(loop_.Multi(), CURL_SOCKET_TIMEOUT, 0, &running);
    EXPECT_EQ(running, 0);
    EXPECT_EQ(job->GetHttpStatus(), -1);
}

TEST_F(RequestJob, LeavesTheEngineWhenItIsDestroyed) {
    const RawServer silent;
    {
        Request request(silent.Url().c_str(), "", false);
        ASSERT_TRUE(request.JobAdd(loop_.Multi()));
    }
    Add(server_.Url());
    EXPECT_TRUE(WaitForAll());
    EXPECT_EQ(loop_.Running(), 0);
}

TEST_F(RequestJob, LeavesTheEngineWhenAnotherRequestIsAssignedToIt) {
    const RawServer silent;
    Request request(silent.Url().c_str(), "", false);
    ASSERT_TRUE(request.JobAdd(loop_.Multi()));
    const Request other(server_.Url("/other").c_str(), "", false);
    request = other;
    EXPECT_EQ(Mode(request), "sync");
    EXPECT_TRUE(request.Send());
    EXPECT_EQ(server_.Seen().at(0).path, "/other");
    int running = -1;
    curl_multi_socket_action(loop_.Multi(), CURL_SOCKET_TIMEOUT, 0, &running);
    EXPECT_EQ(running, 0);
}

TEST_F(RequestJob, CanBeCopiedWhileItRuns) {
    const auto job = Add(server_.Url());
    Request copy(*job);
    EXPECT_EQ(Mode(copy), "sync");
    EXPECT_TRUE(copy.Send());
    EXPECT_TRUE(WaitForAll());
    EXPECT_EQ(job->GetResponse(), "ok");
}

TEST_F(RequestJob, OutlivesItsEngine) {
    const RawServer silent;
    auto engine = std::make_unique<EventLoop>();
    Request request(silent.Url().c_str(), "", false);
    ASSERT_TRUE(request.JobAdd(engine->Multi()));
    ASSERT_TRUE(request.JobRemove(engine->Multi()));
    engine.reset();
    ASSERT_TRUE(request.Set(server_.Url(), std::string(), false));
    EXPECT_TRUE(request.Send());
}

TEST_F(RequestJob, CutsAnAnswerThatIsTooLarge) {
    std::atomic<std::size_t> sent = 0;
    server_.On("/", [&sent](const auto&, auto& response) {
        response.set_chunked_content_provider("text/plain", [&sent](std::size_t, httplib::DataSink& sink) {
            const std::string block(1U << 20U, 'x');
            if ((sent += block.size()) > (100U << 20U)) {
                sink.done();
                return true;
            }
            return sink.write(block.data(), block.size());
        });
    });
    const CapturedLog log;
    const auto job = Add(server_.Url());
    ASSERT_TRUE(WaitForAll());
    EXPECT_EQ(job->GetCurlResult(), CURLE_WRITE_ERROR);
    EXPECT_EQ(job->GetError(), static_cast<RELAYD_RET>(2));
    EXPECT_LE(sent, 40U << 20U);
}

}  // namespace
