// SPDX-License-Identifier: Apache-2.0
#include <relay/request/request.h>

#include <algorithm>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/captured_log.h"
#include "support/curl_faults.h"
#include "support/message_level.h"

using namespace ardv::test;
using namespace ARDV::Relay;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr auto kFailed = static_cast<RELAYD_RET>(2);

struct Outcome {
    CURLcode code;
    long status;
    RELAYD_RET ret;
};

void PrintTo(const Outcome& outcome, std::ostream* stream) {
    *stream << "result " << outcome.code << ", status " << outcome.status;
}

class RequestError : public testing::Test {
protected:
    RequestError() { EndRun(); }
    ~RequestError() override { EndRun(); }

    RELAYD_RET After(CURLcode code, long status) {
        faults_.status = status;
        request_.InitSend();
        request_.JobDone(code);
        return request_.GetError();
    }

    // The run of equal failures belongs to the process.
    void EndRun() {
        const CapturedLog log;
        After(CURLE_OK, 200);
    }

    static std::string Message(CURLcode code) {
        return "request.cpp curl error: " + std::to_string(code) + ", " + curl_easy_strerror(code);
    }

    CurlFaults faults_;
    Request request_{"http://127.0.0.1:9/", "", false};
};

class OutcomeOfAnAnswer : public RequestError, public testing::WithParamInterface<Outcome> {};

TEST_P(OutcomeOfAnAnswer, IsReadFromItsStatus) {
    const auto [code, status, ret] = GetParam();
    const CapturedLog log;
    EXPECT_EQ(After(code, status), ret);
    if (status == 200) {
        EXPECT_THAT(log.Lines(), IsEmpty());
    }
}

TEST_P(OutcomeOfAnAnswer, IsLoggedUnlessItIsASuccess) {
    const auto [code, status, ret] = GetParam();
    if (ret == RELAYD_RET_SUCCESS) {
        const CapturedLog log;
        After(code, status);
        EXPECT_THAT(log.Lines(), IsEmpty());
        return;
    }
    ExpectMessage(6, "request.cpp http status: " + std::to_string(status), [&, c = code, s = status] { After(c, s); });
}

TEST_P(OutcomeOfAnAnswer, EndsARunOfFailures) {
    const CapturedLog log(3);
    After(CURLE_COULDNT_CONNECT, 0);
    After(CURLE_OK, GetParam().status);
    After(CURLE_COULDNT_CONNECT, 0);
    EXPECT_THAT(log.Messages(), ElementsAre(Message(CURLE_COULDNT_CONNECT), Message(CURLE_COULDNT_CONNECT)));
}

INSTANTIATE_TEST_SUITE_P(
    RequestError, OutcomeOfAnAnswer,
    testing::Values(Outcome{CURLE_OK, 200, RELAYD_RET_SUCCESS}, Outcome{CURLE_OK, 400, RELAYD_RET_ERR_NETWORK},
                    Outcome{CURLE_OK, 401, RELAYD_RET_ERR_NETWORK}, Outcome{CURLE_OK, 499, RELAYD_RET_ERR_NETWORK},
                    Outcome{CURLE_OK, 500, RELAYD_RET_ERR_SERVER_BUSY},
                    Outcome{CURLE_OK, 599, RELAYD_RET_ERR_SERVER_BUSY}, Outcome{CURLE_OK, 600, RELAYD_RET_ERR_UNKNOWN},
                    Outcome{CURLE_OK, 999, RELAYD_RET_ERR_UNKNOWN}, Outcome{CURLE_OK, 399, RELAYD_RET_ERR_UNKNOWN},
                    Outcome{CURLE_OK, 302, RELAYD_RET_ERR_UNKNOWN}, Outcome{CURLE_OK, 201, RELAYD_RET_ERR_UNKNOWN},
                    Outcome{CURLE_OK, 199, RELAYD_RET_ERR_UNKNOWN}, Outcome{CURLE_OK, 0, RELAYD_RET_ERR_UNKNOWN},
                    Outcome{CURLE_OK, -1, RELAYD_RET_ERR_UNKNOWN}));

