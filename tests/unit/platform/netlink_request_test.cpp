// SPDX-License-Identifier: Apache-2.0
// What the kernel is asked is what it expects: it answers a sloppy question too, but notes it in its log.
#include <ardv/network.h>

#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <sys/socket.h>

#include <array>
#include <string>

#include "private_network.h"
#include "support/real_function.h"

namespace {

bool isKernelStrict = false;
int lenientQuestions = 0;

}  // namespace

// Has the kernel check each question of the library's strictly, and refuse one with anything behind its header.
extern "C" __attribute__((visibility("default"))) ssize_t send(int fd, const void* data, size_t size, int flags) {
    static const auto real = ardv::test::RealFunction<ssize_t (*)(int, const void*, size_t, int)>("send");
    const int on = 1;
    if (isKernelStrict && setsockopt(fd, SOL_NETLINK, NETLINK_GET_STRICT_CHK, &on, sizeof(on)) != 0) {
        ++lenientQuestions;
    }
    return real(fd, data, size, flags);
}

namespace ARDV::Platform::Test {

namespace {

class NetlinkQuestions : public PrivateNetwork {
protected:
    void SetUp() override {
        PrivateNetwork::SetUp();
        isKernelStrict = true;
    }
    void TearDown() override { isKernelStrict = false; }
};

}  // namespace

TEST_F(NetlinkQuestions, AreInOrderForAStrictKernel) {
    std::array<ALIB_NETIF, 4> table{};
    EXPECT_EQ(ALIBNetGetInterfaceInfo(table.data(), static_cast<int>(table.size())), 1);
    std::array<ARDV_IPV6_ADDRESS, 4> addresses{};
    EXPECT_EQ(ARDVLnxV6IPGet("lo", addresses.data(), static_cast<int>(addresses.size())), 1);
    ASSERT_TRUE(Ip("route add default via 127.0.0.2"));
    std::array<char, 20> gateway{};
    EXPECT_EQ(ARDVNetDefaultGatewayGet(gateway.data(), gateway.size()), 0);
    EXPECT_STREQ(gateway.data(), "127.0.0.2");
    if (lenientQuestions > 0) {
        GTEST_SKIP() << "needs a kernel that can be strict (4.20)";
    }
}

}  // namespace ARDV::Platform::Test
