// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <future>
#include <memory>
#include <string>

#include <ardv/error.h>
#include <ardv/port_mapping.h>

#include "integration/router_port_fixture.h"
#include "support/captured_log.h"
#include "support/program.h"
#include "support/router_network.h"
#include "support/scratch_folder.h"
#include "support/shifted_clock.h"
#include "unit/platform/child_process.h"

namespace {

using ARDV::Platform::Test::ChildProcess;
using ardv::test::AnswerFor;
using ardv::test::AskForAllServices;
using ardv::test::CapturedLog;
using ardv::test::kServices;
using ardv::test::LetPass;
using ardv::test::OpenDescriptors;
using ardv::test::RouterNetwork;
using ardv::test::RouterPortOf;
using ardv::test::RunProgram;
using ardv::test::ServicesLoad;
using ardv::test::UpnpRouter;
using std::chrono::seconds;

class RealRouterPort : public ardv::test::RouterPort {
protected:
    void StartRouter(UpnpRouter::Settings settings = {}) {
        router_.reset();
        router_ = std::make_unique<UpnpRouter>(*network_, settings);
    }

    std::unique_ptr<UpnpRouter> router_;
};

/// With routers of either version, whose lists are read in different ways.
class RouterPortOfVersion : public RealRouterPort, public testing::WithParamInterface<int> {
protected:
    void SetUp() override {
        RealRouterPort::SetUp();
        if (!IsSkipped()) {
            StartRouter({.version = GetParam()});
        }
    }
};

}  // namespace

TEST_P(RouterPortOfVersion, IsThatOfTheMapping) {
    router_->Map(30080, 80);
    router_->Map(31443, 443);
    EXPECT_EQ(AnswerFor(80), 30080);
    EXPECT_EQ(AnswerFor(443), 31443);
}

TEST_P(RouterPortOfVersion, IsZeroWithoutAnyMapping) {
    EXPECT_EQ(AnswerFor(80), 0);
    std::future<int> error = std::async(std::launch::async, [] {
        RouterPortOf(80);
        return ALIBCErrGet();
    });
    EXPECT_EQ(error.get(), ARDV_ERR_NONE);
}

TEST_P(RouterPortOfVersion, IsZeroWhereOnlyOtherPortsAreMapped) {
    router_->Map(80, 8080);
    EXPECT_EQ(AnswerFor(80), 0);
    EXPECT_EQ(AnswerFor(8080), 80);
}

TEST_P(RouterPortOfVersion, IsNotThatOfAnotherDevice) {
    router_->Map(30080, 80, "TCP", "192.168.77.3");
    EXPECT_EQ(AnswerFor(80), 0);
}

TEST_P(RouterPortOfVersion, IsNotThatOfAnotherProtocol) {
    router_->Map(30080, 80, "UDP");
    EXPECT_EQ(AnswerFor(80), 0);
}

TEST_P(RouterPortOfVersion, IsTheFirstInTheRoutersOrder) {
    router_->Map(30080, 80);
    router_->Map(30081, 80);
    const int first = router_->FirstInList(80);
    ASSERT_NE(first, 0);
    EXPECT_EQ(AnswerFor(80), first);
}

TEST_P(RouterPortOfVersion, ServesTheHighestPorts) {
    router_->Map(65535, 65535);
    EXPECT_EQ(AnswerFor(65535), 65535);
}

TEST_P(RouterPortOfVersion, IsFoundForEachOfSeveralMappings) {
    constexpr int kMappings = 5;
    for (int port = 1; port <= kMappings; ++port) {
        router_->Map(31000 + port, port);
    }
    for (int port = 1; port <= kMappings; ++port) {
        EXPECT_EQ(AnswerFor(port), 31000 + port);
    }
}

INSTANTIATE_TEST_SUITE_P(InternetGatewayDevice, RouterPortOfVersion, testing::Values(1, 2),
                         [](const testing::TestParamInfo<int>& version) {
                             return "Version" + std::to_string(version.param);
                         });

