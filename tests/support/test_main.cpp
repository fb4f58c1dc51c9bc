// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <csignal>
#include <iostream>

#include "private_root.h"

/** Runs the tests in a private root. Without one none of them runs, and the exit code tells the test runner so. */
int main(int argc, char** argv) {
    constexpr int kNotRun = 77;
    std::signal(SIGPIPE, SIG_IGN);  // a peer that goes away must not end the test
    testing::InitGoogleTest(&argc, argv);
    std::string why;
    if (!GTEST_FLAG_GET(list_tests) && !ardv::test::EnterPrivateRoot({ARDV_SOURCE_DIR, ARDV_BINARY_DIR}, why)) {
        std::cerr << "not run: this machine grants no private root (" << why << ")\n";
        return kNotRun;
    }
    return RUN_ALL_TESTS();
}
