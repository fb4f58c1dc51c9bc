// SPDX-License-Identifier: Apache-2.0
#include "transfer_engine.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <future>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/captured_log.h"
#include "support/curl_faults.h"
#include "support/file_text.h"
#include "support/http_server.h"
#include "support/scratch_folder.h"
#include "unit/ardvrelayd/daemon_loop.h"

using namespace ardv::test;
using namespace ardv::daemon;
using namespace ARDV::Relay;
using namespace std::chrono_literals;
using std::chrono::steady_clock;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

/** What came of a transfer, as its `done` saw it. */
struct Outcome {
    std::string purpose;
    CURLcode code;
    RELAYD_RET error;
    std::string response;
};

class Transfers : public testing::Test {
protected:
    ~Transfers() override { LetAnswer(); }

    static std::shared_ptr<Request> Get(const std::string& url) {
        return std::make_shared<Request>(url.c_str(), "", false);
    }

    /** Starts a transfer that notes its outcome, and stops the loop when it is the last. */
    std::unique_ptr<Transfer> Start(const std::shared_ptr<Request>& request, const std::string& purpose = "p",
                                    std::optional<std::chrono::seconds> limit = TransferEngine::kOrdinaryLimit) {
        ++expected_;
        const auto note = [this, purpose](Request& r) {
            outcomes_.push_back({purpose, r.GetCurlResult(), r.GetError(), r.GetResponse()});
            if (outcomes_.size() == expected_) {
                loop_.Stop();
            }
        };
        return engine_->Start(request, note, purpose, limit);
    }

    /** Answers on this path come no sooner than `LetAnswer`. */
    std::string HeldUrl() {
        server_.On("/held", [this](const auto&, auto& response) {
            arrived_.set_value();
            gate_.wait();
            response.set_content("at last", "text/plain");
        });
        return server_.Url("/held");
    }

    /** Runs the loop until the server has got the held request. */
    void WaitForArrival() {
        auto arrival = arrived_.get_future();
        while (arrival.wait_for(0s) != std::future_status::ready) {
            RunFor(loop_, 5ms);
        }
    }

    void LetAnswer() {
        if (!isOpen_) {
            isOpen_ = true;
            open_.set_value();
        }
    }

    EventLoop loop_;
    std::unique_ptr<TransferEngine> engine_ = std::make_unique<TransferEngine>(loop_);
    std::vector<Outcome> outcomes_;
    std::size_t expected_ = 0;
    std::promise<void> open_;
    std::shared_future<void> gate_ = open_.get_future().share();
    std::promise<void> arrived_;
    bool isOpen_ = false;
    HttpServer server_;
};

/** Descriptors of this process that a child would inherit, but for the first three. */
std::vector<std::string> Inherited() {
    std::vector<std::string> inherited;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        const int fd = std::stoi(entry.path().filename());
        const int flags = fcntl(fd, F_GETFD);
        if (fd > STDERR_FILENO && flags >= 0 && (flags & FD_CLOEXEC) == 0) {
            inherited.push_back(entry.path().string());
        }
    }
    return inherited;
}

/** A name server that never answers, on loopback. */
class SilentNameServer {
public:
    SilentNameServer() : fd_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        constexpr std::uint16_t kPort = 53;
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(kPort);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        WriteText("/etc/nsswitch.conf", "hosts: dns\n");
        WriteText("/etc/resolv.conf", "nameserver 127.0.0.1\noptions timeout:5 attempts:1\n");
    }
    ~SilentNameServer() { close(fd_); }
    SilentNameServer(const SilentNameServer&) = delete;
    SilentNameServer& operator=(const SilentNameServer&) = delete;

    /** Waits until somebody asks. */
    void WaitForQuestion() const {
        std::array<char, 512> question = {};
        EXPECT_GT(recv(fd_, question.data(), question.size(), 0), 0);
    }

private:
    int fd_;
};

}  // namespace

