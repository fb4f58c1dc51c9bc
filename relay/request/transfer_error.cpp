// SPDX-License-Identifier: Apache-2.0
#include <relay/request/transfer_error.h>

#include <algorithm>
#include <iterator>
#include <utility>

namespace ARDV::Relay::Curl {

namespace {

constexpr CURLcode kNetworkErrors[] = {
    CURLE_COULDNT_CONNECT, CURLE_OPERATION_TIMEDOUT, CURLE_SSL_CONNECT_ERROR,
    CURLE_SEND_ERROR,      CURLE_RECV_ERROR,         CURLE_AGAIN,
};

}  // namespace

bool IsNetworkError(CURLcode code) {
    return std::find(std::begin(kNetworkErrors), std::end(kNetworkErrors), code) != std::end(kNetworkErrors);
}

bool FailureRun::IsNew(CURLcode code) {
    return std::exchange(last_, code) != code;
}

}  // namespace ARDV::Relay::Curl
