// SPDX-License-Identifier: Apache-2.0
#include <ardv/network.h>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/if_tun.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include <ardv/error.h>

#include "made_file.h"
#include "private_network.h"

namespace ARDV::Platform::Test {

namespace {

/// What the kernel tells of the thread's own network.
constexpr const char* kNetFolder = "/proc/thread-self/net";
constexpr const char* kSessions = "/proc/thread-self/net/pppoe";

constexpr const char* kHeading = "Id       Address              Device\n";
constexpr const char* kSession = "0000002A 02:00:5e:00:00:01     eth0\n";

/// An interface of the type that PPP has, between two hosts, running as long as this object lives.
class PppInterface {
public:
    PppInterface(const std::string& name, int hardware = ARPHRD_PPP) : fd_(open("/dev/net/tun", O_RDWR | O_CLOEXEC)) {
        ifreq request{};
        std::strncpy(request.ifr_name, name.c_str(), IFNAMSIZ - 1);
        request.ifr_flags = IFF_TUN | IFF_NO_PI;
        isMade_ = fd_ >= 0 && ioctl(fd_, TUNSETIFF, &request) == 0 && ioctl(fd_, TUNSETLINK, hardware) == 0;
    }
    PppInterface(const PppInterface&) = delete;
    PppInterface& operator=(const PppInterface&) = delete;
    ~PppInterface() { close(fd_); }

    bool IsMade() const { return isMade_; }

private:
    int fd_;
    bool isMade_ = false;
};

struct Info {
    int result;
    std::string ip;
    std::string mask;
    bool operator==(const Info&) const = default;
};

void PrintTo(const Info& info, std::ostream* stream) {
    *stream << info.result << ' ' << info.ip << ' ' << info.mask;
}

Info NetInfo(std::size_t ipSize = 46, std::size_t maskSize = 46) {
    std::string ip(ipSize + 1, 'x');
    std::string mask(maskSize + 1, 'x');
    const int result = ARDVPPPoeNetInfoGet(ip.data(), ipSize, mask.data(), maskSize);
    EXPECT_EQ(ip[ipSize], 'x') << "written past the end";
    EXPECT_EQ(mask[maskSize], 'x') << "written past the end";
    return {result, ip.substr(0, ip.find('\0')), mask.substr(0, mask.find('\0'))};
}

std::string Name(std::size_t size = 128) {
    std::string name(size + 1, 'x');
    const int result = ARDVPPPoeIntfGet(name.data(), size);
    EXPECT_EQ(name[size], 'x') << "written past the end";
    EXPECT_EQ(result == 0, name.front() != '\0');
    return name.substr(0, name.find('\0'));
}

void ExpectNotConnected() {
    EXPECT_EQ(ARDVPPPoECheckStatus(0), 0);
    EXPECT_EQ(NetInfo(), (Info{-1, "", ""}));
    EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_NO_DEVICE);
    EXPECT_EQ(Name(), "");
}

/// A kernel's list of sessions in the place of this one's, and an interface of type PPP with an address. The session is
/// a text because not every kernel has PPP; the interface is a real one.
class Pppoe : public PrivateNetwork {
protected:
    void SetUp() override {
        PrivateNetwork::SetUp();
        if (IsSkipped()) {
            return;
        }
        if (access("/dev/net/tun", R_OK | W_OK) != 0 || mount("tmpfs", kNetFolder, "tmpfs", 0, nullptr) != 0) {
            GTEST_SKIP() << "needs the right to make tunnels and to mount";
        }
        SetSessions(std::string(kHeading) + kSession);
    }

    static void SetSessions(const std::string& text) { WriteText(kSessions, text); }

    static bool Connect(const std::string& name, const std::string& address) {
        return Ip("addr add " + address + " peer 198.51.100.1/32 dev " + name) && Ip("link set " + name + " up");
    }
};

}  // namespace

