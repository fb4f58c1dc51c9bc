// SPDX-License-Identifier: Apache-2.0
#include "openvpn_process.h"

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace ardv::daemon;
using namespace std::chrono_literals;

namespace {

using Words = std::vector<std::string>;

const Words kTunnel = {"openvpn", "--client", "--dev",
                       "tun1000", "--ca",     "/usr/ardv/etc.defaults/ardvrelayd/ca/ca.crt"};

/** A child that waits to be ended, under whatever command line; ended with this object. */
class Sleeper {
public:
    explicit Sleeper(Words words, const std::string& before = "") {
        int ready[2];
        EXPECT_EQ(pipe(ready), 0);
        pid_ = fork();
        if (pid_ == 0) {
            const auto script = before + "echo >&" + std::to_string(ready[1]) + "; exec >&- " +
                                std::to_string(ready[1]) + ">&-; while :; do sleep 0.05; done";
            words.insert(words.begin() + 1, {"-c", script});
            std::vector<char*> arguments;
            for (auto& word : words) {
                arguments.push_back(word.data());
            }
            arguments.push_back(nullptr);
            execv("/bin/bash", arguments.data());
            _exit(127);
        }
        close(ready[1]);
        char byte = 0;
        EXPECT_EQ(read(ready[0], &byte, 1), 1);
        close(ready[0]);
    }
    Sleeper(const Sleeper&) = delete;
    Sleeper& operator=(const Sleeper&) = delete;
    ~Sleeper() {
        if (pid_ > 0 && !isReaped_) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
    }

    pid_t Pid() const { return pid_; }

    /** The signal that ended it; 0 while it runs. */
    int EndedBy() {
        int status = 0;
        isReaped_ = waitpid(pid_, &status, WNOHANG) == pid_;
        return isReaped_ && WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    }

private:
    pid_t pid_;
    bool isReaped_ = false;
};

TEST(Orphan, IsEndedByItsCommandLine) {
    Sleeper tunnel(kTunnel);
    EndOrphan(tunnel.Pid());
    EXPECT_EQ(tunnel.EndedBy(), SIGTERM);
}

TEST(Orphan, IsKilledWhereItDoesNotListen) {
    Sleeper tunnel(kTunnel, "trap '' TERM; ");
    EndOrphan(tunnel.Pid());
    EXPECT_EQ(tunnel.EndedBy(), SIGKILL);
}

struct Stranger {
    const char* name;
    Words words;
};

class StrangerAtItsNumber : public testing::TestWithParam<Stranger> {};

TEST_P(StrangerAtItsNumber, IsLeftAlone) {
    Sleeper stranger(GetParam().words);
    EndOrphan(stranger.Pid());
    EXPECT_EQ(stranger.EndedBy(), 0);
}

INSTANTIATE_TEST_SUITE_P(
    CommandLines, StrangerAtItsNumber,
    testing::Values(Stranger{"AnotherProgram", {"sleeper", "--dev", "tun1000", "--ca", kTunnel.back()}},
                    Stranger{"AnotherInterface", {"openvpn", "--dev", "tun0", "--ca", kTunnel.back()}},
                    Stranger{"AnotherAuthority", {"openvpn", "--dev", "tun1000", "--ca", "/etc/openvpn/ca.crt"}},
                    Stranger{"WordsOutOfOrder", {"openvpn", "tun1000", "--dev", "--ca", kTunnel.back()}},
                    Stranger{"ServerOfItsOwn", {"openvpn", "--config", "server.conf"}}),
    [](const auto& row) { return row.param.name; });

TEST(Orphan, IsNoProcessThatThereIsNot) {
    for (const pid_t process : {-1, 0, 1, getpid()}) {
        EndOrphan(process);  // this test is still there
    }
}

TEST(Child, IsReapedOnceAndByItsOwnNumber) {
    const pid_t other = fork();
    if (other == 0) {
        _exit(0);
    }
    const pid_t child = fork();
    if (child == 0) {
        _exit(0);
    }
    siginfo_t info = {};
    waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT);
    EXPECT_TRUE(ReapIfEnded(child));
    EXPECT_FALSE(ReapIfEnded(child));
    EXPECT_FALSE(ReapIfEnded(-1));
    EXPECT_EQ(waitpid(other, nullptr, 0), other) << "another's child was reaped";
}

TEST(Child, ThatRunsIsNotWaitedFor) {
    const Sleeper child(kTunnel);
    EXPECT_FALSE(ReapIfEnded(child.Pid()));
}

TEST(Child, IsEndedAndReaped) {
    for (const char* before : {"", "trap '' TERM; "}) {
        Sleeper child(kTunnel, before);
        EndChildAndWait(child.Pid());
        EXPECT_EQ(waitpid(child.Pid(), nullptr, WNOHANG), -1) << "not reaped";
        EXPECT_EQ(errno, ECHILD);
    }
    EndChildAndWait(-1);
}

}  // namespace
