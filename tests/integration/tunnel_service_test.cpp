// SPDX-License-Identifier: Apache-2.0
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/file_text.h"
#include "support/process.h"
#include "support/program.h"
#include "support/systemd_box.h"

namespace ardv::test {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using testing::HasSubstr;

constexpr const char kDevice[] = "/dev/net/tun";
constexpr const char kInfo[] = "/tmp/.ardv_tethra_tunnel_info";
constexpr uid_t kStranger = 12345;
constexpr const char kLog[] = "/run/tunnel-test.log";
constexpr const char kDaemon[] = "/usr/local/sbin/tunnel-test";
constexpr const char kDaemonFolder[] = "/usr/ardv/etc.defaults/ardvrelayd/scripts/";
constexpr const char kClientFolder[] = "/usr/ardv/etc.defaults/ardvvpnclient/scripts/";

/** The way of a tunnel, without a relay: what a daemon does, the filter before and after, and what the scripts leave. */
constexpr const char kWay[] = R"(
set -u
ovpnc=/usr/ardv/etc.defaults/ardvvpnclient/scripts/ovpnc.sh
scripts=/usr/ardv/etc.defaults/ardvrelayd/scripts
info=/tmp/.ardv_tethra_tunnel_info
rules() { echo "$1"; /sbin/iptables -S; /sbin/ip6tables -S; }
told=
trap 'told=yes' USR2
$ovpnc load tethraa-tunnel || echo "load failed"
rules loaded
/usr/sbin/openvpn --dev tun1000 --dev-type tun --ifconfig 10.8.0.2 10.8.0.1 --script-security 2 --up "$scripts/up.sh $$" \
    --down $scripts/down.sh --verb 3 --log-append /var/log/openvpn.log &
child=$!
tries=0
while [ -z "$told" ] && [ $tries -lt 200 ]; do sleep 0.05; tries=$((tries + 1)); done
echo "told: $told"
grep -E '^(dev|local_ip)=' $info
grep -qx "openvpn_pid=\"$child\"" $info && echo "of this child"
$ovpnc unload tethraa-tunnel || echo "unload failed"
rules "while it is up"
kill -TERM $child
wait $child
echo "ended: $?"
[ -e $info ] || echo "no file"
$ovpnc unload tethraa-tunnel || echo "unload failed"
rules unloaded
)";

/** A daemon that opens the device only once another has brought it about. */
constexpr const char kLateDevice[] = R"(
echo waiting
tries=0
while [ ! -c /dev/net/tun ] && [ $tries -lt 200 ]; do sleep 0.05; tries=$((tries + 1)); done
(: <>/dev/net/tun) && echo opened
)";

/** A daemon that opens what it has no need of. */
constexpr const char kOtherDevice[] = "(: <>/dev/net/other) || echo refused\n(: <>/dev/net/tun) && echo opened\n";

/** The unit with all of its walls, for a shell's words in the daemon's place. */
std::string WalledUnit() {
    std::istringstream unit(ReadText(ARDV_DAEMON_UNIT));
    std::string text = "[Unit]\nDefaultDependencies=no\n";
    bool isService = false;
    for (std::string line; std::getline(unit, line);) {
        if (line.starts_with('[')) {
            isService = line == "[Service]";
        }
        bool isRunning = false;  // how it is run, rather than within which walls
        for (const std::string_view start : {"Type=", "PIDFile=", "Exec", "Restart", "TimeoutStopSec="}) {
            isRunning = isRunning || line.starts_with(start);
        }
        if (isService && !isRunning) {
            text += line + "\n";
        }
    }
    EXPECT_THAT(text, HasSubstr("CapabilityBoundingSet="));
    return text + "Type=oneshot\nTimeoutStartSec=60\nStandardOutput=file:" + kLog +
           "\nStandardError=inherit\nExecStart=/bin/sh " + kDaemon + "\n";
}

void MakeNode(const char* path, unsigned number) {
    constexpr unsigned kMisc = 10;
    ASSERT_EQ(mknod(path, S_IFCHR | 0600, makedev(kMisc, number)), 0) << std::strerror(errno);
}

class TunnelService : public testing::Test {
protected:
    void SetUp() override {
        std::string reason = SystemdBox::WhyNot();
        if (reason.empty() && access("/usr/sbin/openvpn", X_OK) != 0) {
            reason = "OpenVPN isn't installed";
        }
        if (reason.empty() && access(kDevice, R_OK | W_OK) != 0) {
            reason = std::string("needs ") + kDevice;
        }
        if (!reason.empty()) {
            GTEST_SKIP() << reason;
        }
        for (const auto& [source, folder] :
             {std::pair(ARDV_UP_SCRIPT, kDaemonFolder), std::pair(ARDV_DOWN_SCRIPT, kDaemonFolder),
              std::pair(ARDV_OVPNC_SCRIPT, kClientFolder)}) {
            fs::create_directories(folder);
            fs::copy_file(source, folder + fs::path(source).filename().string(), fs::copy_options::overwrite_existing);
        }
        fs::create_directories("/usr/ardv/etc/ardvrelayd");
    }