TEST_F(Transfers, BringTheAnswer) {
    server_.On("/", 200, "{\"a\":1}");
    const auto token = Start(std::make_shared<Request>(server_.Url().c_str(), "x=1", true));
    EXPECT_THAT(outcomes_, IsEmpty());
    ASSERT_TRUE(RunUntilStopped(loop_));
    ASSERT_EQ(outcomes_.size(), 1U);
    EXPECT_EQ(outcomes_[0].error, RELAYD_RET_SUCCESS);
    EXPECT_EQ(outcomes_[0].response, "{\"a\":1}");
    EXPECT_EQ(server_.Seen().at(0).body, "x=1");
}

TEST_F(Transfers, KeepTheirRequestInTheEngineUntilDoneReturns) {
    const auto request = Get(server_.Url());
    std::string during;
    const auto token = engine_->Start(
        request,
        [&](Request& r) {
            Json::Value out;
            r.Write(out);
            during = out["mode"].asString() + " " + out["response"].asString();
            loop_.Stop();
        },
        "p");
    ASSERT_TRUE(RunUntilStopped(loop_));
    EXPECT_EQ(during, "async ok");
    EXPECT_FALSE(request->IsValid()) << "its handle is released";
    EXPECT_EQ(request->GetResponse(), "ok");
}

TEST_F(Transfers, FailToThosePassedTheirEnd) {
    const CapturedLog log;
    const auto token = Start(Get(RefusedUrl()));
    ASSERT_TRUE(RunUntilStopped(loop_));
    ASSERT_EQ(outcomes_.size(), 1U);
    EXPECT_EQ(outcomes_[0].code, CURLE_COULDNT_CONNECT);
    EXPECT_EQ(outcomes_[0].error, RELAYD_RET_ERR_NETWORK);
}

TEST_F(Transfers, ThatFailAtOnceAreToldByTheLoopAlone) {
    const CapturedLog log;
    const auto token = Start(Get("nosuch://127.0.0.1/"));
    EXPECT_THAT(outcomes_, IsEmpty());
    ASSERT_TRUE(RunUntilStopped(loop_));
    ASSERT_EQ(outcomes_.size(), 1U);
    EXPECT_EQ(outcomes_[0].code, CURLE_UNSUPPORTED_PROTOCOL);
}

TEST_F(Transfers, ThatCannotBeStartedComeToDone) {
    const CapturedLog log;
    const auto token = Start(std::make_shared<Request>(nullptr, nullptr, false));
    EXPECT_THAT(outcomes_, IsEmpty());
    ASSERT_TRUE(RunUntilStopped(loop_));
    ASSERT_EQ(outcomes_.size(), 1U);
    EXPECT_EQ(outcomes_[0].code, CURLE_FAILED_INIT);
    EXPECT_NE(outcomes_[0].error, RELAYD_RET_SUCCESS);
    EXPECT_THAT(engine_->Transfers(), IsEmpty());
}

TEST_F(Transfers, ThatLibcurlRefusesComeToDone) {
    CurlFaults faults;
    faults.addResult = CURLM_OUT_OF_MEMORY;
    const CapturedLog log;
    const auto token = Start(Get(server_.Url()));
    ASSERT_TRUE(RunUntilStopped(loop_));
    ASSERT_EQ(outcomes_.size(), 1U);
    EXPECT_EQ(outcomes_[0].code, CURLE_FAILED_INIT);
    EXPECT_NE(outcomes_[0].error, RELAYD_RET_SUCCESS);
    EXPECT_THAT(log.Messages(), Not(testing::Contains(HasSubstr("remove_handle"))));
}

TEST_F(Transfers, ThatLibcurlAddsAndCannotStartComeToDoneOnce) {
    CurlFaults faults;
    faults.actionResult = CURLM_INTERNAL_ERROR;
    const CapturedLog log;
    const auto request = Get(server_.Url());
    const auto token = Start(request);
    faults.actionResult.reset();
    ASSERT_TRUE(RunUntilStopped(loop_));
    RunFor(loop_, 50ms);
    ASSERT_EQ(outcomes_.size(), 1U);
    EXPECT_EQ(outcomes_[0].code, CURLE_FAILED_INIT);
    EXPECT_FALSE(request->IsValid()) << "it was taken out again";
    EXPECT_EQ(loop_.Watches(), 0U);
}

