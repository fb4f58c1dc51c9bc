// SPDX-License-Identifier: Apache-2.0
#include <signal.h>
#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/json.h>

#include <relay/common/vocabulary.h>

#include "support/control_server_process.h"
#include "support/file_text.h"
#include "support/program.h"
#include "support/systemd_box.h"
#include "support/test_certificates.h"

using namespace ardv::test;
using namespace ARDV::Relay;
using namespace std::chrono_literals;
using testing::HasSubstr;

namespace {

namespace fs = std::filesystem;

constexpr const char* kConfiguration = "/usr/ardv/etc/ardvrelayd/ardvrelayd.conf";
constexpr const char* kStatusFile = "/tmp/.ardvrelayd.status";
constexpr const char* kPidFile = "/var/run/ardvrelayd.pid";

void Copy(const std::string& from, const fs::path& to) {
    fs::create_directories(to.parent_path());
    fs::copy_file(from, to, fs::copy_options::overwrite_existing);
}

/** Puts the daemon where its unit names it, and its libraries where the service's walls don't hide them. */
void InstallDaemon() {
    Copy(ARDV_DAEMON, ARDV_DAEMON_PLACE);
    Copy(ARDV_LIBRARY, std::string("/usr/local/lib/") + ARDV_LIBRARY_NAME);
    Copy(ARDV_PLATFORM_LIBRARY, std::string("/usr/local/lib/") + ARDV_PLATFORM_LIBRARY_NAME);
    EXPECT_EQ(RunProgram({"/sbin/ldconfig"}).exitCode, 0);
    MakeDevice();
    WriteText(kConfiguration, "{}");
}

/** A file of the unit, for a daemon that doesn't wait a random time before it begins. */
std::string UnitText(const std::string& file) {
    constexpr std::string_view kSpread = "--start-spread 30";
    std::string text = ReadText(file);
    const auto place = text.find(kSpread);
    EXPECT_NE(place, std::string::npos) << file;
    return text.replace(place, kSpread.size(), "--start-spread 0");
}

/** Writes the unit, and the drop-in if it is wanted, to a folder. Returns the unit's path. */
std::string WriteUnit(const std::string& folder, bool isForeground) {
    WriteText(folder + "/ardvrelayd.service", ReadText(ARDV_DAEMON_UNIT));
    if (isForeground) {
        WriteText(folder + "/ardvrelayd.service.d/foreground.conf", ReadText(ARDV_DAEMON_DROP_IN));
    }
    return folder + "/ardvrelayd.service";
}

bool ComesTrue(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + 20s;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(5ms);  // between two looks at what another process does
    }
    return true;
}

/** What systemctl says, without the line's end. */
std::string Systemctl(std::vector<std::string> words) {
    words.insert(words.begin(), {"env", "SYSTEMCTL_FORCE_BUS=1", "systemctl"});
    const auto result = RunProgram(words);
    const std::string text = result.out + result.err;
    return text.substr(0, text.find_last_not_of('\n') + 1);
}

std::string Shown(const std::string& property) {
    return Systemctl({"show", "--value", "-p", property, "ardvrelayd.service"});
}

class DaemonUnit : public testing::TestWithParam<bool> {
protected:
    void SetUp() override { InstallDaemon(); }
};

/** The parameter: in the foreground, by the drop-in. */
class DaemonService : public testing::TestWithParam<bool> {
protected:
    void SetUp() override {
        const std::string reason = SystemdBox::WhyNot();
        if (!reason.empty()) {
            GTEST_SKIP() << reason;
        }
        InstallDaemon();
        box_ = std::make_unique<SystemdBox>();
        box_->AddUnit("ardvrelayd.service", UnitText(ARDV_DAEMON_UNIT));
        if (GetParam()) {
            box_->AddUnit("ardvrelayd.service.d/foreground.conf", UnitText(ARDV_DAEMON_DROP_IN));
        }
        // The box has none of the machine's other units, and a test no time.
        // Within the unit's walls the leak sanitizer may not look at its own process.
        Add("[Unit]\nDefaultDependencies=no\n[Service]\nRestartSec=100ms\nEnvironment=ASAN_OPTIONS=detect_leaks=0\n");
    }

