// SPDX-License-Identifier: Apache-2.0
#include <csignal>
#include <cstring>

#include <gtest/gtest.h>

#include "private_root.h"

namespace {

/** Without a private root no test runs: each is reported as not run, by name. */
class PrivateRoot : public testing::Environment {
public:
    void SetUp() override {
        std::string why;
        if (!ardv::test::EnterPrivateRoot({ARDV_SOURCE_DIR, ARDV_BINARY_DIR}, why)) {
            GTEST_SKIP() << "not run: this machine grants no private root (" << why << ")";
        }
    }
};

}  // namespace

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN);  // a peer that goes away must not end the test
    testing::InitGoogleTest(&argc, argv);
    testing::AddGlobalTestEnvironment(new PrivateRoot);
    return RUN_ALL_TESTS();
}