TEST_F(Pppoe, IsAnInterfaceOfItsTypeWithASessionAndAnAddress) {
    const PppInterface ppp("ppp0");
    ASSERT_TRUE(ppp.IsMade() && Connect("ppp0", "192.0.2.7"));
    EXPECT_EQ(ARDVPPPoECheckStatus(0), 1);
    EXPECT_EQ(NetInfo(), (Info{0, "192.0.2.7", "255.255.255.255"}));
    EXPECT_EQ(Name(), "ppp0");
}

TEST_F(Pppoe, IsNotConnectedWithoutASession) {
    const PppInterface ppp("ppp0");
    ASSERT_TRUE(ppp.IsMade() && Connect("ppp0", "192.0.2.7"));
    SetSessions(kHeading);
    ExpectNotConnected();
    ASSERT_EQ(unlink(kSessions), 0);
    ExpectNotConnected();
}

TEST_F(Pppoe, IsNotConnectedWithoutAnAddress) {
    const PppInterface ppp("ppp0");
    ASSERT_TRUE(ppp.IsMade() && Ip("link set ppp0 up"));
    ExpectNotConnected();
}

TEST_F(Pppoe, IsNotConnectedWhileTheInterfaceIsDown) {
    const PppInterface ppp("ppp0");
    ASSERT_TRUE(ppp.IsMade() && Connect("ppp0", "192.0.2.7") && Ip("link set ppp0 down"));
    ExpectNotConnected();
}

TEST_F(Pppoe, IsNoOtherTunnel) {
    const PppInterface tunnel("ppp0", ARPHRD_NONE);
    ASSERT_TRUE(tunnel.IsMade() && Connect("ppp0", "192.0.2.7"));
    ExpectNotConnected();
}

TEST_F(Pppoe, IsTheConnectedInterfaceOfLowestIndex) {
    const PppInterface idle("ppp7");
    const PppInterface first("ppp9");
    const PppInterface second("ppp1");
    ASSERT_TRUE(idle.IsMade() && first.IsMade() && second.IsMade());
    ASSERT_TRUE(Connect("ppp1", "192.0.2.1") && Connect("ppp9", "192.0.2.9"));
    EXPECT_EQ(Name(), "ppp9");
    EXPECT_EQ(NetInfo().ip, "192.0.2.9");
}

TEST_F(Pppoe, FailsWhereTheSessionsCannotBeRead) {
    ASSERT_EQ(unlink(kSessions), 0);
    ASSERT_EQ(mkdir(kSessions, 0755), 0);
    EXPECT_LT(ARDVPPPoECheckStatus(0), 0);
    EXPECT_NE(ALIBCErrGet(), ARDV_ERR_NONE);
}

TEST_F(Pppoe, IsNeverCut) {
    const PppInterface ppp("ppp0");
    ASSERT_TRUE(ppp.IsMade() && Connect("ppp0", "192.0.2.7"));
    EXPECT_EQ(NetInfo(10, 16), (Info{0, "192.0.2.7", "255.255.255.255"}));
    EXPECT_EQ(NetInfo(9, 16), (Info{-1, "", ""}));
    EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(NetInfo(10, 15), (Info{-1, "", ""}));
    EXPECT_EQ(Name(5), "ppp0");
    EXPECT_EQ(Name(4), "");
}

TEST(PppoeArguments, AreRefusedWhereTheyMakeNoSense) {
    char text[8] = "x";
    for (const int result :
         {ARDVPPPoECheckStatus(1), ARDVPPPoeNetInfoGet(nullptr, 8, text, 8), ARDVPPPoeNetInfoGet(text, 8, nullptr, 8),
          ARDVPPPoeNetInfoGet(text, 8, text, 0), ARDVPPPoeIntfGet(nullptr, 8), ARDVPPPoeIntfGet(text, 0)}) {
        EXPECT_LT(result, 0);
        EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_INVALID_ARGUMENT);
    }
}

}  // namespace ARDV::Platform::Test