    void Add(const std::string& lines) {
        box_->AddUnit("ardvrelayd.service.d/test" + std::to_string(++added_) + ".conf", lines);
    }

    void Start() {
        EXPECT_EQ(Systemctl({"start", "ardvrelayd.service"}), "")
            << box_->Console() << Systemctl({"status", "ardvrelayd.service"});
        ASSERT_EQ(Shown("ActiveState"), "active");
    }

    /** The daemon's process, by its number outside of the box; 0 for none. */
    pid_t Process() const {
        pid_t process = 0;
        std::istringstream(ReadText(box_->ControlGroup() + "/system.slice/ardvrelayd.service/cgroup.procs")) >> process;
        return process;
    }

    static bool IsState(RELAYD_STATE state) {
        const auto text = ReadText(kStatusFile);
        if (text.empty()) {
            return false;  // not yet there: a start is over once there is a pid file
        }
        Json::Value status;
        std::istringstream(text) >> status;
        return status["state"] == static_cast<int>(state);
    }

    std::unique_ptr<SystemdBox> box_;
    int added_ = 0;
};

std::string NameOf(const testing::TestParamInfo<bool>& info) {
    return info.param ? "InTheForeground" : "InTheBackground";
}

/** There is one in the foreground alone. */
class DaemonWatchdog : public DaemonService {};

INSTANTIATE_TEST_SUITE_P(Daemon, DaemonUnit, testing::Bool(), NameOf);
INSTANTIATE_TEST_SUITE_P(Daemon, DaemonService, testing::Bool(), NameOf);
INSTANTIATE_TEST_SUITE_P(Daemon, DaemonWatchdog, testing::Values(true), NameOf);

}  // namespace

TEST_P(DaemonUnit, IsWithoutFault) {
    const auto result =
        RunProgram({"systemd-analyze", "verify", "--man=no", WriteUnit("/etc/systemd/system", GetParam())});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out + result.err, "");
}

TEST_P(DaemonUnit, LeavesLittleToAnIntruder) {
    const auto unit = WriteUnit("/etc/systemd/system", GetParam());
    const auto judge = [&](const std::string& threshold) {
        return RunProgram(
            {"systemd-analyze", "security", "--offline=true", "--no-pager", "--threshold=" + threshold, unit});
    };
    const auto result = judge("30");
    EXPECT_EQ(result.exitCode, 0) << result.out << result.err;
    EXPECT_NE(judge("10").exitCode, 0) << "the threshold is looked at";
}

TEST_P(DaemonService, StartsAndStopsInOrder) {
    Start();
    EXPECT_TRUE(fs::exists(kPidFile));
    EXPECT_TRUE(ComesTrue([] { return IsState(RELAYD_STATE_LOGOUT); })) << ReadText(kStatusFile);
    EXPECT_EQ(Systemctl({"stop", "ardvrelayd.service"}), "");
    EXPECT_EQ(Shown("ActiveState"), "inactive");
    EXPECT_EQ(Shown("Result"), "success");
    EXPECT_FALSE(fs::exists(kPidFile));
    EXPECT_FALSE(fs::exists(kStatusFile));
}

TEST_P(DaemonService, ReadsItsConfigurationAgain) {
    Start();
    ASSERT_TRUE(ComesTrue([] { return IsState(RELAYD_STATE_LOGOUT); }));
    const auto process = Process();
    WriteText(kConfiguration, R"({"tethra":{"enabled":true}})");
    EXPECT_EQ(Systemctl({"reload", "ardvrelayd.service"}), "");
    EXPECT_TRUE(ComesTrue([] { return IsState(RELAYD_STATE_STARTING); })) << ReadText(kStatusFile);
    EXPECT_EQ(Process(), process);
    EXPECT_TRUE(ComesTrue([] { return Shown("ActiveState") == "active"; }));
}

