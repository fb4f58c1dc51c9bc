// SPDX-License-Identifier: Apache-2.0
#include <ardv/cloud_identity.h>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include <ardv/error.h>

#include "child_process.h"
#include "made_file.h"

namespace ARDV::Platform::Test {

namespace {

using namespace std::string_literals;

constexpr uid_t kUser = 1234;
constexpr uid_t kOtherUser = 4321;
constexpr const char* kIdentityFile = "/etc/ardv/identity.conf";
constexpr const char* kIdentity =
    "serial=\"AV220-0001\"\ntoken=\"0123456789abcdef0123456789abcdef\"\napi_key=\"Jefe\"\nmac=02:00:5E:10:00:AB\n";

struct SerialAndToken {
    int result;
    std::string serial;
    std::string token;
};

SerialAndToken GetToken(std::size_t serialSize = 36, std::size_t tokenSize = 33) {
    std::string serial(serialSize + 1, 'x');
    std::string token(tokenSize + 1, 'x');
    const int result = ARDVCloudServiceHstokenGetToken(serial.data(), serialSize, token.data(), tokenSize);
    EXPECT_EQ(serial[serialSize], 'x') << "written past the end";
    EXPECT_EQ(token[tokenSize], 'x') << "written past the end";
    return {result, serial.substr(0, serial.find('\0')), token.substr(0, token.find('\0'))};
}

void ExpectNoToken(int code, std::size_t serialSize = 36, std::size_t tokenSize = 33) {
    const SerialAndToken got = GetToken(serialSize, tokenSize);
    EXPECT_LT(got.result, 0);
    EXPECT_EQ(got.serial, "");
    EXPECT_EQ(got.token, "");
    EXPECT_EQ(ALIBCErrGet(), code);
}

/// What a function stores into a buffer; "(failure)" when it fails as documented, with an empty buffer.
template <typename Function>
std::string Stored(Function&& function) {
    char buffer[ARDV_API_KEY_SIZE] = "x";
    const int result = function(buffer);
    if (result == 0) {
        return buffer;
    }
    EXPECT_LT(result, 0);
    EXPECT_STREQ(buffer, "");
    return "(failure)";
}

std::string GenerateToken(const char* serial, std::size_t size = ARDV_TOKEN_SIZE) {
    return Stored([=](char* buffer) { return ARDVCloudServiceHstokenGenerateToken(serial, buffer, size); });
}

std::string ApiKey() {
    return Stored([](char* buffer) { return ARDVCloudServiceGetApiKey(buffer, 0); });
}

std::string Mac(std::size_t size = 1024) {
    return Stored([=](char* buffer) { return ARDVHsinfoCloudServiceGetMacAddress(buffer, size); });
}

void ExpectUnsafe() {
    ExpectNoToken(ARDV_ERR_UNSAFE_FILE);
    EXPECT_EQ(ApiKey(), "(failure)");
    EXPECT_EQ(GenerateToken("AV220-0001"), "(failure)");
    EXPECT_EQ(Mac(), "(failure)");
    EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_UNSAFE_FILE);
}

/// Gives the identity file to a user. False in a private root of an ordinary user, where no second user exists.
bool GiveFileTo(uid_t user) {
    return chown(kIdentityFile, user, 0) == 0;
}

/// Whether a process whose effective user this is gets the serial number and token: "yes", "unsafe", or what else
/// happened.
std::string IsReadBy(uid_t user) {
    const int result = ChildProcess([user] {
                           if (seteuid(user) != 0) {
                               return 2;
                           }
                           const bool got = GetToken().result == 0;
                           return got ? 0 : ALIBCErrGet() == ARDV_ERR_UNSAFE_FILE ? 1 : 3;
                       }).Wait();
    constexpr const char* kAnswers[] = {"yes", "unsafe", "no such user", "another failure"};
    return result < 4 ? kAnswers[result] : "died";
}

}  // namespace

class CloudIdentity : public testing::Test {
protected:
    void SetUp() override { Provide(kIdentity); }
    void TearDown() override { std::filesystem::remove(kIdentityFile); }

    static void Provide(const std::string& text) {
        WriteText(kIdentityFile, text);
        chmod(kIdentityFile, 0600);
    }
};

TEST_F(CloudIdentity, GivesSerialAndToken) {
    const SerialAndToken got = GetToken();
    EXPECT_EQ(got.result, 0);
    EXPECT_EQ(got.serial, "AV220-0001");
    EXPECT_EQ(got.token, "0123456789abcdef0123456789abcdef");
}

TEST_F(CloudIdentity, IsReadAnewByEachCall) {
    ASSERT_EQ(GetToken().serial, "AV220-0001");
    Provide("serial=AV220-0002\ntoken=t\n");
    EXPECT_EQ(GetToken().serial, "AV220-0002");
}

