// SPDX-License-Identifier: Apache-2.0
#include <relay/common/vocabulary.h>

#include <cstdint>
#include <iterator>
#include <limits>
#include <map>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "support/device_test.h"

namespace ARDV::Relay {

namespace {

using Words = std::map<std::int32_t, std::string>;

const Words kStates = {{1, "not_running"}, {2, "starting"},  {3, "login"},  {4, "direct_connect"},
                       {5, "connected"},   {6, "connected"}, {7, "logout"}, {8, "stoped"}};

const Words kResults = {{0, "success"},
                        {3, "err_config"},
                        {5, "err_register"},
                        {6, "err_network"},
                        {7, "err_resolv"},
                        {8, "err_auth"},
                        {9, "err_not_support"},
                        {10, "err_server_busy"},
                        {11, "err_lock"},
                        {12, "err_server_limit"},
                        {13, "err_server_changed"},
                        {14, "err_server_ip_changed"},
                        {15, "err_api_key_expired"},
                        {30, "err_violation"},
                        {255, "err_unknown"}};

const Words kServerErrors = {{0, "SUCCESS"},         {1, "UNKNOWN"},        {2, "AUTH"},
                             {3, "NO_SUCH_API"},     {4, "NO_SUCH_SERV"},   {5, "NOT_SUPPORTED_VERSION"},
                             {6, "SESSION_TIMEOUT"}, {7, "HAS_TUNNEL"},     {8, "TL_FAIL"},
                             {9, "INPUT"},           {10, "DDNS_OCCUPIED"}, {11, "SERVER_LIMIT"},
                             {13, "SERVER_CHANGED"}, {14, "IP_CHANGED"},    {15, "API_KEY_EXPIRED"}};

const std::map<std::int32_t, std::int32_t> kErrorResults = {{0, 0},  {1, 255}, {2, 8},   {6, 8},   {7, 255}, {8, 255},
                                                            {10, 8}, {11, 12}, {13, 13}, {14, 14}, {15, 15}, {30, 30}};

/** Every number that has a word, those around them, and the ends of the range. */
std::vector<std::int32_t> Numbers() {
    std::vector<std::int32_t> numbers = {std::numeric_limits<std::int32_t>::min(),
                                         std::numeric_limits<std::int32_t>::max()};
    for (std::int32_t number = -300; number <= 600; ++number) {
        numbers.push_back(number);
    }
    return numbers;
}

template <typename Map, typename Value>
Value Or(const Map& map, std::int32_t number, Value other) {
    const auto found = map.find(number);
    return found == map.end() ? other : Value(found->second);
}

TEST(Vocabulary, StatesHaveTheirTextsAndAllOtherNumbersAreErrors) {
    for (const auto number : Numbers()) {
        EXPECT_EQ(GetStateStr(static_cast<RELAYD_STATE>(number)), Or(kStates, number, std::string("error"))) << number;
    }
}

TEST(Vocabulary, ResultsHaveTheirTextsAndAllOtherNumbersAreUnknown) {
    for (const auto number : Numbers()) {
        EXPECT_EQ(GetErrorStr(static_cast<RELAYD_RET>(number)), Or(kResults, number, std::string("err_unknown")))
            << number;
    }
}

TEST(Vocabulary, ServerErrorsHaveTheirNamesAndAllOtherNumbersSayThemselves) {
    for (const auto number : Numbers()) {
        const auto other = "(unknown errno: " + std::to_string(number) + ")";
        EXPECT_EQ(GetServerErrorStr(static_cast<RELAYSERVER_ERR>(number)), Or(kServerErrors, number, other));
    }
}

TEST(Vocabulary, ServerErrorsMapToResultsAndAllOtherNumbersAreNotSupported) {
    for (const auto number : Numbers()) {
        EXPECT_EQ(RespErrMap(static_cast<RELAYSERVER_ERR>(number)), Or(kErrorResults, number, 9)) << number;
    }
}

TEST(Vocabulary, EnumeratorsHaveTheNumbersThatPeersShare) {
    const std::vector<std::pair<int, int>> numbers = {
        {RELAYD_STATE_NONE, 0},
        {RELAYD_STATE_NOT_RUNNING, 1},
        {RELAYD_STATE_STARTING, 2},
        {RELAYD_STATE_LOGIN, 3},
        {RELAYD_STATE_DIRECT_CONNECT, 4},
        {RELAYD_STATE_CONNECTED, 5},
        {RELAYD_STATE_CONNECTED_RELAY, 6},
        {RELAYD_STATE_LOGOUT, 7},
        {RELAYD_STATE_STOPPED, 8},
        {RELAYD_RET_SUCCESS, 0},
        {RELAYD_RET_ERR_CONFIG, 3},
        {RELAYD_RET_ERR_REGISTER, 5},
        {RELAYD_RET_ERR_NETWORK, 6},
        {RELAYD_RET_ERR_RESOLV, 7},
        {RELAYD_RET_ERR_AUTH, 8},
        {RELAYD_RET_ERR_NOT_SUPPORT, 9},
        {RELAYD_RET_ERR_SERVER_BUSY, 10},
        {RELAYD_RET_ERR_LOCK, 11},
        {RELAYD_RET_ERR_SERVER_LIMIT, 12},
        {RELAYD_RET_ERR_SERVER_CHANGED, 13},
        {RELAYD_RET_ERR_SERVER_IP_CHANGED, 14},
        {RELAYD_RET_ERR_API_KEY_EXPIRED, 15},
        {RELAYD_RET_ERR_VIOLATION, 30},
        {RELAYD_RET_ERR_UNKNOWN, 255},
        {RELAYSERVER_ERR_SUCCESS, 0},
        {RELAYSERVER_ERR_UNKNOWN, 1},
        {RELAYSERVER_ERR_AUTH, 2},
        {RELAYSERVER_ERR_NO_SUCH_API, 3},
        {RELAYSERVER_ERR_NO_SUCH_SERV, 4},
        {RELAYSERVER_ERR_NOT_SUPPORTED_VERSION, 5},
        {RELAYSERVER_ERR_SESSION_TIMEOUT, 6},
        {RELAYSERVER_ERR_HAS_TUNNEL, 7},
        {RELAYSERVER_ERR_TL_FAIL, 8},
        {RELAYSERVER_ERR_INPUT, 9},
        {RELAYSERVER_ERR_DDNS_OCCUPIED, 10},
        {RELAYSERVER_ERR_SERVER_LIMIT, 11},
        {RELAYSERVER_ERR_SERVER_CHANGED, 13},
        {RELAYSERVER_ERR_IP_CHANGED, 14},
        {RELAYSERVER_ERR_API_KEY_EXPIRED, 15},
        {RELAYSERVER_ERR_VIOLATION, 30},
    };
    for (const auto& [enumerator, number] : numbers) {
        EXPECT_EQ(enumerator, number);
    }
}

template <typename Enumeration>
constexpr bool kIsSigned32 = std::is_same_v<std::underlying_type_t<Enumeration>, std::int32_t>;

TEST(Vocabulary, EnumerationsAreSigned32BitNumbers) {
    EXPECT_TRUE(kIsSigned32<RELAYD_STATE> && kIsSigned32<RELAYD_RET> && kIsSigned32<RELAYSERVER_ERR>);
    EXPECT_TRUE(kIsSigned32<ALIAS_RET> && kIsSigned32<ALIAS_RETRY_TYPE>);
}

TEST(AliasResultTable, HasItsRowsInOrder) {
    const struct {
        int ret;
        int retryType;
        const char* status;
        const char* reply;
    } rows[] = {{1, 2, "success", "good"},
                {9, 2, "error_911", "911"},
                {4, 2, "error_system", "badsys"},
                {6, 2, "error_network", ""},
                {7, 1, "error_dns", ""},
                {10, 2, "error_server_busy", ""},
                {8, 3, "error_auth", "badauth"},
                {11, 3, "error_bad_ip", "badip"},
                {2, 2, "error_not_found", "alias_not_found"},
                {3, 3, "error_inused", "alias_inused"},
                {12, 3, "error_self_inused", "alias_self_inused"},
                {5, 2, "error_bad_param", "badparam"},
                {255, 2, "error_unknown", ""},
                {14, 2, "error_api_key_expired", "api_key_expired"},
                {13, 0, "not_set", ""},
                {30, 3, "error_violation", "violation"},
                {0, 0, "", ""}};
    ASSERT_EQ(std::size(gRetMapper), std::size(rows));
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        EXPECT_EQ(gRetMapper[i].ret, rows[i].ret) << i;
        EXPECT_EQ(gRetMapper[i].retryType, rows[i].retryType) << i;
        EXPECT_EQ(gRetMapper[i].status, rows[i].status) << i;
        EXPECT_EQ(gRetMapper[i].reply, rows[i].reply) << i;
    }
}

class ServerAnswer : public testing::TestWithParam<std::pair<const char*, int>> {};

TEST_P(ServerAnswer, CarriesAnErrorNumberOrIsUnknown) {
    const auto& [answer, number] = GetParam();
    EXPECT_EQ(ParseServerError(ardv::test::JsonOf(answer)), number);
}

INSTANTIATE_TEST_SUITE_P(
    Answers, ServerAnswer,
    testing::Values(std::pair(R"({"errno":0})", 0), std::pair(R"({"errno":6,"error":2})", 6),
                    std::pair(R"({"errno":99})", 99), std::pair(R"({"errno":-7})", -7),
                    std::pair(R"({"errno":2147483647})", 2147483647), std::pair(R"({"errno":2147483648})", 1),
                    std::pair(R"({"errno":"5"})", 1), std::pair(R"({"errno":5.0})", 1),
                    std::pair(R"({"errno":6.5})", 1), std::pair(R"({"errno":true})", 1),
                    std::pair(R"({"errno":null})", 1), std::pair(R"({"errno":[6]})", 1),
                    std::pair(R"({"errno":{"errno":6}})", 1), std::pair(R"({"Errno":6})", 1), std::pair("{}", 1),
                    std::pair(R"({"error":{"code":2}})", 1), std::pair(R"([{"errno":6}])", 6),
                    std::pair(R"([{"errno":6},{"errno":7}])", 6), std::pair(R"([{"errno":6.0}])", 1),
                    std::pair(R"([{"errno":"6"}])", 1), std::pair(R"([1,{"errno":6}])", 1), std::pair("[6]", 1),
                    std::pair(R"([[{"errno":6}]])", 1), std::pair(R"([null])", 1), std::pair("[]", 1),
                    std::pair("null", 1), std::pair("6", 1), std::pair("\"errno\"", 1), std::pair("true", 1)));

}  // namespace

}  // namespace ARDV::Relay
