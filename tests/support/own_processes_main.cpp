// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The main program of tests that have processes signalled by their numbers. They see no processes but their own: a number that is wrong, such
 * as -1 for all of them, must do no harm to the machine on which a fault is looked for.
 */
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <iostream>

#include "private_root.h"

namespace {

constexpr int kNotRun = 77;

int ExitCodeOf(int status) {
    constexpr int kSignalled = 128;
    return WIFEXITED(status) ? WEXITSTATUS(status) : kSignalled + WTERMSIG(status);
}

/** Forks; in the child goes on, and in the parent waits for that child to end, whatever other children there are. */
void GoOnInChild() {
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        return;
    }
    int status = 0;
    for (pid_t ended = 0; ended != child;) {
        ended = wait(&status);
        if (ended < 0 && errno != EINTR) {
            _exit(1);
        }
    }
    _exit(ExitCodeOf(status));
}

/** The first process in the new namespace is spared some signals, so that the tests are the second. */
bool SeeOwnProcessesOnly() {
    if (unshare(CLONE_NEWPID) != 0) {
        return false;
    }
    GoOnInChild();
    mount("proc", "/proc", "proc", 0, nullptr);  // by its numbers; without it the leak sanitizer finds nobody
    GoOnInChild();
    return true;
}

}  // namespace

/** As the usual main program of tests, and in a process namespace of its own. */
int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN);
    testing::InitGoogleTest(&argc, argv);
    if (GTEST_FLAG_GET(list_tests)) {
        return RUN_ALL_TESTS();
    }
    std::string why;
    if (!ardv::test::EnterPrivateRoot({ARDV_SOURCE_DIR, ARDV_BINARY_DIR}, why)) {
        std::cerr << "not run: this machine grants no private root (" << why << ")\n";
        return kNotRun;
    }
    if (!SeeOwnProcessesOnly()) {
        std::cerr << "not run: this machine grants no processes apart (" << std::strerror(errno) << ")\n";
        return kNotRun;
    }
    return RUN_ALL_TESTS();
}
