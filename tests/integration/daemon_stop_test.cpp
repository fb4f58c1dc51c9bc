// SPDX-License-Identifier: Apache-2.0
// How the daemon begins and ends: in order in every state, alone, and without traces.
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdlib>

#include "integration/daemon_fixture.h"
#include "support/handle.h"

namespace ardv::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

const std::vector<std::string> kPatient{"--retry-base", "60", "--retry-cap", "600"};

class DaemonStop : public DaemonTest {
protected:
    bool AwaitTransfer(const std::string& purpose) const {
        return Await([&] {
            const auto report = DaemonReport();
            const auto& list = report["transfers"];
            return std::any_of(list.begin(), list.end(), [&](const auto& row) { return row["purpose"] == purpose; });
        });
    }

    static void UseSilentResolver() {
        WriteText("/etc/resolv.conf", "nameserver 127.0.0.1\n");
        Edit([](Json::Value& c) { c["server_control"]["host"] = "control.tethra.example"; });
    }

    /** Binds the port of the name service, and says nothing there. */
    static int OpenSilentResolver() {
        const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(53);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        return fd;
    }
};

TEST_F(DaemonStop, IsInOrderWhileItIsRegistering) {
    control.SetFault(R"({"kind":"silent"})");
    Start();
    EXPECT_TRUE(AwaitTransfer("register"));
    ExpectOrderlyEnd();
}

TEST_F(DaemonStop, IsInOrderWhileANameIsBeingResolved) {
    const Handle resolver(OpenSilentResolver());
    UseSilentResolver();
    Start();
    EXPECT_TRUE(AwaitTransfer("register"));
    EXPECT_TRUE(Holds([] { return DaemonStatus() == "starting success"; }, milliseconds(200)));
    ExpectOrderlyEnd();
}

TEST_F(DaemonStop, IsInOrderWhileItIsWaiting) {
    StartAndLogIn();
    ExpectOrderlyEnd();
    EXPECT_TRUE(Await([&] { return !control.Sessions()[ServerId()]["waiting"].asBool(); })) << "the service is told";
}

TEST_F(DaemonStop, IsInOrderOnEachOfItsSignals) {
    for (const int signal : {SIGTERM, SIGINT, SIGQUIT}) {
        StartAndLogIn();
        EXPECT_EQ(daemon->Stop(signal), 0) << signal;
        EXPECT_FALSE(std::filesystem::exists(kDaemonStatusFile));
        EXPECT_FALSE(std::filesystem::exists(kDaemonPidFile));
    }
}

TEST_F(DaemonStop, IsInOrderBeforeAnotherTry) {
    control.Stop();
    Start(kPatient);
    EXPECT_EQ(AwaitStatus("starting err_network"), "starting err_network");
    ExpectOrderlyEnd();
}

TEST_F(DaemonStop, IsInOrderWhileItIsRefused) {
    control.SetFault(R"({"kind":"errno","value":2})");
    Start();
    EXPECT_EQ(AwaitStatus("error err_auth"), "error err_auth");
    ExpectOrderlyEnd();
}

TEST_F(DaemonStop, IsInOrderWhileItIsLoggedOut) {
    Edit([](Json::Value& c) { c["tethra"]["enabled"] = false; });
    Start();
    EXPECT_EQ(AwaitStatus("logout success"), "logout success");
    ExpectOrderlyEnd();
}

TEST_F(DaemonStop, IsInOrderWhileTheAliasIsBeingMapped) {
    alias.SetFault(R"({"kind":"silent"})");
    Start();
    EXPECT_TRUE(AwaitTransfer("alias, map"));
    ExpectOrderlyEnd();
}

TEST_F(DaemonStop, IsInOrderInTheMiddleOfALargeAnswer) {
    control.SetFault(R"({"kind":"slow","delay_ms":60000,"command":"register"})");
    Start();
    EXPECT_TRUE(AwaitTransfer("register"));
    ExpectOrderlyEnd();
}

TEST_F(DaemonStop, IsInOrderAfterManySignals) {
    StartAndLogIn();
    for (int i = 0; i < 500; ++i) {
        for (const int signal : {SIGHUP, SIGUSR1, SIGUSR2, SIGCHLD, SIGALRM, SIGPIPE, SIGRTMIN + 1, SIGRTMIN + 2}) {
            daemon->Signal(signal);
        }
    }
    EXPECT_TRUE(daemon->Reload());
    EXPECT_EQ(AwaitStatus(kLoggedIn), kLoggedIn);
    EXPECT_EQ(AwaitAlias("success"), "success");
    for (int i = 0; i < 20; ++i) {
        daemon->Signal(SIGTERM);
    }
    ExpectOrderlyEnd();
}

TEST_F(DaemonStop, IsInOrderFromTheBackground) {
    Edit([](Json::Value& c) { c["log_file"] = "/run/background.log"; });
    daemon = std::make_unique<DaemonProcess>(DaemonProcess::Hasty(), DaemonProcess::Place::kBackground);
    EXPECT_EQ(AwaitStatus(kLoggedIn), kLoggedIn);
    EXPECT_TRUE(AwaitWait());
    EXPECT_EQ(std::filesystem::read_symlink("/proc/" + std::to_string(daemon->Pid()) + "/cwd"), "/");
    EXPECT_NE(ReadText("/run/background.log").find("logged in"), std::string::npos);
    EXPECT_EQ(ModeOf("/run/background.log"), 0600U);
    ExpectOrderlyEnd();
}

