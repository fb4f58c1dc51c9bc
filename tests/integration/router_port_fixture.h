// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>

#include <ardv/error.h>
#include <ardv/port_mapping.h>

#include "support/router_network.h"
#include "support/shifted_clock.h"

namespace ardv::test {

/** How many services a load of the configuration asks for. */
inline constexpr int kServices = 23;

/** The router's port; negative with the error's code on failure, when no port may be given. */
inline int RouterPortOf(int port) {
    int routerPort = -1;
    const int result = ALibArdvPortMapGetRouterPort(port, &routerPort);
    EXPECT_TRUE(result == 0 || (result < 0 && routerPort == 0)) << result << ' ' << routerPort;
    return result < 0 ? -ALIBCErrGet() : routerPort;
}

/** As `RouterPortOf`; asks again when a busy machine let the router's answer come too late. */
inline int AnswerFor(int port) {
    constexpr int kAttempts = 10;
    int answer = RouterPortOf(port);
    for (int attempt = 1; answer == -ARDV_ERR_NO_ANSWER && attempt < kAttempts; ++attempt) {
        LetPass(std::chrono::seconds(ARDV_PORT_MAPPING_ABSENCE_KEPT_SECONDS));
        answer = RouterPortOf(port);
    }
    return answer;
}

/** What all services together take: how long, and whether all had the same answer. */
struct ServicesLoad {
    std::chrono::duration<double> time{};
    bool isUniform = true;
    int answer = 0;
};

inline ServicesLoad AskForAllServices() {
    const auto start = std::chrono::steady_clock::now();
    ServicesLoad load;
    load.answer = RouterPortOf(1);
    for (int port = 2; port <= kServices; ++port) {
        load.isUniform = load.isUniform && RouterPortOf(port) == load.answer;
    }
    load.time = std::chrono::steady_clock::now() - start;
    return load;
}

/** A device behind a router, which is silent as long as the test starts none. */
class RouterPort : public testing::Test {
protected:
    void SetUp() override {
        const std::string reason = RouterNetwork::WhyNot();
        if (!reason.empty()) {
            GTEST_SKIP() << reason;
        }
        network_ = std::make_unique<RouterNetwork>();
        network_->BecomeGateway();
    }

    std::unique_ptr<RouterNetwork> network_;
};

}  // namespace ardv::test
