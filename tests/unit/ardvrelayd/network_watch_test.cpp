// SPDX-License-Identifier: Apache-2.0
#include "network_watch.h"

#include <fcntl.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/program.h"
#include "support/scratch_folder.h"
#include "unit/ardvrelayd/daemon_loop.h"

using namespace ardv::test;
using namespace ardv::daemon;
using namespace std::chrono_literals;
using std::chrono::steady_clock;

namespace {

constexpr NetworkPace kPace = {100ms, 400ms};

/** The network is that of the test's own namespace: loopback, which is up, and what the test adds. */
class NetworkChanges : public testing::Test {
protected:
    void SetUp() override { Ip("link set lo up"); }

    static void Ip(const std::string& arguments) {
        std::vector<std::string> command = {"ip"};
        std::istringstream words(arguments);
        for (std::string word; words >> word;) {
            command.push_back(word);
        }
        const auto result = RunProgram(command);
        EXPECT_EQ(result.exitCode, 0) << arguments << ": " << result.err;
    }

    /** Begins to watch, and lets the kernel finish what the test has begun: an address is made ready a moment after it was added. */
    void Watch(NetworkPace pace = kPace) {
        watch_ = std::make_unique<NetworkWatch>(
            loop_, [this] { ++calls_; }, pace);
        RunFor(loop_, 3 * kPace.quiet);
        calls_ = 0;
    }

    /** How often a change is told. */
    int CallsAfter(const std::string& arguments) {
        const int before = calls_;
        Ip(arguments);
        RunFor(loop_, 3 * kPace.quiet);
        return calls_ - before;
    }

    EventLoop loop_;
    std::unique_ptr<NetworkWatch> watch_;
    int calls_ = 0;
};

}  // namespace

TEST_F(NetworkChanges, AreTold) {
    Watch();
    EXPECT_EQ(CallsAfter("address add 192.0.2.1/32 dev lo"), 1);
    EXPECT_EQ(CallsAfter("-6 address add 2001:db8::1/128 dev lo nodad"), 1);
    EXPECT_EQ(CallsAfter("route add 198.51.100.0/24 dev lo"), 1);
    EXPECT_EQ(CallsAfter("route replace 198.51.100.0/24 dev lo src 192.0.2.1"), 1);
    EXPECT_EQ(CallsAfter("-6 route add 2001:db8:1::/48 dev lo"), 1);
    EXPECT_EQ(CallsAfter("route del 198.51.100.0/24 dev lo"), 1);
    EXPECT_EQ(CallsAfter("address del 192.0.2.1/32 dev lo"), 1);
    EXPECT_EQ(CallsAfter("link set lo mtu 1400"), 1);
    EXPECT_EQ(CallsAfter("link set lo down"), 1);
    EXPECT_EQ(CallsAfter("link set lo up"), 1);
}

TEST_F(NetworkChanges, AreNotWhatThereIsAtFirst) {
    const NetworkWatch watch(
        loop_, [this] { ++calls_; }, kPace);
    RunFor(loop_, 3 * kPace.quiet);
    EXPECT_EQ(calls_, 0);
}

TEST_F(NetworkChanges, ThatComeTogetherAreToldOnce) {
    Watch();
    for (int i = 1; i < 6; ++i) {
        Ip("address add 192.0.2." + std::to_string(i) + "/32 dev lo");
    }
    RunFor(loop_, 500ms);
    EXPECT_EQ(calls_, 1);
}

TEST_F(NetworkChanges, AreToldOnceNothingMoreHasHappenedForAWhile) {
    steady_clock::time_point told;
    NetworkWatch watch(loop_, [&] {
        told = steady_clock::now();
        loop_.Stop();
    });
    Ip("address add 192.0.2.1/32 dev lo");
    RunFor(loop_, 1s);
    Ip("address add 192.0.2.2/32 dev lo");
    const auto last = steady_clock::now();
    ASSERT_TRUE(RunUntilStopped(loop_));
    EXPECT_GE(told - last, 2s - 100ms);
    EXPECT_LT(told - last, 3s);
}