TEST_F(DaemonStop, LeavesNoChild) {
    StartAndLogIn();
    const auto pid = std::to_string(daemon->Pid());
    EXPECT_EQ(ReadText("/proc/" + pid + "/task/" + pid + "/children"), "");
}

TEST_F(DaemonStop, KeepsItsDescriptorsFromChildren) {
    alias.SetFault(R"({"kind":"silent"})");
    Start();
    EXPECT_TRUE(AwaitTransfer("alias, map"));
    EXPECT_TRUE(AwaitTransfer("wait"));
    std::size_t count = 0;
    for (const auto& entry :
         std::filesystem::directory_iterator("/proc/" + std::to_string(daemon->Pid()) + "/fdinfo")) {
        const auto number = std::strtol(entry.path().filename().c_str(), nullptr, 10);
        const auto text = ReadText(entry.path());
        const auto flags = std::strtoul(text.c_str() + text.find("flags:") + sizeof "flags:", nullptr, 8);
        EXPECT_TRUE(number <= 2 || (flags & O_CLOEXEC) != 0) << number << " " << text;
        ++count;
    }
    EXPECT_GE(count, 8U) << "three, the loop's, the signals', the network's, the clock's and two connections";
}

TEST_F(DaemonStop, InheritsNothingBesideTheStandardDescriptors) {
    WriteText("/run/inherited", "");
    const Handle file(::open("/run/inherited", O_RDONLY));  // NOLINT(android-cloexec-open): the daemon is to see it
    ASSERT_EQ(::fcntl(file.Number(), F_SETFD, 0), 0);
    StartAndLogIn();
    for (const auto& entry : std::filesystem::directory_iterator("/proc/" + std::to_string(daemon->Pid()) + "/fd")) {
        std::error_code gone;
        EXPECT_NE(std::filesystem::read_symlink(entry.path(), gone), "/run/inherited");
    }
}

TEST_F(DaemonStop, IsNotForASecondDaemonToCause) {
    StartAndLogIn();
    const auto second = RunProgram({ARDV_DAEMON, "--foreground"});
    EXPECT_EQ(second.exitCode, 1);
    EXPECT_NE(second.err.find("Daemon already running on PID file " + std::to_string(daemon->Pid())), std::string::npos)
        << second.err;
    const auto third = RunProgram({ARDV_DAEMON});
    EXPECT_EQ(third.exitCode, 1) << third.err;
    EXPECT_EQ(DaemonStatus(), kLoggedIn);
    EXPECT_EQ(Count("register"), 1U);
    ExpectOrderlyEnd();
}

TEST_F(DaemonStop, LeavesOneOfTwoThatStartAtOnce) {
    for (int i = 0; i < 15; ++i) {
        DaemonProcess first;
        DaemonProcess second;
        ASSERT_TRUE(Await([&] { return !first.Runs() || !second.Runs(); })) << "both run";
        auto& loser = first.Runs() ? second : first;
        auto& winner = first.Runs() ? first : second;
        ASSERT_EQ(AwaitStatus(kLoggedIn), kLoggedIn) << winner.Log();
        EXPECT_EQ(JsonFrom(ReadText(kDaemonStatusFile))["pid"], winner.Pid());
        EXPECT_THAT(loser.End(), testing::AnyOf(1, 4));
        EXPECT_TRUE(winner.Runs());
        EXPECT_EQ(winner.Stop(), 0);
    }
}

TEST_F(DaemonStop, ByForceAtAnyMomentIsRecoveredFrom) {
    std::srand(20261120);
    for (int i = 0; i < 50; ++i) {
        DaemonProcess victim;
        const milliseconds moment(std::rand() % 60);
        EXPECT_TRUE(Holds([&] { return victim.Runs(); }, moment)) << victim.Log();
        EXPECT_EQ(victim.Stop(SIGKILL), -SIGKILL);
        EXPECT_EQ(DaemonStatus(), "not_running success");
        EXPECT_TRUE(JsonFrom(ReadText(kDaemonConfig)).isObject());
    }
    StartAndLogIn();
    EXPECT_EQ(JsonFrom(ReadText(kDaemonConfig))["serverID"], ServerId());
    EXPECT_FALSE(std::filesystem::exists(std::string(kDaemonConfig) + ".bad"));
    ExpectOrderlyEnd();
}

TEST_F(DaemonStop, BeforeItsPidFileIsWrittenIsRecoveredFrom) {
    WriteText(kDaemonPidFile, "");
    std::filesystem::last_write_time(kDaemonPidFile, std::filesystem::file_time_type::clock::now() - seconds(60));
    StartAndLogIn();
    ExpectOrderlyEnd();
}

TEST_F(DaemonStop, ByForceLeavesFilesThatTheNextStartReplaces) {
    WriteText(kDaemonPidFile, "999999\n");
    WriteText(kDaemonStatusFile, "{\"pid\":999999,\"state\":3");
    StartAndLogIn();
    EXPECT_EQ(ReadText(kDaemonPidFile), std::to_string(daemon->Pid()) + "\n");
    ExpectOrderlyEnd();
}

}  // namespace
}  // namespace ardv::test
