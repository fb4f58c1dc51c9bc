// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include <libdaemon/dsignal.h>

#include "support/daemon_test.h"
#include "support/scratch_folder.h"
#include "support/signalled_process.h"
#include "unit/platform/child_process.h"

namespace ARDV::Relay {

namespace {

namespace fs = std::filesystem;

using namespace ardv::test;
using ARDV::Platform::Test::ChildProcess;
using testing::ElementsAre;
using testing::IsEmpty;

pid_t PidOfTheDead() {
    ChildProcess child([] { return 0; });
    const pid_t pid = child.Pid();
    child.Wait();
    return pid;
}

class DaemonName : public DaemonTest {};

TEST_F(DaemonName, IsTheBaseNameAndNamesThePidFile) {
    EXPECT_TRUE(Daemon::SetName("/usr/ardv/sbin/relay-x"));
    EXPECT_STREQ(daemon_log_ident, "relay-x");
    EXPECT_STREQ(daemon_pid_file_ident, "relay-x");
    EXPECT_STREQ(Daemon::GetPidFile(), "/var/run/relay-x.pid");
    EXPECT_STREQ(daemon_pid_file_proc(), "/var/run/relay-x.pid");
    EXPECT_TRUE(Daemon::SetName("plain"));
    EXPECT_STREQ(daemon_pid_file_proc(), "/var/run/plain.pid");
}

TEST_F(DaemonName, OutlivesTheTextThatItWasTakenFrom) {
    std::string text = "/usr/ardv/sbin/relay-x";
    Daemon::SetName(text.c_str());
    text.assign(text.size(), '#');
    const char* first = daemon_log_ident;
    Daemon::SetName("another");
    EXPECT_STREQ(first, "relay-x") << "the system log may still use it";
    EXPECT_STREQ(daemon_log_ident, "another");
}

TEST_F(DaemonName, NullIsRefusedAndChangesNothing) {
    EXPECT_FALSE(Daemon::SetName(nullptr));
    EXPECT_STREQ(Daemon::GetPidFile(), "");
    EXPECT_EQ(daemon_log_ident, nullptr);
    EXPECT_EQ(daemon_pid_file_ident, nullptr);
}

TEST(DaemonTests, SeeNoProcessesButTheirOwn) {
    EXPECT_EQ(getppid(), 1);
    EXPECT_EQ(kill(-1, 0), -1) << "there is nobody else";
    EXPECT_EQ(errno, ESRCH);
}

class PidFile : public DaemonTest {};

TEST_F(PidFile, MustBeAnAbsolutePath) {
    Daemon::SetName("relay-x");
    ExpectMessage(3, "daemon.cpp pid file must be absolute path",
                  [] { EXPECT_FALSE(Daemon::SetPidFile("run/x.pid")); });
    EXPECT_STREQ(Daemon::GetPidFile(), "/var/run/relay-x.pid");
}

TEST_F(PidFile, NullAndEmptyAreRefusedInSilence) {
    Daemon::SetName("relay-x");
    EXPECT_THAT(MessagesAt(9,
                           [] {
                               EXPECT_FALSE(Daemon::SetPidFile(nullptr));
                               EXPECT_FALSE(Daemon::SetPidFile(""));
                           }),
                IsEmpty());
    EXPECT_STREQ(Daemon::GetPidFile(), "/var/run/relay-x.pid");
}

TEST_F(PidFile, IsTheOneThatWasSetUntilANameIsSetAnew) {
    Daemon::SetName("relay-x");
    EXPECT_TRUE(Daemon::SetPidFile("/tmp/x.pid"));
    EXPECT_STREQ(Daemon::GetPidFile(), "/tmp/x.pid");
    EXPECT_STREQ(daemon_pid_file_proc(), "/tmp/x.pid");
    EXPECT_STREQ(daemon_pid_file_ident, "relay-x");
    Daemon::SetName("relay-x");
    EXPECT_STREQ(Daemon::GetPidFile(), "/var/run/relay-x.pid");
}

class LibInit : public DaemonTest {};

TEST_F(LibInit, NamesTheDaemonWhereItHasNoName) {
    EXPECT_TRUE(Daemon::LibInit());
    EXPECT_STREQ(Daemon::GetPidFile(), "/var/run/ardvrelayd.pid");
    EXPECT_STREQ(daemon_log_ident, "ardvrelayd");
    EXPECT_STREQ(daemon_pid_file_ident, "ardvrelayd");
    EXPECT_STREQ(daemon_pid_file_proc(), "/var/run/ardvrelayd.pid");
}

TEST_F(LibInit, KeepsNameAndPidFileThatWereSet) {
    Daemon::SetName("relay-x");
    Daemon::SetPidFile("/tmp/x.pid");
    EXPECT_TRUE(Daemon::LibInit());
    EXPECT_STREQ(Daemon::GetPidFile(), "/tmp/x.pid");
    EXPECT_STREQ(daemon_pid_file_ident, "relay-x");
}

TEST_F(LibInit, AfterAPidFileAloneHasTheDaemonFoundThere) {
    const SignalledProcess daemon;
    WritePid(daemon.Pid(), "/tmp/x.pid");
    Daemon::SetPidFile("/tmp/x.pid");
    EXPECT_TRUE(Daemon::LibInit());
    EXPECT_STREQ(Daemon::GetPidFile(), "/tmp/x.pid");
    EXPECT_STREQ(daemon_pid_file_ident, "ardvrelayd");
    EXPECT_EQ(Daemon::Hup(), 0);
    EXPECT_THAT(daemon.Received(), ElementsAre(SIGHUP));
}

class Signalling : public DaemonTest {
protected:
    Signalling() { Daemon::LibInit(); }
};

TEST_F(Signalling, ReachesTheDaemonOnThePidFile) {
    const SignalledProcess daemon;
    WritePid(daemon.Pid());
    EXPECT_THAT(MessagesAt(9,
                           [] {
                               EXPECT_EQ(Daemon::Signal(SIGUSR2), 0);
                               EXPECT_EQ(Daemon::Signal(SIGRTMIN + 1), 0);
                           }),
                IsEmpty());
    EXPECT_THAT(daemon.Received(), ElementsAre(SIGUSR2, SIGRTMIN + 1));
    EXPECT_EQ(Daemon::Kill(), 0);
    EXPECT_THAT(daemon.Received(), ElementsAre(SIGTERM));
    EXPECT_EQ(Daemon::Hup(), 0);
    EXPECT_THAT(daemon.Received(), ElementsAre(SIGHUP));
    EXPECT_EQ(ReadText(kPidFile), std::to_string(daemon.Pid()) + "\n");
}

TEST_F(Signalling, WithoutADaemonFailsWithANotice) {
    ExpectMessage(5, "daemon.cpp Failed to signal daemon, 10", [] { EXPECT_EQ(Daemon::Signal(SIGUSR1), 2); });
    ExpectMessage(5, "daemon.cpp Failed to kill daemon", [] { EXPECT_EQ(Daemon::Kill(), 2); });
}

TEST_F(Signalling, ToReloadWithoutADaemonSaysSoOnStandardErrorWhateverTheThreshold) {
    for (const int threshold : {0, 9}) {
        const CapturedLog log(threshold);
        EXPECT_EQ(Daemon::Hup(), 2);
        EXPECT_EQ(log.Text(), "ardvrelayd not running\n");
    }
    Daemon::SetName("relay-x");
    const CapturedLog log;
    EXPECT_EQ(Daemon::Hup(), 2);
    EXPECT_EQ(log.Text(), "relay-x not running\n");
}

TEST_F(Signalling, ADeadDaemonFails) {
    const pid_t dead = PidOfTheDead();
    for (const auto& call : {&Daemon::Kill, &Daemon::Hup}) {
        WritePid(dead);
        const CapturedLog log;
        EXPECT_EQ(call(), 2);
    }
}

TEST_F(Signalling, WithANumberThatIsNoSignalFails) {
    const SignalledProcess daemon;
    WritePid(daemon.Pid());
    ExpectMessage(5, "daemon.cpp Failed to signal daemon, 65", [] { EXPECT_EQ(Daemon::Signal(65), 2); });
    EXPECT_THAT(daemon.Received(), IsEmpty());
}

/** Signals by each operation from a process group of its own; whether all failed and nobody in the group was signalled. */
bool EveryOperationFailsAndSignalsNobody() {
    return ChildProcess([] {
               const CapturedLog log;
               sigset_t all;
               sigfillset(&all);
               sigprocmask(SIG_BLOCK, &all, nullptr);
               setpgid(0, 0);
               const bool failed = Daemon::Signal(SIGUSR1) == 2 && Daemon::Kill() == 2 && Daemon::Hup() == 2;
               sigset_t pending;
               sigpending(&pending);
               return failed && sigisemptyset(&pending) != 0 ? 0 : 1;
           }).Wait() == 0;
}

class PidFileWithoutAPid : public Signalling, public testing::WithParamInterface<std::string> {};

TEST_P(PidFileWithoutAPid, SignalsNobody) {
    WriteText(kPidFile, GetParam());
    EXPECT_TRUE(EveryOperationFailsAndSignalsNobody());
}

INSTANTIATE_TEST_SUITE_P(Texts, PidFileWithoutAPid,
                         testing::Values("", "0", "0\n", "-1\n", "-2\n", "text", "1 ", "99999999999\n"));

TEST_F(Signalling, BeforeANameIsSetKnowsNoDaemon) {
    const SignalledProcess other;
    WritePid(other.Pid(), "/var/run/unknown.pid");
    daemon_log_ident = daemon_pid_file_ident = nullptr;
    daemon_pid_file_proc = daemon_pid_file_proc_default;
    Daemon::_strPidFile.clear();
    const CapturedLog log(0);
    EXPECT_EQ(Daemon::Signal(SIGUSR1), 2);
    EXPECT_EQ(Daemon::Kill(), 2);
    EXPECT_EQ(Daemon::Hup(), 2);
    EXPECT_EQ(log.Text(), " not running\n");
    EXPECT_THAT(other.Received(), IsEmpty());
    fs::remove("/var/run/unknown.pid");
}

/** The signals of 1 to SIGRTMAX that this process handles. */
std::set<int> HandledSignals() {
    std::set<int> handled;
    for (int signal = 1; signal <= SIGRTMAX; ++signal) {
        struct sigaction action = {};
        if (sigaction(signal, nullptr, &action) == 0 && action.sa_handler != SIG_DFL && action.sa_handler != SIG_IGN) {
            handled.insert(signal);
        }
    }
    return handled;
}

/** The descriptors that a program started now would get. */
std::set<int> InheritableDescriptors() {
    std::set<int> found;
    for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
        const int fd = std::stoi(entry.path().filename());
        const int flags = fcntl(fd, F_GETFD);
        if (flags >= 0 && (flags & FD_CLOEXEC) == 0) {
            found.insert(fd);
        }
    }
    return found;
}

const std::set<int> kDaemonSignals = {SIGINT,  SIGTERM, SIGQUIT, SIGPIPE,      SIGHUP,       SIGCHLD,
                                      SIGALRM, SIGUSR1, SIGUSR2, SIGRTMIN + 1, SIGRTMIN + 2, SIGRTMIN + 3};

class SignalHandler : public DaemonTest {};

TEST_F(SignalHandler, CollectsTheDaemonsSignals) {
    ChildProcess daemon([] {
        const auto before = HandledSignals();
        Daemon::InitSignalHandler();
        auto handled = HandledSignals();
        for (const int signal : before) {
            handled.erase(signal);
        }
        bool isRight = handled == kDaemonSignals;
        for (const int signal : kDaemonSignals) {
            raise(signal);
            isRight = isRight && daemon_signal_next() == signal;
        }
        return isRight && daemon_signal_next() == 0 ? 0 : 1;
    });
    EXPECT_EQ(daemon.Wait(), 0);
}

TEST_F(SignalHandler, ProgramsThatAreStartedDoNotGetItsPipe) {
    ChildProcess daemon([] {
        const auto before = InheritableDescriptors();
        const auto open = OpenDescriptors();
        Daemon::InitSignalHandler();
        return InheritableDescriptors() == before && OpenDescriptors() == open + 2 ? 0 : 1;
    });
    EXPECT_EQ(daemon.Wait(), 0);
}

TEST_F(SignalHandler, IsNoMatterToPipesOfOthers) {
    ChildProcess daemon([] {
        std::array<int, 2> pipes = {};
        if (pipe(pipes.data()) != 0) {
            return 2;
        }
        Daemon::InitSignalHandler();
        return fcntl(pipes[0], F_GETFD) == 0 && fcntl(pipes[1], F_GETFD) == 0 ? 0 : 1;
    });
    EXPECT_EQ(daemon.Wait(), 0);
}

}  // namespace

}  // namespace ARDV::Relay