TEST_F(NetworkChanges, ThatNeverEndAreToldAfterAllPatience) {
    Watch();
    const auto start = steady_clock::now();
    std::vector<steady_clock::time_point> told;
    watch_ = std::make_unique<NetworkWatch>(
        loop_, [&] { told.push_back(steady_clock::now()); }, kPace);
    int count = 0;
    Timer flapping(loop_, "flapping", [] {});
    std::function<void()> flap = [&] {
        Ip(std::string("address ") + (++count % 2 == 0 ? "del" : "add") + " 192.0.2.1/32 dev lo");
    };
    Timer again(loop_, "again", [&] {
        flap();
        again.Start(20ms);
    });
    again.Start(0ms);
    RunFor(loop_, 1000ms);
    ASSERT_GE(told.size(), 1U);
    ASSERT_LE(told.size(), 3U);
    EXPECT_GE(told[0] - start, kPace.patience);
    EXPECT_LT(told[0] - start, kPace.patience + 200ms);
}

TEST_F(NetworkChanges, AreNoneWhereAnAddressIsMerelyRenewed) {
    Ip("-6 address add 2001:db8::1/64 dev lo nodad valid_lft 3000 preferred_lft 2000");
    Ip("address add 192.0.2.1/32 dev lo valid_lft 3000 preferred_lft 2000");
    Watch();
    const auto turns = loop_.Turns();
    EXPECT_EQ(CallsAfter("-6 address change 2001:db8::1/64 dev lo nodad valid_lft 4000 preferred_lft 3000"), 0)
        << "known since before the watch";
    EXPECT_EQ(CallsAfter("address change 192.0.2.1/32 dev lo valid_lft 4000 preferred_lft 3000"), 0);
    EXPECT_GE(loop_.Turns() - turns, 4U) << "the kernel did report them";
    EXPECT_EQ(CallsAfter("-6 address add 2001:db8::2/64 dev lo nodad valid_lft 3000 preferred_lft 2000"), 1);
    EXPECT_EQ(CallsAfter("-6 address change 2001:db8::2/64 dev lo nodad valid_lft 4000 preferred_lft 3000"), 0)
        << "known by its report";
    EXPECT_EQ(CallsAfter("-6 address change 2001:db8::2/64 dev lo nodad valid_lft 4000 preferred_lft 0"), 1)
        << "it is deprecated now";
}

TEST_F(NetworkChanges, AreNoneWhereARouteIsMerelyRenewed) {
    Ip("-6 route add 2001:db8:1::/48 dev lo expires 1000");
    Watch();
    EXPECT_EQ(CallsAfter("-6 route replace 2001:db8:1::/48 dev lo expires 2000"), 0);
    EXPECT_EQ(CallsAfter("-6 route del 2001:db8:1::/48 dev lo"), 1);
    EXPECT_EQ(CallsAfter("-6 route add 2001:db8:1::/48 dev lo expires 1000"), 1);
}

TEST_F(NetworkChanges, AreNoneWhereTheTunnelComesAndGoes) {
    if (RunProgram({"ip", "tuntap", "add", "dev", "tun9", "mode", "tun"}).exitCode != 0) {
        GTEST_SKIP() << "this machine has no tunnel interfaces";
    }
    Watch();
    const auto turns = loop_.Turns();
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(CallsAfter("tuntap add dev tun1000 mode tun"), 0);
        EXPECT_EQ(CallsAfter("address add 10.8.0.2/24 dev tun1000"), 0);
        EXPECT_EQ(CallsAfter("-6 address add fd78::2/64 dev tun1000 nodad"), 0);
        EXPECT_EQ(CallsAfter("link set tun1000 up mtu 1400"), 0);
        EXPECT_EQ(CallsAfter("route add 198.51.100.0/24 dev tun1000"), 0);
        EXPECT_EQ(CallsAfter("-6 route add 2001:db8:1::/48 dev tun1000"), 0);
        EXPECT_EQ(CallsAfter("-6 address del fd78::2/64 dev tun1000"), 0);
        EXPECT_EQ(CallsAfter("tuntap del dev tun1000 mode tun"), 0);
    }
    EXPECT_GE(loop_.Turns() - turns, 16U) << "the kernel did report them";
    EXPECT_EQ(CallsAfter("link set tun9 up"), 1) << "which is another tunnel";
    EXPECT_EQ(CallsAfter("address add 10.8.0.2/24 dev tun9"), 1);
    EXPECT_EQ(CallsAfter("tuntap del dev tun9 mode tun"), 1);
}