TEST_F(Transfers, ThatRanBeforeAndAreNotSetUpAgainDoNotSucceedTwice) {
    const auto request = Get(server_.Url());
    const auto first = Start(request);
    ASSERT_TRUE(RunUntilStopped(loop_));
    ASSERT_EQ(outcomes_[0].error, RELAYD_RET_SUCCESS);
    const CapturedLog log;
    const auto second = Start(request);
    ASSERT_TRUE(RunUntilStopped(loop_));
    EXPECT_EQ(outcomes_[1].code, CURLE_FAILED_INIT);
    EXPECT_NE(outcomes_[1].error, RELAYD_RET_SUCCESS);
    EXPECT_EQ(outcomes_[1].response, "");
}

TEST_F(Transfers, TakeNoRequestTwiceAtATime) {
    const auto request = Get(HeldUrl());
    const auto token = Start(request);
    EXPECT_THROW((void)engine_->Start(
                     request, [](Request&) {}, "again"),
                 std::invalid_argument);
    EXPECT_THROW((void)engine_->Start(
                     nullptr, [](Request&) {}, "none"),
                 std::invalid_argument);
    EXPECT_EQ(engine_->Transfers().size(), 1U);
    LetAnswer();
    ASSERT_TRUE(RunUntilStopped(loop_));
    EXPECT_EQ(outcomes_.at(0).response, "at last");
}

TEST_F(Transfers, AreGivenUpWithTheirToken) {
    const auto request = Get(HeldUrl());
    auto token = Start(request);
    WaitForArrival();
    EXPECT_EQ(engine_->Transfers().size(), 1U);
    token.reset();
    EXPECT_THAT(engine_->Transfers(), IsEmpty());
    EXPECT_FALSE(request->IsValid());
    EXPECT_EQ(loop_.Watches(), 0U);
    LetAnswer();
    RunFor(loop_, 50ms);
    EXPECT_THAT(outcomes_, IsEmpty());
}

TEST_F(Transfers, AreGivenUpAlsoBetweenTheirEndAndDone) {
    const CapturedLog log(3);
    auto failed = Start(Get("nosuch://127.0.0.1/"));
    failed.reset();
    RunFor(loop_, 30ms);
    EXPECT_THAT(outcomes_, IsEmpty());
    EXPECT_THAT(log.Messages(), IsEmpty());
}

TEST_F(Transfers, MayBeGivenUpByTheDoneOfAnother) {
    const CapturedLog log;
    std::vector<std::unique_ptr<Transfer>> tokens;
    int calls = 0;
    const auto giveUpAll = [&](Request&) {
        ++calls;
        tokens.clear();
    };
    for (int i = 0; i < 3; ++i) {
        tokens.push_back(engine_->Start(Get("nosuch://127.0.0.1/"), giveUpAll, "p"));
    }
    RunFor(loop_, 30ms);
    EXPECT_EQ(calls, 1);
    EXPECT_THAT(engine_->Transfers(), IsEmpty());
}

TEST_F(Transfers, MayStartOthersAndDropTheirOwnToken) {
    std::unique_ptr<Transfer> token;
    std::string answers;
    const auto second = [&, kept = std::string("second ")](Request& r) {
        token.reset();
        answers += kept + r.GetResponse();
        loop_.Stop();
    };
    const auto first = [&, kept = std::string("first ")](Request& r) {
        token.reset();
        answers += kept + r.GetResponse() + " ";
        token = engine_->Start(Get(server_.Url("/second")), second, "second");
        EXPECT_EQ(engine_->Transfers().size(), 1U);
    };
    token = engine_->Start(Get(server_.Url("/first")), first, "first");
    ASSERT_TRUE(RunUntilStopped(loop_));
    EXPECT_EQ(answers, "first ok second ok");
    EXPECT_THAT(engine_->Transfers(), IsEmpty());
}

