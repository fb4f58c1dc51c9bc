// SPDX-License-Identifier: Apache-2.0
// Where libardvplatform's own sources say that something failed. Another platform has sources of its own.
#include <ardv/error.h>

#include <gtest/gtest.h>

#include <ardv/key_value_file.h>
#include <ardv/user_agent.h>

namespace ARDV::Platform::Test {

namespace {

char buffer[8];

}  // namespace

TEST(PlaceOfAnError, IsTheSystemCallThatFailed) {
    ASSERT_LT(ALIBCFileGetKeyValue("/nowhere/at/all.conf", "key", buffer, sizeof(buffer), 0), 0);
    EXPECT_STREQ(ALIBCErrorGetFile(), "file.cpp");
    EXPECT_GT(ALIBCErrorGetLine(), 1);
}

TEST(PlaceOfAnError, IsTheFailedArgumentCheckOfTheCalledFunction) {
    ASSERT_LT(ALIBCFileSetKeyValue("/tmp/x.conf", "", "value", 0), 0);
    EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_INVALID_ARGUMENT);
    EXPECT_STREQ(ALIBCErrorGetFile(), "key_value_file.cpp");
    const int line = ALIBCErrorGetLine();

    ASSERT_LT(ALIBCFileGetKeyValue("/tmp/x.conf", "", buffer, sizeof(buffer), 0), 0);
    EXPECT_STREQ(ALIBCErrorGetFile(), "key_value_file.cpp");
    EXPECT_NE(ALIBCErrorGetLine(), line);

    ASSERT_LT(ALIBHsinfoUserAgentGet("", buffer, sizeof(buffer), 0), 0);
    EXPECT_STREQ(ALIBCErrorGetFile(), "user_agent.cpp");
}

}  // namespace ARDV::Platform::Test