class OutcomeOfAFailure : public RequestError, public testing::WithParamInterface<Outcome> {};

TEST_P(OutcomeOfAFailure, IsReadFromLibcurlsResultAlone) {
    const auto [code, status, ret] = GetParam();
    ExpectMessage(3, Message(code), [&, c = code, s = status, r = ret] {
        EndRun();
        EXPECT_EQ(After(c, s), r);
    });
    EXPECT_EQ(request_.GetCurlResult(), code);
}

INSTANTIATE_TEST_SUITE_P(
    RequestError, OutcomeOfAFailure,
    testing::Values(Outcome{CURLE_COULDNT_RESOLVE_HOST, 0, RELAYD_RET_ERR_RESOLV},
                    Outcome{CURLE_COULDNT_RESOLVE_HOST, 200, RELAYD_RET_ERR_RESOLV},
                    Outcome{CURLE_COULDNT_CONNECT, 0, RELAYD_RET_ERR_NETWORK},
                    Outcome{CURLE_SSL_CONNECT_ERROR, 0, RELAYD_RET_ERR_NETWORK},
                    Outcome{CURLE_SEND_ERROR, 503, RELAYD_RET_ERR_NETWORK},
                    Outcome{CURLE_RECV_ERROR, 200, RELAYD_RET_ERR_NETWORK},
                    Outcome{CURLE_OPERATION_TIMEDOUT, 0, RELAYD_RET_ERR_NETWORK},
                    Outcome{CURLE_AGAIN, 0, RELAYD_RET_ERR_NETWORK}, Outcome{CURLE_WRITE_ERROR, 200, kFailed},
                    Outcome{CURLE_PARTIAL_FILE, 404, kFailed}, Outcome{CURLE_GOT_NOTHING, 0, kFailed},
                    Outcome{CURLE_PEER_FAILED_VERIFICATION, 0, kFailed},
                    Outcome{CURLE_COULDNT_RESOLVE_PROXY, 0, kFailed}, Outcome{CURLE_URL_MALFORMAT, 0, kFailed},
                    Outcome{CURLE_UNSUPPORTED_PROTOCOL, 0, kFailed}, Outcome{CURLE_FAILED_INIT, 0, kFailed}));

TEST_F(RequestError, LogsARunOfEqualFailuresOnceForTheProcess) {
    Request other("http://127.0.0.1:9/", "", false);
    const CapturedLog log;
    After(CURLE_COULDNT_CONNECT, 0);
    After(CURLE_COULDNT_CONNECT, 0);
    other.JobDone(CURLE_COULDNT_CONNECT);
    EXPECT_EQ(other.GetError(), RELAYD_RET_ERR_NETWORK) << "also where it is not logged";
    EXPECT_THAT(log.Messages(), ElementsAre(Message(CURLE_COULDNT_CONNECT)));
}

TEST_F(RequestError, LogsEachChangeOfFailure) {
    const CapturedLog log;
    for (const auto code : {CURLE_COULDNT_CONNECT, CURLE_SEND_ERROR, CURLE_SEND_ERROR, CURLE_COULDNT_CONNECT}) {
        After(code, 0);
    }
    EXPECT_THAT(log.Messages(),
                ElementsAre(Message(CURLE_COULDNT_CONNECT), Message(CURLE_SEND_ERROR), Message(CURLE_COULDNT_CONNECT)));
}

TEST_F(RequestError, CountsAFailureThatTheLevelHidesAsLogged) {
    {
        const CapturedLog log(2);
        After(CURLE_COULDNT_CONNECT, 0);
    }
    const CapturedLog log;
    After(CURLE_COULDNT_CONNECT, 0);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

}  // namespace