TEST_F(RealRouterPort, IsAskedForOnceForAllServices) {
    StartRouter();
    router_->Map(30001, 1);
    EXPECT_EQ(AnswerFor(1), 30001);
    const int connections = network_->Connections();
    const int searches = network_->Searches();
    for (int port = 2; port <= kServices; ++port) {
        EXPECT_EQ(RouterPortOf(port), 0);
    }
    EXPECT_EQ(network_->Connections(), connections);
    EXPECT_EQ(network_->Searches(), searches);
}

TEST_F(RealRouterPort, IsKeptForItsTime) {
    StartRouter();
    EXPECT_EQ(AnswerFor(80), 0);
    router_->Map(30080, 80);
    LetPass(seconds(ARDV_PORT_MAPPING_KEPT_SECONDS - 3));
    EXPECT_EQ(RouterPortOf(80), 0);
    LetPass(seconds(3));
    EXPECT_EQ(AnswerFor(80), 30080);
}

TEST_F(RealRouterPort, IsReadAnewWithoutANewSearch) {
    StartRouter();
    EXPECT_EQ(AnswerFor(80), 0);
    bool isSearchedFor = true;
    constexpr int kAttempts = 5;  // a router that is late, on a busy machine, is searched for
    for (int attempt = 0; isSearchedFor && attempt < kAttempts; ++attempt) {
        const int searches = network_->Searches();
        const int connections = network_->Connections();
        LetPass(seconds(ARDV_PORT_MAPPING_KEPT_SECONDS));
        EXPECT_EQ(AnswerFor(80), 0);
        EXPECT_GT(network_->Connections(), connections);
        isSearchedFor = network_->Searches() > searches;
    }
    EXPECT_FALSE(isSearchedFor);
}

TEST_F(RealRouterPort, IsFoundWhenTheRouterHasMovedItsServer) {
    StartRouter({.port = 5555});
    EXPECT_EQ(AnswerFor(80), 0);
    StartRouter({.port = 5556});
    router_->Map(30080, 80);
    LetPass(seconds(ARDV_PORT_MAPPING_KEPT_SECONDS));
    EXPECT_EQ(AnswerFor(80), 30080);
}

TEST_F(RealRouterPort, IsThatOfTheNewGatewayWithinASecond) {
    StartRouter();
    router_->Map(30080, 80);
    EXPECT_EQ(AnswerFor(80), 30080);
    const RouterNetwork other({.interface = "lan1", .device = "192.168.78.2", .router = "192.168.78.1"});
    const UpnpRouter otherRouter(other, {});
    otherRouter.Map(40080, 80);
    other.BecomeGateway();
    LetPass(seconds(ARDV_PORT_MAPPING_ROUTE_KEPT_SECONDS));
    EXPECT_EQ(AnswerFor(80), 40080);
    network_->BecomeGateway();
    LetPass(seconds(ARDV_PORT_MAPPING_ROUTE_KEPT_SECONDS));
    EXPECT_EQ(AnswerFor(80), 30080);
}

TEST_F(RealRouterPort, IsThatOfTheGatewayWithTheLowestMetric) {
    StartRouter();
    router_->Map(30080, 80);
    const RouterNetwork other({.interface = "lan1", .device = "192.168.78.2", .router = "192.168.78.1"});
    RunProgram({"ip", "route", "del", "default"});
    RunProgram({"ip", "route", "add", "default", "via", "192.168.78.1", "metric", "200"});
    RunProgram({"ip", "route", "add", "default", "via", "192.168.77.1", "metric", "100"});
    EXPECT_EQ(AnswerFor(80), 30080);
    EXPECT_EQ(other.Searches(), 0);
}

TEST_F(RealRouterPort, IsThatOfTheNewAddressWithinASecond) {
    StartRouter();
    router_->Map(30080, 80);
    router_->Map(30081, 80, "TCP", "192.168.77.5");
    EXPECT_EQ(AnswerFor(80), 30080);
    RunProgram({"ip", "address", "del", "192.168.77.2/24", "dev", "lan0"});
    RunProgram({"ip", "address", "add", "192.168.77.5/24", "dev", "lan0"});
    network_->BecomeGateway();
    LetPass(seconds(ARDV_PORT_MAPPING_ROUTE_KEPT_SECONDS));
    EXPECT_EQ(AnswerFor(80), 30081);
}

