// SPDX-License-Identifier: Apache-2.0
// The prober of the other tests: it sees every port that answers, and so finds none open where none is.
#include "integration/tunnel_library_fixture.h"

namespace ardv::test {
namespace {

class TunnelProber : public LibraryTunnelTest {
protected:
    /** Lets whatever comes by the tunnel in, as on a device without a packet filter. */
    static void OpenTheDevice() {
        for (const char* program : {"iptables", "ip6tables"}) {
            RunIn("device", {std::string("/sbin/") + program, "-I", "INPUT", "-i", "tun1000", "-j", "ACCEPT"});
        }
        // Answers to closed UDP ports are rationed otherwise.
        RunIn("device", {"sysctl", "-qw", "net.ipv4.icmp_ratelimit=0", "net.ipv4.icmp_msgs_per_sec=1000000",
                         "net.ipv4.icmp_msgs_burst=1000000", "net.ipv6.icmp.ratelimit=0"});
    }

    static std::size_t Count(const PortAnswers& answers, const std::string& begin, const std::string& end) {
        return static_cast<std::size_t>(std::count_if(answers.begin(), answers.end(), [&](const std::string& answer) {
            return answer.starts_with(begin) && answer.find(end) != std::string::npos;
        }));
    }
};

TEST_F(TunnelProber, SeesEachPortOfAnOpenDevice) {
    BringUp(Candidates({kUdp}));
    OpenTheDevice();
    const auto answers = TryEveryPort(kUdp);
    const auto count = EveryPort().size();
    for (const char* family : {"4", "6"}) {
        EXPECT_EQ(Count(answers, std::string("tcp") + family, " open"), 2U);
        EXPECT_EQ(Count(answers, std::string("tcp") + family, " refused"), count - 2);
        EXPECT_EQ(Count(answers, std::string("udp") + family, " answers"), 1U);
        // OpenVPN's own socket takes what comes without a word.
        EXPECT_GE(Count(answers, std::string("udp") + family, " unreachable"), count - 2);
    }
}

TEST_F(TunnelProber, SeesAPortThatIsOpenForAMoment) {
    BringUp(Candidates({kUdp}));
    PortWatch watch(kUdp.Route(), TellingPorts());
    ASSERT_TRUE(Await([&] { return watch.Rounds() > 50; }));
    const auto rule =
        std::vector<std::string>{"INPUT", "-i", "tun1000", "-p", "tcp", "--dport", "5009", "-j", "ACCEPT"};
    auto insert = rule;
    auto remove = rule;
    insert.insert(insert.begin(), {"/sbin/iptables", "-I"});
    remove.insert(remove.begin(), {"/sbin/iptables", "-D"});
    RunIn("device", insert);
    const auto rounds = watch.Rounds();
    EXPECT_TRUE(Await([&] { return watch.Rounds() >= rounds + 3; }));
    RunIn("device", remove);
    auto expected = OnlyOpen({kPage});
    expected.insert("tcp4 5009 open");
    EXPECT_EQ(watch.End(), expected);
}

}  // namespace
}  // namespace ardv::test