TEST_F(NetworkChanges, AreNoneOfATunnelThatWasThereBefore) {
    if (RunProgram({"ip", "tuntap", "add", "dev", "tun1000", "mode", "tun"}).exitCode != 0) {
        GTEST_SKIP() << "this machine has no tunnel interfaces";
    }
    Watch();
    EXPECT_EQ(CallsAfter("address add 10.8.0.2/24 dev tun1000"), 0);
    EXPECT_EQ(CallsAfter("tuntap del dev tun1000 mode tun"), 0);
}

TEST_F(NetworkChanges, AreToldWhereAnInterfaceGetsTheTunnelsNameOrLosesIt) {
    if (RunProgram({"ip", "tuntap", "add", "dev", "tun9", "mode", "tun"}).exitCode != 0) {
        GTEST_SKIP() << "this machine has no tunnel interfaces";
    }
    Watch();
    EXPECT_EQ(CallsAfter("link set tun9 name tun1000"), 1);
    EXPECT_EQ(CallsAfter("address add 10.8.0.2/24 dev tun1000"), 0);
    EXPECT_EQ(CallsAfter("link set tun1000 name tun9"), 1);
    EXPECT_EQ(CallsAfter("address del 10.8.0.2/24 dev tun9"), 1);
}

TEST_F(NetworkChanges, ThatWereLostAreToldAsOne) {
    Ip("address add 192.0.2.1/32 dev lo valid_lft 3000 preferred_lft 2000");
    Watch();
    std::string batch;
    for (int i = 0; i < 3000; ++i) {
        batch += "address change 192.0.2.1/32 dev lo valid_lft 4000 preferred_lft 3000\n";
    }
    ASSERT_EQ(RunProgram({"ip", "-batch", "-"}, batch).exitCode, 0);
    RunFor(loop_, 500ms);
    EXPECT_EQ(calls_, 1) << "none of these is news, but some were lost";
    EXPECT_EQ(CallsAfter("address change 192.0.2.1/32 dev lo valid_lft 3000 preferred_lft 2000"), 0)
        << "what there is was asked for again";
    ASSERT_EQ(RunProgram({"ip", "-batch", "-"}, batch + "address del 192.0.2.1/32 dev lo\n").exitCode, 0);
    RunFor(loop_, 500ms);
    EXPECT_EQ(calls_, 2);
    EXPECT_EQ(CallsAfter("address add 192.0.2.1/32 dev lo valid_lft 3000 preferred_lft 2000"), 1)
        << "that it had gone was lost";
}

TEST_F(NetworkChanges, AreBelievedFromTheKernelAlone) {
    Watch();
    struct {
        nlmsghdr head;
        ifaddrmsg address;
    } message = {};
    message.head.nlmsg_len = sizeof message;
    message.head.nlmsg_type = RTM_NEWADDR;
    sockaddr_nl watcher = {};
    watcher.nl_family = AF_NETLINK;
    watcher.nl_pid = static_cast<std::uint32_t>(getpid());  // of a process's first netlink socket
    const int fd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    EXPECT_EQ(sendto(fd, &message, sizeof message, 0, reinterpret_cast<const sockaddr*>(&watcher), sizeof watcher),
              static_cast<ssize_t>(sizeof message));
    const auto turns = loop_.Turns();
    RunFor(loop_, 300ms);
    close(fd);
    EXPECT_EQ(loop_.Turns() - turns, 2U) << "it did arrive";
    EXPECT_EQ(calls_, 0);
}

TEST_F(NetworkChanges, LetTheLoopSleepWhileThereAreNone) {
    Watch();
    const auto turns = loop_.Turns();
    RunFor(loop_, 500ms);
    EXPECT_EQ(loop_.Turns() - turns, 1U);
}

TEST_F(NetworkChanges, MayEndTheirWatch) {
    const auto before = OpenDescriptors();
    std::unique_ptr<NetworkWatch> watch;
    watch = std::make_unique<NetworkWatch>(
        loop_,
        [&] {
            watch.reset();
            loop_.Stop();
        },
        kPace);
    Ip("address add 192.0.2.1/32 dev lo");
    ASSERT_TRUE(RunUntilStopped(loop_));
    EXPECT_EQ(loop_.Watches(), 0U);
    EXPECT_EQ(OpenDescriptors(), before);
}
