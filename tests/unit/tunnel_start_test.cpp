// SPDX-License-Identifier: Apache-2.0
// How OpenVPN is started: its command line, what it inherits, and what becomes of failures.
#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>

#include <array>
#include <string>
#include <vector>

#include "support/child_faults.h"
#include "support/handle.h"
#include "support/scratch_folder.h"
#include "tunnel_fixture.h"

namespace ARDV::Relay {

namespace {

using namespace ardv::test;
using testing::ElementsAre;
using testing::IsEmpty;

using TunnelStart = TunnelTest;

constexpr const char* kProgram = "/usr/sbin/openvpn";
constexpr const char* kInheritedFile = "/tmp/.of_the_daemon";
constexpr const char* kLogFile = "/tmp/.log_of_the_daemon";

struct CommandCase {
    const char* protocol;
    const char* host;
};

/** The whole command line, as an operator would see it, with "|" between the words. */
std::string CommandLine(const CommandCase& how, const std::string& verbosity, const std::string& log,
                        const std::string& passFile = kPassFile) {
    return "openvpn|--client|--mute-replay-warnings|--auth-nocache|--nobind|--tun-mtu|1400|--ping-exit|10|--connect-"
           "retry-max|1|--proto|" +
           std::string(how.protocol) + "|--remote|" + how.host +
           "|--port|1194|--dev|tun1000|--ca|/usr/ardv/etc.defaults/ardvrelayd/ca/"
           "ca.crt|--script-security|2|--auth-user-pass|" +
           passFile + "|--remap-usr1|SIGTERM|--comp-lzo|no|--reneg-sec|0|--verb|" + verbosity +
           "|--route-up|/usr/ardv/etc.defaults/ardvrelayd/scripts/up.sh " + std::to_string(getpid()) +
           "|--down|/usr/ardv/etc.defaults/ardvrelayd/scripts/down.sh|--allow-recursive-routing|--log-append|" + log;
}

constexpr CommandCase kUdp = {"udp", "198.51.100.7"};

class TunnelCommand : public TunnelTest, public testing::WithParamInterface<CommandCase> {};

INSTANTIATE_TEST_SUITE_P(, TunnelCommand,
                         testing::Values(kUdp, CommandCase{"tcp", "198.51.100.7"}, CommandCase{"udp6", "2001:db8:7::7"},
                                         CommandCase{"tcp6", "2001:db8:7::7"}),
                         [](const auto& one) { return std::string(one.param.protocol); });

/** What is left of the alarm, which is taken away. */
unsigned SecondsLeft() {
    return alarm(0);
}

/** While this lives, this process has no standard stream, or one that exec would close. */
class NoStandardStreams {
public:
    NoStandardStreams() {
        for (int stream = 0; stream < 3; ++stream) {
            kept_.push_back(fcntl(stream, F_DUPFD_CLOEXEC, 100));
            close(stream);
        }
    }
    ~NoStandardStreams() {
        for (int stream = 0; const int kept : kept_) {
            dup2(kept, stream++);
            close(kept);
        }
    }
    NoStandardStreams(const NoStandardStreams&) = delete;
    NoStandardStreams& operator=(const NoStandardStreams&) = delete;

private:
    std::vector<int> kept_;
};

/** What the standard streams of a process are. */
std::vector<std::string> StreamsOf(int process) {
    std::vector<std::string> streams;
    for (const char* stream : {"0", "1", "2"}) {
        std::error_code missing;
        streams.push_back(
            std::filesystem::read_symlink("/proc/" + std::to_string(process) + "/fd/" + stream, missing).string());
    }
    return streams;
}

/** Runs something in a child of this process; its exit code. */
template <typename Body>
int InChild(Body&& body) {
    const pid_t child = fork();
    if (child == 0) {
        body();
        _exit(0);
    }
    return Reap(child);
}

}  // namespace

TEST_P(TunnelCommand, IsThisWord) {
    ASSERT_TRUE(tunnel.RunVPNTunnel(Candidate(GetParam().protocol)));
    programs.AwaitOpenVpn();
    EXPECT_THAT(programs.Calls(), ElementsAre(CommandLine(GetParam(), "0", "/dev/null")));
}

TEST_F(TunnelStart, TunnelIsBeingMadeAndHasThirtySeconds) {
    EXPECT_TRUE(tunnel.RunVPNTunnel(Candidate("udp")));
    const unsigned left = SecondsLeft();
    EXPECT_GE(left, 29U);
    EXPECT_LE(left, 30U);
    EXPECT_EQ(tunnel.GetStatus(), TUNNEL_STATUS_CREATING);
    EXPECT_GT(tunnel.GetPid(), 0);
    EXPECT_TRUE(tunnel.IsAlive());
    EXPECT_TRUE(tunnel.IsTunnelAlive());
    EXPECT_EQ(ReadText(kPassFile), "u1\nsecret 1");
}

TEST_F(TunnelStart, OpenVpnLogsFromTheLevelOfDebuggingOn) {
    for (const int level : {3, 6, 7, 9}) {
        programs.Forget();
        const CapturedLog log(level);
        ASSERT_TRUE(tunnel.RunVPNTunnel(Candidate("udp")));
        programs.AwaitOpenVpn();
        EXPECT_THAT(programs.Calls(), ElementsAre(level < 7 ? CommandLine(kUdp, "0", "/dev/null")
                                                            : CommandLine(kUdp, "4", "/var/log/openvpn.log")));
        EndOpenVpn();
    }
}

TEST_F(TunnelStart, PathMtuIsDiscoveredIfTheCandidateSaysSo) {
    for (const char* value : {"true", "false", "null", "1", R"("yes")", R"("true")", "[true]", "{}"}) {
        programs.Forget();
        Json::Value candidate = Candidate("udp");
        candidate["mtu-disc"] = JsonOf(value);
        ASSERT_TRUE(tunnel.RunVPNTunnel(candidate));
        programs.AwaitOpenVpn();
        const std::string command = CommandLine(kUdp, "0", "/dev/null");
        EXPECT_THAT(programs.Calls(), ElementsAre(value == std::string("true") ? command + "|--mtu-disc|yes" : command))
            << value;
        EndOpenVpn();
    }
}

TEST_F(TunnelStart, OtherMembersOfACandidateAreNoArguments) {
    Json::Value candidate = Candidate("udp");
    candidate["up"] = "/bin/sh";
    candidate["host"] = "192.0.2.66";
    candidate["type"] = "of no interest here";
    ASSERT_TRUE(tunnel.RunVPNTunnel(candidate));
    programs.AwaitOpenVpn();
    EXPECT_THAT(programs.Calls(), ElementsAre(CommandLine(kUdp, "0", "/dev/null")));
}

TEST_F(TunnelStart, OpenVpnInheritsThreeDescriptorsAndNoSignals) {
    setenv("ARDV_MARK", "of the daemon", 1);
    const Handle inheritable(dup2(STDOUT_FILENO, 400));
    sigset_t blocked;
    sigfillset(&blocked);
    sigset_t original;
    pthread_sigmask(SIG_SETMASK, &blocked, &original);
    signal(SIGTERM, SIG_IGN);
    signal(SIGUSR1, SIG_IGN);
    ASSERT_TRUE(tunnel.RunVPNTunnel(Candidate("udp")));
    signal(SIGTERM, SIG_DFL);
    signal(SIGUSR1, SIG_DFL);
    pthread_sigmask(SIG_SETMASK, &original, nullptr);
    EXPECT_THAT(programs.AwaitOpenVpn(),
                ElementsAre("descriptors 0 1 2", "parent " + std::to_string(getpid()), "SigBlk:\t0000000000000000",
                            "SigIgn:\t0000000000000000", "with its parent 9", "environment of the daemon"));
}

TEST_F(TunnelStart, InheritsNoMoreWhereTheKernelIsOld) {
    ChildFaults faults;
    faults.closeRangeIsUnknown = true;
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = 500;
    setrlimit(RLIMIT_NOFILE, &limit);
    const Handle inheritable(dup2(STDOUT_FILENO, 499));
    ASSERT_EQ(inheritable.Number(), 499);
    ASSERT_TRUE(tunnel.RunVPNTunnel(Candidate("udp")));
    const auto inherited = programs.AwaitOpenVpn();
    ASSERT_FALSE(inherited.empty());
    EXPECT_EQ(inherited.front(), "descriptors 0 1 2");
}

TEST_F(TunnelStart, OpenVpnHasStreamsThoughTheDaemonHasNone) {
    for (const bool isOneThere : {false, true}) {
        programs.Forget();
        {
            const NoStandardStreams none;
            const Handle own(isOneThere ? open(kInheritedFile, O_RDWR | O_CREAT | O_CLOEXEC, 0600) : -1);
            tunnel.RunVPNTunnel(Candidate("udp"));
        }
        EXPECT_THAT(programs.AwaitOpenVpn(), testing::Contains("descriptors 0 1 2"));
        EXPECT_THAT(StreamsOf(tunnel.GetPid()), testing::Each("/dev/null")) << isOneThere;
        EndOpenVpn();
    }
}

TEST_F(TunnelStart, FailureOfAProgramIsLearntWithoutStandardStreams) {
    std::filesystem::remove(kProgram);
    const Handle log(open(kLogFile, O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    {
        const NoStandardStreams none;
        dup2(log.Number(), STDERR_FILENO);
        tunnel.RunVPNTunnel(Candidate("udp"));
    }
    EXPECT_THAT(ReadText(kLogFile), testing::HasSubstr("execl openvpn failed, No such file or directory"));
}

TEST_F(TunnelStart, LeavesSignalsAndDescriptorsOfTheCallerAlone) {
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR2);
    sigset_t original;
    pthread_sigmask(SIG_SETMASK, &blocked, &original);
    const auto descriptors = OpenDescriptors();
    ASSERT_TRUE(tunnel.RunVPNTunnel(Candidate("udp")));
    EXPECT_EQ(OpenDescriptors(), descriptors);
    sigset_t now;
    pthread_sigmask(SIG_SETMASK, &original, &now);
    for (int number = 1; number < SIGRTMIN; ++number) {
        EXPECT_EQ(sigismember(&now, number), number == SIGUSR2 ? 1 : 0) << number;
    }
}

TEST_F(TunnelStart, HandlersOfTheCallerDoNotRunInTheChild) {
    static std::array<int, 2> pipeEnds = {-1, -1};
    ASSERT_EQ(pipe(pipeEnds.data()), 0);
    const Handle reader(pipeEnds[0]);
    const Handle writer(pipeEnds[1]);
    signal(SIGUSR1, [](int) { [[maybe_unused]] const auto told = write(pipeEnds[1], "x", 1); });
    ChildFaults faults;
    faults.onForked = [](pid_t pid) {
        if (pid == 0) {
            raise(SIGUSR1);  // waits until none is blocked any more, and ends the child then
        }
    };
    ASSERT_TRUE(tunnel.RunVPNTunnel(Candidate("udp")));
    EXPECT_EQ(Reap(tunnel.GetPid()), -SIGUSR1);
    pollfd entry = {reader.Number(), POLLIN, 0};
    EXPECT_EQ(poll(&entry, 1, 0), 0) << "the handler told the parent of a signal that it never got";
    signal(SIGUSR1, SIG_DFL);
    EXPECT_THAT(programs.Calls(), IsEmpty());
}

TEST_F(TunnelStart, OpenVpnEndsWithTheDaemon) {
    std::array<int, 2> ends = {-1, -1};
    ASSERT_EQ(pipe(ends.data()), 0);
    const Handle reader(ends[0]);
    const pid_t daemon = fork();
    if (daemon == 0) {
        tunnel.RunVPNTunnel(Candidate("udp"));
        const int pid = tunnel.GetPid();
        [[maybe_unused]] const auto told = write(ends[1], &pid, sizeof pid);
        pause();
    }
    close(ends[1]);
    int openVpn = -1;
    ASSERT_EQ(read(reader.Number(), &openVpn, sizeof openVpn), static_cast<ssize_t>(sizeof openVpn));
    programs.AwaitOpenVpn();
    const Handle process(OpenProcess(openVpn));
    kill(daemon, SIGKILL);
    Reap(daemon);
    pollfd entry = {process.Number(), POLLIN, 0};
    EXPECT_EQ(poll(&entry, 1, 10'000), 1);
}

TEST_F(TunnelStart, NoOpenVpnForADaemonThatHasEndedMeanwhile) {
    std::array<int, 2> ends = {-1, -1};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    const Handle reader(ends[0]);
    programs.EndWith("openvpn", 0);
    ChildFaults faults;
    const pid_t daemon = fork();
    if (daemon == 0) {
        dup2(ends[1], STDOUT_FILENO);  // which OpenVPN would inherit
        const pid_t self = getpid();
        faults.onForked = [self](pid_t pid) {
            if (pid > 0) {
                _exit(0);
            }
            HasEnded(self, 10'000);
            while (getppid() == self) {
            }
        };
        tunnel.RunVPNTunnel(Candidate("udp"));
    }
    close(ends[1]);
    Reap(daemon);
    char byte = 0;
    EXPECT_EQ(read(reader.Number(), &byte, 1), 0) << "the other end closes with the child";
    EXPECT_THAT(programs.Calls(), IsEmpty());
}

TEST_F(TunnelStart, SaysWhatItTries) {
    ExpectMessage(7, "tunnel.cpp try openvpn: host: 198.51.100.7 port: 1194 proto: udp mtu: 1400",
                  [this] { tunnel.RunVPNTunnel(Candidate("udp")); });
    ExpectMessage(7, "tunnel.cpp try openvpn: host: 2001:db8:7::7 port: 1194 proto: tcp6 mtu: 1400",
                  [this] { tunnel.RunVPNTunnel(Candidate("tcp6")); });
}

TEST_F(TunnelStart, MessageStaysOneLineWhateverTheAddress) {
    tunnel.Overwrite(JsonOf(R"({"relay_ip":"a\nb\u001b[2J\u007f"})"));
    ExpectMessage(7, "tunnel.cpp try openvpn: host: a?b?[2J? port: 1194 proto: udp mtu: 1400",
                  [this] { tunnel.RunVPNTunnel(Candidate("udp")); });
}

TEST_F(TunnelStart, ChildWithoutAProgramEndsAtOnce) {
    std::filesystem::remove(kProgram);
    const CapturedLog log;
    EXPECT_TRUE(tunnel.RunVPNTunnel(Candidate("udp")));
    EXPECT_THAT(log.Messages(),
                ElementsAre("tunnel.cpp try openvpn: host: 198.51.100.7 port: 1194 proto: udp mtu: 1400",
                            "tunnel.cpp execl openvpn failed, No such file or directory"));
    EXPECT_EQ(tunnel.GetStatus(), TUNNEL_STATUS_CREATING);
    EXPECT_GT(SecondsLeft(), 0U);
    EXPECT_EQ(Reap(tunnel.GetPid()), 0);
    EXPECT_TRUE(tunnel.UpdateTunnelStatus());
    EXPECT_EQ(tunnel.GetStatus(), TUNNEL_STATUS_FAILED);
}

TEST_F(TunnelStart, ProgramThatCannotBeExecutedIsAnError) {
    std::filesystem::permissions(kProgram, std::filesystem::perms(0600));
    const auto start = [this] { tunnel.RunVPNTunnel(Candidate("udp")); };
    EXPECT_THAT(MessagesAt(3, start), ElementsAre("tunnel.cpp execl openvpn failed, Permission denied"));
    EXPECT_THAT(MessagesAt(2, start), IsEmpty());
}

TEST_F(TunnelStart, StaysAsItIsWithoutAChild) {
    ChildFaults faults;
    faults.forkFails = true;
    const CapturedLog log;
    EXPECT_FALSE(tunnel.RunVPNTunnel(Candidate("udp")));
    EXPECT_THAT(log.Messages(), ElementsAre("tunnel.cpp fork failed Resource temporarily unavailable"));
    EXPECT_EQ(tunnel.GetStatus(), TUNNEL_STATUS_CREATING);
    EXPECT_EQ(tunnel.GetPid(), -1);
    EXPECT_EQ(SecondsLeft(), 0U);
    EXPECT_THAT(PassFiles(), IsEmpty());
    EXPECT_TRUE(tunnel.UpdateTunnelStatus());
    EXPECT_EQ(tunnel.GetStatus(), TUNNEL_STATUS_FAILED);
}

TEST_F(TunnelStart, MissingChildIsAnError) {
    ChildFaults faults;
    faults.forkFails = true;
    ExpectMessage(3, "tunnel.cpp fork failed Resource temporarily unavailable",
                  [this] { tunnel.RunVPNTunnel(Candidate("udp")); });
}

TEST_F(TunnelStart, NoChildWithoutDescriptors) {
    const CapturedLog log;
    const Handle next(open("/dev/null", O_RDONLY | O_CLOEXEC));
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit original = limit;
    limit.rlim_cur = static_cast<rlim_t>(next.Number()) + 2;  // enough for the password file, too few for a pipe
    setrlimit(RLIMIT_NOFILE, &limit);
    const bool isStarted = tunnel.RunVPNTunnel(Candidate("udp"));
    setrlimit(RLIMIT_NOFILE, &original);
    EXPECT_FALSE(isStarted);
    EXPECT_THAT(log.Messages(), ElementsAre("tunnel.cpp fork failed Too many open files"));
    EXPECT_EQ(tunnel.GetPid(), -1);
    EXPECT_THAT(PassFiles(), IsEmpty());
}

TEST_F(TunnelStart, CandidateThatIsOfNoUseStartsNothing) {
    ASSERT_TRUE(tunnel.RunVPNTunnel(Candidate("udp")));
    programs.AwaitOpenVpn();
    programs.Forget();
    EXPECT_FALSE(tunnel.RunVPNTunnel(Candidate("--up")));
    EXPECT_EQ(tunnel.GetStatus(), TUNNEL_STATUS_NONE);
    EXPECT_EQ(tunnel.GetPid(), -1);
    EXPECT_FALSE(tunnel.RunVPNTunnel(Json::Value()));
    EXPECT_THAT(programs.Calls(), IsEmpty());
    ExpectMessage(7, "tunnel.cpp no candidate to try: its protocol is unknown",
                  [this] { tunnel.RunVPNTunnel(Candidate("--up")); });
}

TEST_F(TunnelStart, ReadyTunnelStaysAsItIs) {
    BringUp();
    const int pid = tunnel.GetPid();
    EXPECT_TRUE(tunnel.RunVPNTunnel(Candidate("tcp")));
    EXPECT_TRUE(tunnel.RunVPNTunnel(Json::Value()));
    EXPECT_EQ(tunnel.GetPid(), pid);
    EXPECT_EQ(tunnel.GetStatus(), TUNNEL_STATUS_READY);
    EXPECT_EQ(SecondsLeft(), 0U);
    EXPECT_THAT(programs.Calls(), IsEmpty());
    EXPECT_THAT(PassFiles(), IsEmpty());
}

TEST_F(TunnelStart, ExecutesOpenVpnInThePlaceOfAChildOfTheDaemon) {
    programs.EndWith("openvpn", 42);
    EXPECT_EQ(InChild([this] { tunnel.TunnelExec("/tmp/pass file", Candidate("tcp6")); }), 42);
    EXPECT_THAT(programs.Calls(),
                ElementsAre(CommandLine({"tcp6", "2001:db8:7::7"}, "0", "/dev/null", "/tmp/pass file")));
}

TEST_F(TunnelStart, ExecutionThatFailsReturns) {
    std::filesystem::remove(kProgram);
    const CapturedLog log;
    tunnel.TunnelExec(kPassFile, Candidate("udp"));
    EXPECT_THAT(log.Messages(),
                ElementsAre("tunnel.cpp try openvpn: host: 198.51.100.7 port: 1194 proto: udp mtu: 1400",
                            "tunnel.cpp execl openvpn failed, No such file or directory"));
}

TEST_F(TunnelStart, ExecutesNothingForACandidateThatIsOfNoUse) {
    ExpectMessage(7, "tunnel.cpp no candidate to try: its protocol is unknown",
                  [this] { tunnel.TunnelExec(kPassFile, Candidate("--up")); });
    EXPECT_THAT(programs.Calls(), IsEmpty());
}

}  // namespace ARDV::Relay