    /** Runs a shell's words within the walls, and gives what they wrote. */
    std::string Run(const std::string& words) {
        Begin(words);
        Await();
        return ReadText(kLog);
    }

    void Begin(const std::string& words) {
        WriteText(kDaemon, words);
        box_ = std::make_unique<SystemdBox>();
        box_->AddUnit("tunnel-test.service", WalledUnit());
        start_ = Spawn({"/usr/bin/env", "SYSTEMCTL_FORCE_BUS=1", "systemctl", "start", "tunnel-test.service"},
                       "/run/start.log");
    }

    void Await() const {
        ASSERT_TRUE(HasEnded(start_, 60'000));
        EXPECT_EQ(Reap(start_), 0) << ReadText("/run/start.log") << box_->Console();
    }

    static bool IsWritten(const std::string& text) {
        const auto end = std::chrono::steady_clock::now() + 20s;
        while (ReadText(kLog).find(text) == std::string::npos) {
            if (std::chrono::steady_clock::now() > end) {
                return false;
            }
            std::this_thread::sleep_for(5ms);  // between two looks at what another process does
        }
        return true;
    }

private:
    std::unique_ptr<SystemdBox> box_;
    pid_t start_ = -1;
};

/** The parameter: the kind of packet filter. */
class TunnelServiceFilter : public TunnelService, public testing::WithParamInterface<const char*> {
protected:
    void SetUp() override {
        TunnelService::SetUp();
        if (IsSkipped()) {
            return;
        }
        for (const std::string family : {"/sbin/iptables", "/sbin/ip6tables"}) {
            for (const std::string suffix : {"", "-restore"}) {
                fs::remove(family + suffix);
                fs::create_symlink(family + "-" + GetParam() + suffix, family + suffix);
            }
            if (RunProgram({family, "-S"}).exitCode != 0) {
                GTEST_SKIP() << "no " << GetParam() << " packet filter can be set here";
            }
        }
    }
};

INSTANTIATE_TEST_SUITE_P(Tunnel, TunnelServiceFilter, testing::Values("nft", "legacy"),
                         [](const auto& each) { return std::string(each.param); });

TEST_P(TunnelServiceFilter, OpensAndGuardsATunnelWithinItsWalls) {
    const std::string nothing = "-P INPUT ACCEPT\n-P FORWARD ACCEPT\n-P OUTPUT ACCEPT\n";
    const std::string drops = "-A INPUT -i tun1000 -j DROP\n-A FORWARD -i tun1000 -j DROP\n";
    const std::string loaded = nothing + "-N TETHRA_RELAY\n-A INPUT -i tun1000 -j TETHRA_RELAY\n" + drops;
    WriteText(kInfo, "of a stranger");
    ASSERT_EQ(chown(kInfo, kStranger, kStranger), 0);
    EXPECT_EQ(Run(kWay), "loaded\n" + loaded + loaded +
                             "told: yes\nlocal_ip=\"10.8.0.2\"\ndev=\"tun1000\"\nof this child\n"
                             "while it is up\n" +
                             nothing + drops + nothing + drops + "ended: 0\nno file\nunloaded\n" + nothing + nothing)
        << ReadText("/var/log/openvpn.log");
    EXPECT_THAT(ReadText("/var/log/openvpn.log"), HasSubstr("TUN/TAP device tun1000 opened"));
}

TEST_F(TunnelService, MayOpenADeviceThatComesAfterItsStart) {
    ASSERT_EQ(mount("none", "/dev/net", "tmpfs", 0, "mode=755"), 0);
    Begin(kLateDevice);
    ASSERT_TRUE(IsWritten("waiting\n"));
    ASSERT_NO_FATAL_FAILURE(MakeNode(kDevice, 200));
    Await();
    EXPECT_EQ(ReadText(kLog), "waiting\nopened\n");
}

TEST_F(TunnelService, MayOpenNoOtherDevice) {
    ASSERT_EQ(mount("none", "/dev/net", "tmpfs", 0, "mode=755"), 0);
    ASSERT_NO_FATAL_FAILURE(MakeNode(kDevice, 200));
    ASSERT_NO_FATAL_FAILURE(MakeNode("/dev/net/other", 229));
    const auto written = Run(kOtherDevice);
    EXPECT_THAT(written, HasSubstr("not permitted"));
    EXPECT_THAT(written, testing::EndsWith("refused\nopened\n"));
}

}  // namespace
}  // namespace ardv::test