TEST_F(Transfers, ThatAreStartedAgainWheneverTheyFailLeaveTimeForOtherThings) {
    const CapturedLog log(0);
    std::unique_ptr<Transfer> token;
    int calls = 0;
    std::function<void()> again = [&] {
        token = engine_->Start(
            Get("nosuch://127.0.0.1/"),
            [&](Request&) {
                ++calls;
                again();
            },
            "p");
    };
    again();
    EXPECT_EQ(calls, 0);
    RunFor(loop_, 50ms);
    EXPECT_GT(calls, 1);
}

TEST_F(Transfers, WhoseDoneFailsHarmNoOther) {
    const CapturedLog log(3);
    const auto failing = engine_->Start(
        Get(server_.Url()), [](Request&) { throw std::runtime_error("no"); }, "keep alive");
    const auto other = Start(Get(server_.Url()));
    ASSERT_TRUE(RunUntilStopped(loop_));
    RunFor(loop_, 50ms);
    EXPECT_EQ(outcomes_.at(0).error, RELAYD_RET_SUCCESS);
    EXPECT_THAT(log.Messages(), ElementsAre("guarded_call.cpp keep alive failed: no"));
    EXPECT_THAT(engine_->Transfers(), IsEmpty());
}

TEST_F(Transfers, RunSideBySide) {
    constexpr int kMany = 100;
    std::vector<std::unique_ptr<Transfer>> tokens;
    for (int i = 0; i < kMany; ++i) {
        const auto path = "/" + std::to_string(i);
        server_.On(path, 200, path);
        tokens.push_back(Start(Get(server_.Url(path)), path));
    }
    ASSERT_TRUE(RunUntilStopped(loop_));
    ASSERT_EQ(outcomes_.size(), std::size_t{kMany});
    for (const auto& outcome : outcomes_) {
        EXPECT_EQ(outcome.response, outcome.purpose);
    }
    EXPECT_EQ(loop_.Watches(), 0U);
}

TEST_F(Transfers, SleepWhileTheServerTakesItsTime) {
    auto request = Get(HeldUrl());
    request->SetTcpKeepAlive(60);
    const auto token = Start(request, "wait", std::nullopt);
    WaitForArrival();
    RunFor(loop_, 500ms);  // libcurl's timers of the connection's beginning
    const auto turns = loop_.Turns();
    RunFor(loop_, 1s);
    EXPECT_LE(loop_.Turns() - turns, 1U) << "the end of the test's time is the only thing that has happened";
    LetAnswer();
    ASSERT_TRUE(RunUntilStopped(loop_));
    EXPECT_EQ(outcomes_.at(0).response, "at last");
}

TEST_F(Transfers, LeaveNoDescriptorAndNoTimerBehind) {
    const auto before = OpenDescriptors();  // the server, in this process, may have one more while it starts
    const auto first = Start(Get(server_.Url()));
    const auto second = Start(Get(server_.Url()));
    ASSERT_TRUE(RunUntilStopped(loop_));
    const auto end = steady_clock::now() + 5s;
    while (OpenDescriptors() > before && steady_clock::now() < end) {
        RunFor(loop_, 5ms);  // the server closes its ends later
    }
    EXPECT_LE(OpenDescriptors(), before);
    EXPECT_EQ(loop_.Watches(), 0U);
    for (const auto& timer : loop_.Timers()) {
        EXPECT_EQ(timer.remaining, std::nullopt) << timer.name;
    }
}

TEST_F(Transfers, KeepTheirSocketsFromChildren) {
    const RawServer silent;  // never accepts, so that all descriptors are the engine's
    const auto held = Start(Get(silent.Url()));
    RunFor(loop_, 20ms);
    EXPECT_EQ(loop_.Watches(), 1U);
    EXPECT_THAT(Inherited(), IsEmpty());
    const SilentNameServer names;
    const auto resolving = Start(Get("http://box.zz/"));
    EXPECT_THAT(Inherited(), IsEmpty()) << "nor those to its resolver";
}

