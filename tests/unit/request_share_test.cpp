// SPDX-License-Identifier: Apache-2.0
#include <arpa/inet.h>
#include <netinet/in.h>
#include <resolv.h>

#include <algorithm>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <relay/request/request.h>

#include "support/captured_log.h"
#include "support/curl_faults.h"
#include "support/file_text.h"
#include "support/http_server.h"
#include "support/message_level.h"

using namespace ardv::test;
using ARDV::Relay::Request;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

namespace {

constexpr const char* kInUse = "request.cpp curl_share_cleanup failed. [2:Share currently in use]";

class RequestShare : public testing::Test {
protected:
    RequestShare() {
        StartAfresh();
        faults_.shareEvents.clear();
        faults_.liveShares.clear();
    }

    ~RequestShare() override {
        Request::SetCookie("");
        StartAfresh();
    }

    static void StartAfresh() {
        const CapturedLog log;
        Request::CleanDnsCache();
    }

    /** The number of the process's share; 0 if there is none. */
    int Share(bool reset = false) const {
        const auto share = faults_.liveShares.find(Request::GetCurlShare(reset));
        return share == faults_.liveShares.end() ? 0 : share->second;
    }

    bool WasReleased(int share) const {
        const auto event = "released " + std::to_string(share);
        return std::count(faults_.shareEvents.begin(), faults_.shareEvents.end(), event) == 1;
    }

    void AnswerWithCookies(const std::vector<std::string>& cookies) {
        server_.On("/", [cookies](const auto&, auto& response) {
            for (const auto& cookie : cookies) {
                response.set_header("Set-Cookie", cookie);
            }
            response.set_content("ok", "text/plain");
        });
    }

    std::list<std::string> CookiesOf(Request& request) {
        std::list<std::string> cookies;
        const bool hasCookies = request.GetCookies(cookies);
        EXPECT_EQ(hasCookies, !cookies.empty());
        return cookies;
    }

    std::string CookieHeader() const { return server_.Seen().back().get_header_value("Cookie"); }