TEST_F(CloudIdentity, IsNeverCut) {
    EXPECT_EQ(GetToken(11, 33).result, 0);
    ExpectNoToken(ARDV_ERR_BUFFER_TOO_SMALL, 10, 33);
    ExpectNoToken(ARDV_ERR_BUFFER_TOO_SMALL, 36, 32);
    ExpectNoToken(ARDV_ERR_BUFFER_TOO_SMALL, 1, 1);
    Provide("serial=\"a\0b\"\ntoken=t\n"s);
    ExpectNoToken(ARDV_ERR_BAD_VALUE);
    Provide("serial=s\ntoken=\"a\0b\"\n"s);
    ExpectNoToken(ARDV_ERR_BAD_VALUE);
}

TEST_F(CloudIdentity, NeedsSerialAndToken) {
    for (const char* text : {"", "serial=s\n", "token=t\n", "serial=\ntoken=t\n", "serial=s\ntoken=\"\"\n"}) {
        Provide(text);
        ExpectNoToken(ARDV_ERR_NO_VALUE);
    }
}

TEST_F(CloudIdentity, FailsWithoutItsFile) {
    std::filesystem::remove(kIdentityFile);
    ExpectNoToken(ARDV_ERR_NOT_FOUND);
    EXPECT_EQ(ApiKey(), "(failure)");
    EXPECT_EQ(GenerateToken("AV220-0001"), "(failure)");
    EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_NOT_FOUND);
}

TEST_F(CloudIdentity, FailsOnAFileBeyondItsBound) {
    Provide(kIdentity + std::string(65536, '#'));
    ExpectNoToken(ARDV_ERR_TOO_LARGE);
}

TEST_F(CloudIdentity, FailsOnAFileThatIsLongerThanItSays) {
    if (!std::filesystem::exists("/proc/kallsyms")) {
        GTEST_SKIP() << "needs a kernel with a symbol list";
    }
    std::filesystem::remove(kIdentityFile);
    std::filesystem::create_symlink("/proc/kallsyms", kIdentityFile);
    ASSERT_EQ(std::filesystem::file_size(kIdentityFile), 0U);
    ExpectNoToken(ARDV_ERR_TOO_LARGE);
}

TEST_F(CloudIdentity, IsRefusedWhenOthersCouldHaveWrittenIt) {
    for (const mode_t mode : {0620U, 0602U, 0666U}) {
        ASSERT_EQ(chmod(kIdentityFile, mode), 0);
        ExpectUnsafe();
    }
}

TEST_F(CloudIdentity, IsRefusedWhenItBelongsToAnotherUser) {
    if (!GiveFileTo(kUser)) {
        GTEST_SKIP() << "needs root";
    }
    ExpectUnsafe();
    ASSERT_EQ(chmod(kIdentityFile, 0644), 0);
    EXPECT_EQ(IsReadBy(kOtherUser), "unsafe");
}

TEST_F(CloudIdentity, IsAcceptedWhenItBelongsToTheEffectiveUserOrToRoot) {
    if (!GiveFileTo(kUser)) {
        GTEST_SKIP() << "needs root";
    }
    EXPECT_EQ(IsReadBy(kUser), "yes");
    ASSERT_TRUE(GiveFileTo(0));
    ASSERT_EQ(chmod(kIdentityFile, 0644), 0);
    EXPECT_EQ(IsReadBy(kUser), "yes");
}

TEST_F(CloudIdentity, IsJudgedByTheFileBehindALink) {
    const ScratchFolder folder;
    const std::string target = MakeFile(folder, "identity.conf", kIdentity);
    std::filesystem::remove(kIdentityFile);
    std::filesystem::create_symlink(target, kIdentityFile);
    ASSERT_EQ(chmod(target.c_str(), 0600), 0);
    EXPECT_EQ(GetToken().result, 0);
    ASSERT_EQ(chmod(target.c_str(), 0602), 0);
    ExpectUnsafe();
}

TEST_F(CloudIdentity, IsAcceptedWhenOthersMayReadIt) {
    ASSERT_EQ(chmod(kIdentityFile, 0644), 0);
    EXPECT_EQ(GetToken().result, 0);
}