TEST_F(RealRouterPort, FailsAtOnceWithoutADefaultGateway) {
    StartRouter();
    const int searches = network_->Searches();
    RunProgram({"ip", "route", "del", "default"});
    const ServicesLoad load = AskForAllServices();
    EXPECT_TRUE(load.isUniform);
    EXPECT_EQ(load.answer, -ARDV_ERR_NO_DEVICE);
    EXPECT_EQ(network_->Searches(), searches);
}

TEST_F(RealRouterPort, FailsForAllServicesInLessThanASecondWhereNoRouterAnswers) {
    const ServicesLoad load = AskForAllServices();
    EXPECT_TRUE(load.isUniform);
    EXPECT_EQ(load.answer, -ARDV_ERR_NO_ANSWER);
    EXPECT_LT(load.time.count(), 1.0);
    EXPECT_EQ(network_->Connections(), 0);
}

TEST_F(RealRouterPort, FailsForAllServicesInLessThanASecondWhereAKnownRouterFallsSilent) {
    StartRouter();
    EXPECT_EQ(AnswerFor(80), 0);
    network_->FallSilent();
    LetPass(seconds(ARDV_PORT_MAPPING_KEPT_SECONDS));
    const ServicesLoad load = AskForAllServices();
    EXPECT_TRUE(load.isUniform);
    EXPECT_EQ(load.answer, -ARDV_ERR_NO_ANSWER);
    EXPECT_LT(load.time.count(), 1.0);
}

TEST_F(RealRouterPort, FailsInLessThanASecondWhereTheGatewayIsNotThere) {
    network_->Run({"ip", "link", "set", "lan0r", "down"});
    const ServicesLoad load = AskForAllServices();
    EXPECT_TRUE(load.isUniform);
    EXPECT_LT(load.answer, 0);
    EXPECT_LT(load.time.count(), 1.0);
}

TEST_F(RealRouterPort, IsSearchedForAgainAMinuteAfterNobodyHasAnswered) {
    EXPECT_EQ(RouterPortOf(80), -ARDV_ERR_NO_ANSWER);
    const int searches = network_->Searches();
    EXPECT_GT(searches, 0);
    StartRouter();
    router_->Map(30080, 80);
    LetPass(seconds(ARDV_PORT_MAPPING_ABSENCE_KEPT_SECONDS - 5));
    EXPECT_EQ(RouterPortOf(80), -ARDV_ERR_NO_ANSWER);
    EXPECT_EQ(network_->Searches(), searches);
    LetPass(seconds(5));
    EXPECT_EQ(AnswerFor(80), 30080);
}

TEST_F(RealRouterPort, IsAskedForWithoutAWordOnTheScreen) {
    StartRouter();
    CapturedLog log;
    RouterPortOf(80);
    RunProgram({"ip", "route", "del", "default"});
    RouterPortOf(80);
    EXPECT_EQ(log.Text(), "");
}

TEST_F(RealRouterPort, IsStillGivenWhileTheProcessEnds) {
    StartRouter();
    router_->Map(30080, 80);
    ChildProcess process([] {
        std::atexit([] { _exit(RouterPortOf(80) == 30080 ? 0 : 1); });  // runs after what the first call registers
        AnswerFor(80);
        std::exit(2);
        return 3;
    });
    EXPECT_EQ(process.Wait(), 0);
}

TEST_F(RealRouterPort, LeavesNoDescriptorOpen) {
    StartRouter();
    RouterPortOf(80);
    const std::size_t before = OpenDescriptors();
    LetPass(seconds(ARDV_PORT_MAPPING_KEPT_SECONDS));
    RouterPortOf(80);
    network_->FallSilent();
    LetPass(seconds(ARDV_PORT_MAPPING_KEPT_SECONDS));
    RouterPortOf(80);
    EXPECT_EQ(OpenDescriptors(), before);
}

TEST(RouterPortArguments, AreRefusedWhenTheyMakeNoSense) {
    for (const int port : {0, -1, 65536, 70000}) {
        EXPECT_EQ(RouterPortOf(port), -ARDV_ERR_INVALID_ARGUMENT) << port;
    }
    EXPECT_LT(ALibArdvPortMapGetRouterPort(80, nullptr), 0);
    EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_INVALID_ARGUMENT);
    EXPECT_STREQ(ALIBCErrorGetFile(), "port_mapping.cpp");
}
