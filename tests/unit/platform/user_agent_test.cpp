// SPDX-License-Identifier: Apache-2.0
#include <ardv/user_agent.h>

#include <gtest/gtest.h>
#include <sys/utsname.h>

#include <array>
#include <cstring>
#include <regex>
#include <string>

#include <ardv/error.h>

namespace ARDV::Platform::Test {

namespace {

using Buffer = std::array<char, 1024>;

std::string UserAgent(const char* product) {
    Buffer buffer;
    buffer.fill('x');
    return ALIBHsinfoUserAgentGet(product, buffer.data(), buffer.size(), 0) == 0 ? buffer.data() : "(failure)";
}

void ExpectRefused(const char* product, int flags = 0) {
    Buffer buffer;
    buffer.fill('x');
    EXPECT_LT(ALIBHsinfoUserAgentGet(product, buffer.data(), buffer.size(), flags), 0);
    EXPECT_STREQ(buffer.data(), "");
    EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_INVALID_ARGUMENT);
}

}  // namespace

TEST(UserAgent, NamesProductVersionAndMachine) {
    utsname system{};
    ASSERT_EQ(uname(&system), 0);
    const std::regex form("Tethra/[0-9]+[.][0-9]+[.][0-9]+ [(]Linux (.+)[)]");
    std::smatch match;
    const std::string agent = UserAgent("Tethra");
    ASSERT_TRUE(std::regex_match(agent, match, form)) << agent;
    EXPECT_EQ(match[1], system.machine);
}

TEST(UserAgent, StaysTheSameForTheLifeOfTheProcess) {
    const std::string first = UserAgent("Tethra");
    for (int call = 0; call < 100; ++call) {
        ASSERT_EQ(UserAgent("Tethra"), first);
    }
    EXPECT_EQ(UserAgent("Other"), "Other" + first.substr(std::strlen("Tethra")));
}

TEST(UserAgent, IsCutToTheBuffer) {
    const std::string whole = UserAgent("Tethra");
    for (std::size_t size = 1; size <= whole.size() + 1; ++size) {
        std::string buffer(size + 1, 'x');
        ASSERT_EQ(ALIBHsinfoUserAgentGet("Tethra", buffer.data(), size, 0), 0);
        ASSERT_EQ(buffer.c_str(), whole.substr(0, size - 1));
        ASSERT_EQ(buffer[size], 'x') << "written past the end";
    }
}

TEST(UserAgent, CutsAProductThatIsLongerThanTheBuffer) {
    EXPECT_EQ(UserAgent(std::string(5000, 'p').c_str()), std::string(1023, 'p'));
}

TEST(UserAgent, RefusesBadArguments) {
    char buffer[8] = "x";
    EXPECT_LT(ALIBHsinfoUserAgentGet("Tethra", nullptr, 8, 0), 0);
    EXPECT_LT(ALIBHsinfoUserAgentGet("Tethra", buffer, 0, 0), 0);
    EXPECT_STREQ(buffer, "x") << "a buffer of size 0 must not be touched";
    ExpectRefused(nullptr);
    ExpectRefused("");
    ExpectRefused("Tethra", 1);
}

TEST(UserAgent, RefusesAProductThatCouldSmuggleInAHeader) {
    for (const char* product : {"Tethra\r\nX-Evil: 1", "Tethra\n", "\tTethra", "Tethra\x7f", "\x01"}) {
        ExpectRefused(product);
    }
}

TEST(UserAgent, TakesFormatCharactersOfTheProductLiterally) {
    EXPECT_EQ(UserAgent("%s%n").rfind("%s%n/", 0), 0U);
}

}  // namespace ARDV::Platform::Test