TEST_F(Transfers, AreGivenUpAtOnceWhileTheirNameIsBeingResolved) {
    const SilentNameServer names;
    auto token = Start(Get("http://box.zz/"));
    names.WaitForQuestion();
    RunFor(loop_, 20ms);
    const auto start = steady_clock::now();
    token.reset();
    EXPECT_LT(steady_clock::now() - start, 1s);
    EXPECT_EQ(loop_.Watches(), 0U);
    RunFor(loop_, 20ms);
    EXPECT_THAT(outcomes_, IsEmpty());
}

TEST_F(Transfers, EndInTimeOnASilentServer) {
    const RawServer silent;
    CurlFaults faults;
    faults.timeoutMilliseconds = 200;
    const CapturedLog log;
    const auto start = steady_clock::now();
    const auto token = Start(Get(silent.Url()));
    ASSERT_TRUE(RunUntilStopped(loop_));
    EXPECT_EQ(outcomes_.at(0).code, CURLE_OPERATION_TIMEDOUT);
    EXPECT_GE(steady_clock::now() - start, 200ms);
    EXPECT_LT(steady_clock::now() - start, 400ms);
}

TEST_F(Transfers, AreListedWhileTheyAreUnderWay) {
    const auto ordinary = Start(Get(server_.Url("/a")), "register");
    const auto wait = Start(Get(server_.Url("/b")), "wait", std::nullopt);
    const auto list = engine_->Transfers();
    ASSERT_EQ(list.size(), 2U);
    EXPECT_EQ(list[0].purpose, "register");
    EXPECT_EQ(list[0].url, server_.Url("/a"));
    EXPECT_EQ(list[0].limit, TransferEngine::kOrdinaryLimit);
    EXPECT_GE(list[0].age, 0ms);
    EXPECT_LT(list[0].age, 10s);
    EXPECT_EQ(list[1].purpose, "wait");
    EXPECT_EQ(list[1].limit, std::nullopt);
    ASSERT_TRUE(RunUntilStopped(loop_));
    EXPECT_THAT(engine_->Transfers(), IsEmpty());
}

TEST_F(Transfers, AreLostWhenTheyArePastTheirLimit) {
    const RawServer silent;
    std::string why = "untouched";
    EXPECT_TRUE(engine_->IsHealthy(why));
    const auto wait = Start(Get(silent.Url()), "wait", std::nullopt);
    const auto ordinary = Start(Get(silent.Url()), "register");
    RunFor(loop_, 20ms);
    EXPECT_TRUE(engine_->IsHealthy(why));
    EXPECT_EQ(why, "untouched");
    auto late = Start(Get(silent.Url()), "keep alive", 0s);
    RunFor(loop_, 20ms);
    EXPECT_FALSE(engine_->IsHealthy(why));
    EXPECT_EQ(why, "transfer \"keep alive\" has been under way for 0 s");
    late.reset();
    EXPECT_TRUE(engine_->IsHealthy(why));
}

TEST_F(Transfers, EndWithTheEngineAndTheirTokensMayLiveOn) {
    const auto request = Get(HeldUrl());
    auto token = Start(request);
    WaitForArrival();
    engine_.reset();
    EXPECT_FALSE(request->IsValid());
    EXPECT_EQ(loop_.Watches(), 0U);
    LetAnswer();
    RunFor(loop_, 20ms);
    EXPECT_THAT(outcomes_, IsEmpty());
    token.reset();
}

TEST_F(Transfers, RunOverTls) {
    const auto folder = MakeCertificates({"localhost"});
    WriteText("/etc/ssl/certs/ca-certificates.crt", ReadText(folder + "/ca.pem"));
    const HttpServer server({folder + "/valid.pem", folder + "/valid.key"});
    const auto token = Start(Get(server.Url("/", "localhost")));
    ASSERT_TRUE(RunUntilStopped(loop_));
    EXPECT_EQ(outcomes_.at(0).response, "ok");
    EXPECT_EQ(loop_.Watches(), 0U);
}
