// SPDX-License-Identifier: Apache-2.0
#include <malloc.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <relay/request/request.h>

#include "support/curl_faults.h"

using namespace ardv::test;
using ARDV::Relay::Request;

namespace {

constexpr std::size_t kMost = Request::kMaxResponseSize;
constexpr std::size_t kNoEnd = std::numeric_limits<std::size_t>::max();

/** Plays libcurl: hands what it received to the function that a request gave it. */
class RequestBody : public testing::Test {
protected:
    RequestBody() { EXPECT_TRUE(request_.Set("http://127.0.0.1:9/", std::string(), false)); }

    std::size_t Hand(const char* bytes, std::size_t size, std::size_t count) const {
        using Receive = std::size_t (*)(const char*, std::size_t, std::size_t, void*);
        const auto receive = reinterpret_cast<Receive>(const_cast<void*>(faults_.Last(CURLOPT_WRITEFUNCTION)->pointer));
        return receive(bytes, size, count, const_cast<void*>(faults_.Last(CURLOPT_WRITEDATA)->pointer));
    }

    const std::string& Body() const {
        return *static_cast<const std::string*>(faults_.Last(CURLOPT_WRITEDATA)->pointer);
    }

    CurlFaults faults_;
    Request request_{nullptr, nullptr, false};
};

TEST_F(RequestBody, IsTakenPieceByPiece) {
    EXPECT_EQ(Hand("abc", 1, 3), 3U);
    EXPECT_EQ(Hand("defghi", 2, 3), 6U);
    EXPECT_EQ(Hand("", 1, 0), 0U);
    EXPECT_EQ(Hand("", 0, 5), 0U);
    EXPECT_EQ(Body(), "abcdefghi");
}

TEST_F(RequestBody, RefusesLengthsThatOverflow) {
    const std::pair<std::size_t, std::size_t> cases[] = {
        {kNoEnd, 2},         {2, kNoEnd}, {kNoEnd, kNoEnd}, {std::size_t{1} << 32U, std::size_t{1} << 32U},
        {kNoEnd / 2 + 1, 2}, {1, kNoEnd}, {kNoEnd, 1},      {1, kMost + 1},
        {kMost + 1, 1}};
    for (const auto& [size, count] : cases) {
        EXPECT_EQ(Hand("abc", size, count), 0U) << size << " x " << count;
    }
    EXPECT_EQ(Body(), "") << "not a byte was read";
}

TEST_F(RequestBody, EndsAtSixteenMebibytes) {
    const std::string half(kMost / 2, 'x');
    EXPECT_EQ(Hand(half.data(), 1, half.size()), half.size());
    EXPECT_EQ(Hand(half.data(), 1, half.size() - 1), half.size() - 1);
    EXPECT_EQ(Hand("ab", 1, 2), 0U);
    EXPECT_EQ(Hand("a", 1, 1), 1U);
    EXPECT_EQ(Hand("b", 1, 1), 0U);
    EXPECT_EQ(Body().size(), kMost);
}

TEST_F(RequestBody, SetUpsOfOneRequestDoNotAddUpInMemory) {
    const auto setUp = [this](int times) {
        for (int i = 0; i < times; ++i) {
            request_.Set("http://127.0.0.1:9/", std::string("a=1"), true);
            faults_.calls.clear();
        }
    };
    setUp(100);
    const auto before = mallinfo2().uordblks;
    setUp(2000);
    EXPECT_LT(mallinfo2().uordblks, before + 10'000) << "five bytes for each set-up";
}

}  // namespace