    HttpServer server_;
    CurlFaults faults_;
};

TEST_F(RequestShare, IsMadeOnceAndSharesCookiesAndNames) {
    CURLSH* share = Request::GetCurlShare(false);
    ASSERT_NE(share, nullptr);
    EXPECT_EQ(Request::GetCurlShare(false), share);
    EXPECT_THAT(faults_.shareEvents, ElementsAre("made 1"));
    EXPECT_THAT(faults_.sharedData, ElementsAre(CURL_LOCK_DATA_COOKIE, CURL_LOCK_DATA_DNS));
}

TEST_F(RequestShare, IsMadeAnewOnReset) {
    EXPECT_EQ(Share(), 1);
    EXPECT_EQ(Share(true), 2);
    EXPECT_EQ(Share(), 2);
    EXPECT_THAT(faults_.shareEvents, ElementsAre("made 1", "released 1", "made 2"));
}

TEST_F(RequestShare, IsMadeOnResetAlsoWhereThereIsNone) {
    const CapturedLog log;
    EXPECT_NE(Request::GetCurlShare(true), nullptr);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(RequestShare, IsReplacedOnResetWhileARequestStillHoldsIt) {
    ExpectMessage(5, kInUse, [&] {
        const Request request(server_.Url().c_str(), "", false);
        const int share = Share();
        EXPECT_EQ(Share(true), share + 1);
        EXPECT_FALSE(WasReleased(share));
    });
}

TEST_F(RequestShare, CannotBeMadeWithoutMemory) {
    faults_.noShare = true;
    ExpectMessage(3, "request.cpp curl_share_init failed", [] { EXPECT_EQ(Request::GetCurlShare(false), nullptr); });
    faults_.noShare = false;
    EXPECT_NE(Request::GetCurlShare(false), nullptr);
}

TEST_F(RequestShare, IsReleasedWhenItCannotShare) {
    for (const auto& [data, name] : {std::pair(CURL_LOCK_DATA_COOKIE, "CURL_LOCK_DATA_COOKIE"),
                                     std::pair(CURL_LOCK_DATA_DNS, "CURL_LOCK_DATA_DNS")}) {
        faults_.refusedShareData = data;
        ExpectMessage(3, std::string("request.cpp set ") + name + " failed", [&] {
            EXPECT_EQ(Request::GetCurlShare(false), nullptr);
            EXPECT_THAT(faults_.shareEvents.back(), StartsWith("released "));
            EXPECT_THAT(faults_.liveShares, IsEmpty());
        });
    }
    faults_.refusedShareData.reset();
    EXPECT_NE(Request::GetCurlShare(false), nullptr);
}

TEST_F(RequestShare, LosesTheOldOneWhenTheNewOneCannotBeMade) {
    Request::GetCurlShare(false);
    faults_.noShare = true;
    const CapturedLog log;
    EXPECT_EQ(Request::GetCurlShare(true), nullptr);
    EXPECT_EQ(Request::GetCurlShare(false), nullptr);
}

TEST_F(RequestShare, IsDroppedWithTheNamesCache) {
    EXPECT_EQ(Share(), 1);
    const CapturedLog log;
    EXPECT_TRUE(Request::CleanDnsCache());
    EXPECT_TRUE(WasReleased(1));
    EXPECT_TRUE(Request::CleanDnsCache()) << "there is none now";
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_THAT(faults_.shareEvents, SizeIs(2)) << "a new one is made when it is needed";
}

TEST_F(RequestShare, IsReportedInUseWhenDroppedUnderLiveRequests) {
    ExpectMessage(5, kInUse, [&] {
        const Request request(server_.Url().c_str(), "", false);
        EXPECT_TRUE(Request::CleanDnsCache());
    });
}

TEST_F(RequestShare, ServesLiveRequestsAfterItWasDropped) {
    Request early(server_.Url().c_str(), "", false);
    EXPECT_EQ(Share(), 1);
    StartAfresh();
    EXPECT_TRUE(early.Send());
    Request late(server_.Url().c_str(), "", false);
    EXPECT_EQ(Share(), 2);
    EXPECT_TRUE(late.Send());
    EXPECT_TRUE(early.Send());
    EXPECT_FALSE(WasReleased(1));
}

TEST_F(RequestShare, IsReleasedOnceTheLastRequestLetsGo) {
    for (const int share : {1, 2, 3}) {
        const Request request(server_.Url().c_str(), "", false);
        EXPECT_EQ(Share(), share);
        StartAfresh();
        EXPECT_FALSE(WasReleased(share));
    }
    StartAfresh();
    for (const int share : {1, 2, 3}) {
        EXPECT_TRUE(WasReleased(share));
    }
}

TEST_F(RequestShare, IsReleasedWhenTheLastRequestMovesToTheNewOne) {
    Request request(server_.Url().c_str(), "", false);
    EXPECT_EQ(Share(), 1);
    StartAfresh();
    ASSERT_TRUE(request.Set(server_.Url(), std::string(), false));
    StartAfresh();
    EXPECT_TRUE(WasReleased(1));
}

TEST_F(RequestShare, RemembersNamesUntilTheCacheIsCleaned) {
    WriteHosts("127.0.0.1", {"nas.zz"});
    Request request(server_.Url("/", "nas.zz").c_str(), "", false);
    ASSERT_TRUE(request.Send());
    WriteHosts("127.0.0.77", {"nas.zz"});
    Request other(server_.Url("/", "nas.zz").c_str(), "", false);
    EXPECT_TRUE(other.Send());
    StartAfresh();
    const CapturedLog log;
    Request late(server_.Url("/", "nas.zz").c_str(), "", false);
    EXPECT_FALSE(late.Send());
    EXPECT_EQ(late.GetCurlResult(), CURLE_COULDNT_CONNECT);
}

TEST_F(RequestShare, ReadsTheResolversConfigurationAgain) {
    WriteText("/etc/resolv.conf", "nameserver 192.0.2.1\n");
    Request::CleanDnsCache();
    ASSERT_EQ(_res.nscount, 1);
    EXPECT_EQ(_res.nsaddr_list[0].sin_addr.s_addr, inet_addr("192.0.2.1"));
    WriteText("/etc/resolv.conf", "nameserver 192.0.2.2\n");
    Request::CleanDnsCache();
    EXPECT_EQ(_res.nsaddr_list[0].sin_addr.s_addr, inet_addr("192.0.2.2"));
}

TEST_F(RequestShare, GathersTheCookiesOfTheHost) {
    AnswerWithCookies({"a=1", "b=2; Path=/x"});
    Request request(server_.Url().c_str(), "", false);
    EXPECT_THAT(CookiesOf(request), IsEmpty());
    ASSERT_TRUE(request.Send());
    EXPECT_THAT(CookiesOf(request),
                ElementsAre("127.0.0.1\tFALSE\t/\tFALSE\t0\ta\t1", "127.0.0.1\tFALSE\t/x\tFALSE\t0\tb\t2"));
}

TEST_F(RequestShare, LeavesOutCookiesOfADomainAndOfHttpOnly) {
    WriteHosts("127.0.0.1", {"box.nas.zz"});
    AnswerWithCookies({"a=1; Domain=nas.zz", "b=2; Domain=box.nas.zz", "c=3; HttpOnly", "d=4"});
    Request request(server_.Url("/", "box.nas.zz").c_str(), "", false);
    ASSERT_TRUE(request.Send());
    EXPECT_THAT(CookiesOf(request), ElementsAre("box.nas.zz\tFALSE\t/\tFALSE\t0\td\t4"));
}

TEST_F(RequestShare, GathersCookiesTwiceInTwoTransfers) {
    AnswerWithCookies({"a=1"});
    Request request(server_.Url().c_str(), "", false);
    ASSERT_TRUE(request.Send());
    ASSERT_TRUE(request.Send());
    const std::string line = "127.0.0.1\tFALSE\t/\tFALSE\t0\ta\t1";
    EXPECT_THAT(CookiesOf(request), ElementsAre(line, line));
    ASSERT_TRUE(request.Set(server_.Url(), std::string(), false));
    EXPECT_THAT(CookiesOf(request), SizeIs(2)) << "a set-up does not clear them";
}

TEST_F(RequestShare, GathersCookiesAlsoFromAnAnswerThatIsNoSuccess) {
    server_.On("/", [](const auto&, auto& response) {
        response.status = 404;
        response.set_header("Set-Cookie", "a=1");
    });
    Request request(server_.Url().c_str(), "", false);
    EXPECT_FALSE(request.Send());
    EXPECT_THAT(CookiesOf(request), SizeIs(1));
}

TEST_F(RequestShare, GathersLinesThatBeginWithTheHost) {
    WriteHosts("127.0.0.1", {"nas.zz", "nas.zz.example", "other.zz"});
    AnswerWithCookies({"a=1"});
    for (const auto* host : {"nas.zz.example", "other.zz", "nas.zz"}) {
        Request request(server_.Url("/", host).c_str(), "", false);
        ASSERT_TRUE(request.Send());
        EXPECT_THAT(CookiesOf(request), Each(StartsWith(host))) << host;
        EXPECT_THAT(CookiesOf(request), SizeIs(std::string(host) == "nas.zz" ? 2 : 1)) << host;
    }
}

TEST_F(RequestShare, ComparesTheFirst127BytesOfAHost) {
    const auto start = std::string(60, 'a') + "." + std::string(60, 'b') + ".cccccc";
    ASSERT_EQ(start.size(), 128U);
    const auto first = start.substr(0, 127) + "x.zz";
    const auto second = start.substr(0, 127) + "y.zz";
    const auto third = start.substr(0, 126) + "z.zz";
    WriteHosts("127.0.0.1", {first, second, third});
    AnswerWithCookies({"a=1"});
    for (const auto& [host, count] : {std::pair(first, 1U), std::pair(second, 2U), std::pair(third, 1U)}) {
        Request request(server_.Url("/", host).c_str(), "", false);
        ASSERT_TRUE(request.Send());
        EXPECT_THAT(CookiesOf(request), SizeIs(count)) << host;
    }
}

struct UrlHost {
    const char* url;
    std::size_t lines;
    const char* why;
};

void PrintTo(const UrlHost& host, std::ostream* stream) {
    *stream << host.url;
}

class HostOfAUrl : public RequestShare, public testing::WithParamInterface<UrlHost> {};

TEST_P(HostOfAUrl, DecidesWhichCookiesCount) {
    WriteHosts("127.0.0.1", {"nas.zz"});
    AnswerWithCookies({"a=1"});
    Request giver(server_.Url("/", "nas.zz").c_str(), "", false);
    ASSERT_TRUE(giver.Send());
    Request request(GetParam().url, "", false);
    EXPECT_TRUE(request.SaveCookies()) << "also without any";
    EXPECT_THAT(CookiesOf(request), SizeIs(GetParam().lines)) << GetParam().why;
}

INSTANTIATE_TEST_SUITE_P(RequestShare, HostOfAUrl,
                         testing::Values(UrlHost{"http://nas.zz", 1, "the host alone"},
                                         UrlHost{"http://nas.zz/page", 1, "up to the path"},
                                         UrlHost{"http://nas.zz:80/page", 1, "up to the port"},
                                         UrlHost{"http://nas.zz/a:b", 0, "a colon in the path comes before its slash"},
                                         UrlHost{"http://NAS.zz/", 0, "bytes are compared"},
                                         UrlHost{"http://user@nas.zz/", 0, "what stands before the host belongs to it"},
                                         UrlHost{"http://na", 1, "a beginning fits"},
                                         UrlHost{"x//", 1, "nothing begins every line"}, UrlHost{"x/", 0, "no host"},
                                         UrlHost{"/", 0, "no host"}, UrlHost{"nas.zz", 0, "no slash"}));

TEST_F(RequestShare, ReportsACookieListThatCannotBeHad) {
    Request request(server_.Url().c_str(), "", false);
    faults_.failingInfo[CURLINFO_COOKIELIST] = CURLE_UNKNOWN_OPTION;
    ExpectMessage(3, "request.cpp curl_easy_getinfo failed: 48", [&] { EXPECT_FALSE(request.SaveCookies()); });
    const CapturedLog log;
    EXPECT_TRUE(request.Send()) << "the transfer itself is good";
    EXPECT_EQ(request.GetHttpStatus(), 200);
}

TEST_F(RequestShare, HasNoCookiesWithoutAHandle) {
    Request request(nullptr, nullptr, false);
    const CapturedLog log;
    EXPECT_FALSE(request.SaveCookies());
    std::list<std::string> out = {"as it was"};
    EXPECT_FALSE(request.GetCookies(out));
    EXPECT_THAT(out, ElementsAre("as it was"));
}

TEST_F(RequestShare, ReplacesTheCallersListOfCookies) {
    AnswerWithCookies({"a=1"});
    Request request(server_.Url().c_str(), "", false);
    ASSERT_TRUE(request.Send());
    std::list<std::string> out = {"x", "y", "z"};
    EXPECT_TRUE(request.GetCookies(out));
    EXPECT_THAT(out, ElementsAre(StartsWith("127.0.0.1\t")));
}

TEST_F(RequestShare, SendsTheCookiesOfOneRequestWithTheNext) {
    AnswerWithCookies({"a=1"});
    Request request(server_.Url().c_str(), "", false);
    ASSERT_TRUE(request.Send());
    EXPECT_EQ(CookieHeader(), "");
    Request other(server_.Url().c_str(), "", false);
    ASSERT_TRUE(other.Send());
    EXPECT_EQ(CookieHeader(), "a=1");
    StartAfresh();
    Request late(server_.Url().c_str(), "", false);
    ASSERT_TRUE(late.Send());
    EXPECT_EQ(CookieHeader(), "") << "cookies start afresh with the share";
}

TEST_F(RequestShare, SendsTheProcessCookieWithEachLaterSetUp) {
    Request early(server_.Url().c_str(), "", false);
    EXPECT_TRUE(Request::SetCookie("id=7; x=y"));
    ASSERT_TRUE(early.Send());
    EXPECT_EQ(CookieHeader(), "");
    AnswerWithCookies({"a=1"});
    Request late(server_.Url().c_str(), "", false);
    ASSERT_TRUE(late.Send());
    EXPECT_EQ(CookieHeader(), "id=7; x=y");
    ASSERT_TRUE(late.Send());
    EXPECT_EQ(CookieHeader(), "a=1; id=7; x=y");
    Request::GetCookie() = "";
    ASSERT_TRUE(late.Set(server_.Url(), std::string(), false));
    ASSERT_TRUE(late.Send());
    EXPECT_EQ(CookieHeader(), "a=1");
}

}  // namespace