TEST_P(DaemonService, LeavesADamagedConfigurationWhereItIs) {
    Start();
    ASSERT_TRUE(ComesTrue([] { return IsState(RELAYD_STATE_LOGOUT); }));
    const auto process = Process();
    WriteText(kConfiguration, R"({"tethra":{)");
    EXPECT_NE(Systemctl({"reload", "ardvrelayd.service"}), "");
    EXPECT_EQ(ReadText(kConfiguration), R"({"tethra":{)");
    EXPECT_EQ(Process(), process);
    EXPECT_TRUE(ComesTrue([] { return Shown("ActiveState") == "active"; }));
}

TEST_P(DaemonService, IsStartedAgainAfterACrash) {
    Start();
    const auto process = Process();
    ASSERT_GT(process, 1);
    kill(process, SIGKILL);
    EXPECT_TRUE(ComesTrue([&] { return Shown("NRestarts") == "1" && Shown("ActiveState") == "active"; }))
        << Shown("ActiveState");
    EXPECT_NE(Process(), process);
}

TEST_P(DaemonService, ComesUpOnceItsConfigurationIsMended) {
    WriteText(kConfiguration, R"({"server_control":{"host":""}})");
    EXPECT_THAT(Systemctl({"start", "ardvrelayd.service"}), HasSubstr("failed"));
    EXPECT_NE(Shown("ActiveState"), "active");
    WriteText(kConfiguration, "{}");
    EXPECT_TRUE(ComesTrue([] { return Shown("ActiveState") == "active"; }));
}

TEST_P(DaemonService, ReachesItsServersThroughItsWalls) {
    const TestCertificates certificates("/run/certificates", {"control.zz"});
    WriteText("/etc/ssl/certs/ca-certificates.crt", ReadText(certificates.Authority()));
    WriteText("/etc/hosts", "127.0.0.1 localhost control.zz\n");
    const ControlServerProcess server({{.folder = "/run/server",
                                        .certificate = certificates.Certificate("valid"),
                                        .key = certificates.Key("valid")}});
    Json::Value address;
    address["protocol"] = "https";
    address["host"] = "control.zz";
    address["port"] = server.HttpsPort();
    Json::Value configuration;
    configuration["tethra"]["enabled"] = true;
    configuration["server_control"] = address;
    configuration["server_waitcmd"] = address;
    WriteText(kConfiguration, configuration.toStyledString());
    Start();
    EXPECT_TRUE(ComesTrue([] { return IsState(RELAYD_STATE_LOGIN); }))
        << ReadText(kStatusFile) << server.Log() << ReadText("/var/log/ardvrelayd.log");
    const auto devices = server.Devices();
    ASSERT_EQ(devices.size(), 1U);
    EXPECT_THAT(ReadText(kConfiguration), HasSubstr((*devices.begin())["serverID"].asString()))
        << "what it was told is stored";
    EXPECT_TRUE(server.AwaitWait((*devices.begin())["serverID"].asString()));
}

TEST_P(DaemonService, IsHeldWithinItsWalls) {
    Add("[Service]\nExecStartPost=/bin/sh -c 'touch /usr/ardv/etc/ardvrelayd/a /run/b /var/log/c /tmp/d; touch /etc/e "
        "/usr/f /root/g; true'\n");
    Start();
    for (const char* path : {"/usr/ardv/etc/ardvrelayd/a", "/run/b", "/var/log/c", "/tmp/d"}) {
        EXPECT_TRUE(fs::exists(path)) << path;
    }
    for (const char* path : {"/etc/e", "/usr/f", "/root/g"}) {
        EXPECT_FALSE(fs::exists(path)) << path;
    }
}

TEST_P(DaemonWatchdog, StartsAHangingDaemonAgain) {
    Add("[Service]\nWatchdogSec=500ms\n");
    Start();
    const auto process = Process();
    ASSERT_GT(process, 1);
    std::this_thread::sleep_for(2s);
    EXPECT_EQ(Shown("NRestarts"), "0") << "it is fed";
    kill(process, SIGSTOP);
    EXPECT_TRUE(ComesTrue([&] { return Shown("NRestarts") == "1" && Shown("ActiveState") == "active"; }))
        << Shown("ActiveState");
    EXPECT_NE(Process(), process);
}
