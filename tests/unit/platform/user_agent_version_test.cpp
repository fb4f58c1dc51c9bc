// SPDX-License-Identifier: Apache-2.0
// The version that libardvplatform reports. Another platform is built apart from this project.
#include <ardv/user_agent.h>

#include <gtest/gtest.h>

#include <string>

namespace ARDV::Platform::Test {

TEST(UserAgentVersion, IsTheProjectsAndNotTheLibraryFiles) {
    char agent[256];
    ASSERT_EQ(ALIBHsinfoUserAgentGet("Tethra", agent, sizeof(agent), 0), 0);
    const std::string expected = "Tethra/" ARDV_VERSION " (";
    EXPECT_EQ(std::string(agent).substr(0, expected.size()), expected);
}

}  // namespace ARDV::Platform::Test