TEST_F(CloudIdentity, LeavesNullBuffersAndThoseOfNoSizeAlone) {
    char text[40] = "x";
    EXPECT_LT(ARDVCloudServiceHstokenGetToken(nullptr, 36, text, sizeof(text)), 0);
    EXPECT_STREQ(text, "");
    text[0] = 'x';
    EXPECT_LT(ARDVCloudServiceHstokenGetToken(text, sizeof(text), nullptr, 33), 0);
    EXPECT_STREQ(text, "");
    text[0] = 'x';
    EXPECT_LT(ARDVCloudServiceHstokenGetToken(text, 0, text, 0), 0);
    EXPECT_LT(ARDVCloudServiceHstokenGenerateToken("s", text, 0), 0);
    EXPECT_LT(ARDVHsinfoCloudServiceGetMacAddress(text, 0), 0);
    EXPECT_STREQ(text, "x");
    EXPECT_LT(ARDVCloudServiceHstokenGenerateToken("s", nullptr, 33), 0);
    EXPECT_LT(ARDVHsinfoCloudServiceGetMacAddress(nullptr, 33), 0);
    EXPECT_LT(ARDVCloudServiceGetApiKey(nullptr, 0), 0);
    EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_INVALID_ARGUMENT);
}

// RFC 4231, test case 2: key "Jefe", data "what do ya want for nothing?".
TEST_F(CloudIdentity, GeneratesTheTokenAsAKeyedDigestOfTheSerial) {
    EXPECT_EQ(GenerateToken("what do ya want for nothing?"), "5bdcc146bf60754e6a042426089575c7");
}

TEST_F(CloudIdentity, GeneratesOneTokenForEachSerialAndKey) {
    const std::string first = GenerateToken("AV220-0001");
    EXPECT_EQ(first.size(), 32U);
    EXPECT_EQ(GenerateToken("AV220-0001"), first);
    EXPECT_NE(GenerateToken("AV220-0002"), first);
    Provide("api_key=other\n");
    EXPECT_NE(GenerateToken("AV220-0001"), first);
}

TEST_F(CloudIdentity, RefusesToGenerateATokenWithoutSerialKeyOrRoom) {
    EXPECT_EQ(GenerateToken(nullptr), "(failure)");
    EXPECT_EQ(GenerateToken(""), "(failure)");
    EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(GenerateToken("s", 32), "(failure)");
    EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_BUFFER_TOO_SMALL);
    Provide("serial=s\ntoken=t\n");
    EXPECT_EQ(GenerateToken("s"), "(failure)");
    EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_NO_VALUE);
}

TEST_F(CloudIdentity, GivesTheApiKey) {
    EXPECT_EQ(ApiKey(), "Jefe");
    const std::string longest(ARDV_API_KEY_SIZE - 1, 'k');
    Provide("api_key=" + longest);
    EXPECT_EQ(ApiKey(), longest);
    Provide("api_key=k" + longest);
    EXPECT_EQ(ApiKey(), "(failure)");
    EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_BUFFER_TOO_SMALL);
    Provide("api_key=\n");
    EXPECT_EQ(ApiKey(), "(failure)");
    EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_NO_VALUE);
}

TEST_F(CloudIdentity, RefusesUnknownFlagsForTheApiKey) {
    EXPECT_EQ(Stored([](char* buffer) { return ARDVCloudServiceGetApiKey(buffer, 1); }), "(failure)");
    EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_INVALID_ARGUMENT);
}

TEST_F(CloudIdentity, GivesTheConfiguredMacInOneForm) {
    for (const char* text : {"02:00:5E:10:00:AB", "02-00-5e-10-00-ab", "02005e1000AB", "\" 02:00:5e:10:00:ab\""}) {
        Provide("mac="s + text + "\n");
        const bool isExact = text[0] != '"';
        EXPECT_EQ(Mac(), isExact ? "02:00:5e:10:00:ab" : "(failure)") << text;
    }
}

TEST_F(CloudIdentity, RefusesAMacThatIsNotOneDevices) {
    for (const char* text : {"02:00:5e:10:00", "02:00:5e:10:00:a", "02:00:5e-10:00:ab", "02:00:5e:10:00:ag",
                             "02 00 5e 10 00 ab", "00:00:00:00:00:00", "01:00:5e:10:00:ab", "ff:ff:ff:ff:ff:ff",
                             "02:00:5e:10:00:ab:cd", "02005e1000a", "0200:5e10:00ab", "x"}) {
        Provide("mac=\""s + text + "\"\n");
        EXPECT_EQ(Mac(), "(failure)") << text;
        EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_BAD_VALUE) << text;
    }
}

TEST_F(CloudIdentity, NeedsRoomForTheWholeMac) {
    EXPECT_EQ(Mac(ARDV_MAC_SIZE), "02:00:5e:10:00:ab");
    EXPECT_EQ(Mac(ARDV_MAC_SIZE - 1), "(failure)");
    EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_BUFFER_TOO_SMALL);
}

}  // namespace ARDV::Platform::Test
