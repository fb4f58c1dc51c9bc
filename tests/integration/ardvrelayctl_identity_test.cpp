// SPDX-License-Identifier: Apache-2.0
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <vector>

#include <ardv/cloud_identity.h>

#include "ardvrelayctl_device.h"

namespace ardv::test {
namespace {

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

constexpr const char kToken[] = "0123456789abcdef0123456789abcdef";
constexpr const char kApiKey[] = "example-api-key";

/** A kernel, for this process and the programs that it runs, that answers these calls with an error. */
bool Withhold(const std::vector<unsigned>& calls, unsigned error) {
    std::vector<sock_filter> filter = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
    for (const unsigned call : calls) {
        filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1));
        filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | error));
    }
    filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    const sock_fprog program = {static_cast<unsigned short>(filter.size()), filter.data()};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

std::vector<unsigned> LinkCalls() {
#ifdef SYS_link
    return {SYS_link, SYS_linkat};
#else
    return {SYS_linkat};
#endif
}

class ArdvrelayctlIdentity : public ArdvrelayctlDevice {
protected:
    ArdvrelayctlIdentity() { std::filesystem::create_directories("/root"); }

    static ProgramResult Identity(std::vector<std::string> arguments, const std::string& input = "") {
        arguments.insert(arguments.begin(), "identity");
        return Run(std::move(arguments), input);
    }

    static ProgramResult Init(std::vector<std::string> arguments = {}, const std::string& input = "") {
        arguments.insert(arguments.begin(), {"init", "--mac", "02:00:5e:10:00:02"});
        return Identity(std::move(arguments), input);
    }

    /** The files beside the identity, which is none. */
    static std::size_t FilesOfTheFolder() {
        const std::filesystem::directory_iterator folder("/etc/ardv");
        return static_cast<std::size_t>(std::distance(begin(folder), end(folder)));
    }
};

TEST_F(ArdvrelayctlIdentity, ShowsWhoTheDeviceIsWithoutItsSecrets) {
    const auto result = Identity({"show"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(
        result.out,
        "serial: AV0000000001\nmac: 02:00:5e:10:00:01\nmodel: AV-220\ntimezone: Amsterdam\ntoken: ***\napi_key: ***\n");
    const auto shown = RunJson({"identity", "show"});
    EXPECT_EQ(shown["token"], "***");
    EXPECT_EQ(shown["api_key"], "***");
    EXPECT_EQ(shown["valid"], true);
    const auto verbose = Run({"--verbose", "identity", "show"});
    for (const char* secret : {kToken, kApiKey}) {
        EXPECT_THAT(verbose.out + verbose.err, Not(HasSubstr(secret)));
    }
    EXPECT_THAT(Identity({"show", "--show-secrets"}).out,
                HasSubstr(std::string("token: ") + kToken + "\napi_key: " + kApiKey + "\n"));
}

TEST_F(ArdvrelayctlIdentity, SaysWhatIsMissing) {
    WriteText(kIdentityFile, "serial=\"A\"\ntoken=\"b\"\n");
    EXPECT_THAT(Identity({"show"}).out, HasSubstr("api_key: (none)\n"));
    EXPECT_THAT(Identity({"show"}).err, HasSubstr("no MAC address"));
    std::filesystem::remove(kIdentityFile);
    const auto result = Identity({"show"});
    EXPECT_EQ(result.exitCode, 78);
    EXPECT_THAT(result.out, HasSubstr("serial: (none)\n"));
    EXPECT_THAT(result.err, HasSubstr("'ardvrelayctl identity init' makes one"));
    std::filesystem::remove(kFactorySettings);
    const auto report = RunJson({"identity", "show"});
    EXPECT_EQ(report["valid"], false);
    EXPECT_EQ(report["exit_code"], 78);
    EXPECT_THAT(report["error"].asString(), HasSubstr("upnpmodelname=\"MODEL\""));
}

TEST_F(ArdvrelayctlIdentity, MakesAnIdentityThatTheLibraryTakes) {
    std::filesystem::remove_all("/etc/ardv");
    const auto result = Init();
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_THAT(result.out, MatchesRegex("made /etc/ardv/identity.conf for the serial number "
                                         "ARDV(-[0-9A-HJKMNP-TV-Z]{4}){3}\n"));
    EXPECT_EQ(ModeOf(kIdentityFile), 0600U);
    EXPECT_EQ(ModeOf("/etc/ardv"), 0755U);
    EXPECT_EQ(FilesOfTheFolder(), 1U) << "nothing else is left";
    EXPECT_THAT(ReadText(kIdentityFile),
                MatchesRegex("#[^\n]*\nserial=\"ARDV-[^\n]*\"\ntoken=\"[0-9a-f]{32}\"\napi_key=\"[0-9a-f]{64}\"\n"
                             "mac=\"02:00:5e:10:00:02\"\n"));
    const auto shown = RunJson({"identity", "show"});
    EXPECT_EQ(shown["valid"], true);
    EXPECT_EQ(shown["mac"], "02:00:5e:10:00:02");
}

TEST_F(ArdvrelayctlIdentity, MakesTheTokenThatThePlatformWouldMake) {
    std::filesystem::remove(kIdentityFile);
    Init({"--serial", "AV220-000001", "--api-key-file", "-"}, "k\"e\\y\n");
    std::array<char, ARDV_TOKEN_SIZE> token = {};
    ASSERT_EQ(ARDVCloudServiceHstokenGenerateToken("AV220-000001", token.data(), token.size()), 0);
    EXPECT_EQ(RunJson({"identity", "show", "--show-secrets"})["token"], token.data());
    std::array<char, ARDV_API_KEY_SIZE> key = {};
    ASSERT_EQ(ARDVCloudServiceGetApiKey(key.data(), 0), 0);
    EXPECT_STREQ(key.data(), "k\"e\\y");
}

TEST_F(ArdvrelayctlIdentity, MakesAnotherOneEachTime) {
    Init({"--force"});
    const auto first = ReadText(kIdentityFile);
    Init({"--force"});
    EXPECT_NE(ReadText(kIdentityFile), first);
}

TEST_F(ArdvrelayctlIdentity, NeverReplacesAnIdentityUnlessItIsForced) {
    const std::string text = ReadText(kIdentityFile);
    const auto result = Init();
    EXPECT_EQ(result.exitCode, 73);
    EXPECT_THAT(result.err, HasSubstr("--force"));
    EXPECT_EQ(ReadText(kIdentityFile), text);
    std::filesystem::remove(kIdentityFile);
    std::filesystem::create_symlink("/etc/nowhere", kIdentityFile);
    EXPECT_EQ(Init().exitCode, 73) << "a link that leads nowhere is one, too";
    EXPECT_EQ(Init({"--force"}).exitCode, 0);
    EXPECT_FALSE(std::filesystem::is_symlink(kIdentityFile));
    EXPECT_FALSE(std::filesystem::exists("/etc/nowhere"));
    EXPECT_EQ(ModeOf(kIdentityFile), 0600U);
    EXPECT_EQ(FilesOfTheFolder(), 1U);
}

TEST_F(ArdvrelayctlIdentity, IsMadeOnAFileSystemWithoutLinks) {
    std::filesystem::remove(kIdentityFile);
    ASSERT_TRUE(Withhold(LinkCalls(), EPERM));
    const auto result = Init();
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(ModeOf(kIdentityFile), 0600U);
    EXPECT_EQ(Init().exitCode, 73) << "and is not replaced";
    EXPECT_EQ(FilesOfTheFolder(), 1U);
}

class ArdvrelayctlOldKernel : public ArdvrelayctlIdentity, public testing::WithParamInterface<unsigned> {};

TEST_P(ArdvrelayctlOldKernel, MakesAnIdentityAndNeverReplacesOne) {
    std::filesystem::remove(kIdentityFile);
    ASSERT_TRUE(Withhold({SYS_renameat2}, GetParam()));
    const auto result = Init();
    EXPECT_EQ(result.exitCode, 0) << result.err;
    const std::string text = ReadText(kIdentityFile);
    EXPECT_EQ(Init().exitCode, 73);
    EXPECT_EQ(ReadText(kIdentityFile), text);
    EXPECT_EQ(FilesOfTheFolder(), 1U);
}

INSTANTIATE_TEST_SUITE_P(EachAnswer, ArdvrelayctlOldKernel, testing::Values(EINVAL, ENOSYS),
                         [](const auto& each) { return each.param == EINVAL ? "NoSuchFlag" : "NoSuchCall"; });

TEST_F(ArdvrelayctlIdentity, NeverShowsTheSecretsThatItMakes) {
    for (const auto& arguments : std::vector<std::vector<std::string>>{{"--force"}, {"--force", "--json"}}) {
        const auto result = Init(arguments);
        const auto shown = RunJson({"identity", "show", "--show-secrets"});
        for (const char* secret : {"token", "api_key"}) {
            EXPECT_FALSE(shown[secret].asString().empty());
            EXPECT_THAT(result.out + result.err, Not(HasSubstr(shown[secret].asString())));
        }
    }
}

TEST_F(ArdvrelayctlIdentity, KeepsAnApiKeyClosed) {
    WriteText("/root/key", "s3cret\n");
    std::filesystem::permissions("/root/key", std::filesystem::perms(0644));
    const auto result = Init({"--force", "--api-key-file", "/root/key"});
    EXPECT_EQ(result.exitCode, 78);
    EXPECT_THAT(result.err, HasSubstr("is open to other users"));
    std::filesystem::permissions("/root/key", std::filesystem::perms(0600));
    EXPECT_EQ(Init({"--force", "--api-key-file", "/root/key"}).exitCode, 0);
    EXPECT_THAT(ReadText(kIdentityFile), HasSubstr("api_key=\"s3cret\"\n"));
    for (const std::string& wrong : {std::string("two words"), std::string(1024, 'x'), std::string("\xC3\xBC")}) {
        const auto refused = Init({"--force", "--api-key-file", "-"}, wrong + "\n");
        EXPECT_EQ(refused.exitCode, 78);
        EXPECT_THAT(refused.err, HasSubstr("an API key has"));
    }
    EXPECT_THAT(ReadText(kIdentityFile), HasSubstr("api_key=\"s3cret\"\n")) << "and is left as it is";
}

TEST_F(ArdvrelayctlIdentity, TakesAnApiKeyWholeOrNotAtAll) {
    for (const std::string& wrong : {std::string("s3cret\rrest"), std::string("s3cret\0rest", 11),
                                     std::string("s3cret\0", 7), std::string("s3cret\r\r")}) {
        const auto refused = Init({"--force", "--api-key-file", "-"}, wrong + "\n");
        EXPECT_EQ(refused.exitCode, 78);
        EXPECT_THAT(refused.err, HasSubstr("standard input has a carriage return or a NUL byte in it"));
        EXPECT_THAT(ReadText(kIdentityFile), Not(HasSubstr("s3cret")));
    }
    EXPECT_EQ(Init({"--force", "--api-key-file", "-"}, "s3cret\r\n").exitCode, 0) << "the line end of some editors";
    EXPECT_THAT(ReadText(kIdentityFile), HasSubstr("api_key=\"s3cret\"\n"));
}

TEST_F(ArdvrelayctlIdentity, NamesOptionsThatItDoesNotKnowWithoutTheirValues) {
    for (const auto& arguments :
         std::vector<std::vector<std::string>>{{"--password", "s3cret"}, {"--password=s3cret"}}) {
        auto command = arguments;
        command.insert(command.begin(), {"alias", "map", "--json"});
        const auto result = Run(command);
        EXPECT_EQ(result.exitCode, 64);
        EXPECT_THAT(result.err, HasSubstr("not expected: --password\n"));
        EXPECT_EQ(JsonOf(result.out)["error"], "an argument was not expected: --password");
        EXPECT_THAT(result.out + result.err, Not(HasSubstr("s3cret")));
    }
}

TEST_F(ArdvrelayctlIdentity, RefusesWrongSerialNumbersAndAddresses) {
    const std::string text = ReadText(kIdentityFile);
    for (const std::string& serial : {std::string(), std::string(36, 'x'), std::string("a b"), std::string("a\"b"),
                                      std::string("a\nb"), std::string("\xC3\xBC")}) {
        EXPECT_EQ(Init({"--force", "--serial", serial}).exitCode, 64) << serial;
    }
    for (const char* mac : {"", "00:00:00:00:00:00", "01:00:5e:10:00:01", "02:00:5e:10:00", "02:00:5e:10:00:0g",
                            "0200:5e:10:00:01", "02:00:5e:10:00:01:", ":::::0200 5e100001"}) {
        EXPECT_EQ(Identity({"init", "--force", "--mac", mac}).exitCode, 64) << mac;
    }
    EXPECT_EQ(ReadText(kIdentityFile), text);
    EXPECT_EQ(Init({"--force", "--serial", std::string(35, 'x')}).exitCode, 0);
    for (const char* mac : {"02-00-5e-10-00-01", "02005E100001"}) {
        EXPECT_EQ(Identity({"init", "--force", "--mac", mac}).exitCode, 0) << mac;
    }
}

TEST_F(ArdvrelayctlIdentity, LeavesNothingHalfMadeWhereItCannotWrite) {
    std::filesystem::remove_all("/etc/ardv");
    WriteText("/etc/ardv", "a file in the folder's place");
    const auto result = Init();
    EXPECT_EQ(result.exitCode, 73);
    EXPECT_THAT(result.err, HasSubstr("cannot write /etc/ardv/"));
    EXPECT_EQ(ReadText("/etc/ardv"), "a file in the folder's place");
    std::filesystem::remove("/etc/ardv");
    std::filesystem::create_directories(kIdentityFile);
    EXPECT_EQ(Init({"--force"}).exitCode, 73) << "a folder in the file's place";
    EXPECT_EQ(FilesOfTheFolder(), 1U);
    std::filesystem::remove_all("/etc/ardv");
}

TEST_F(ArdvrelayctlIdentity, WarnsOfWhatElseANewIdentityNeeds) {
    std::filesystem::remove(kIdentityFile);
    std::filesystem::remove(kFactorySettings);
    const auto result = Init();
    EXPECT_EQ(result.exitCode, 0) << "the identity is made";
    EXPECT_THAT(result.out, HasSubstr("made /etc/ardv/identity.conf"));
    EXPECT_THAT(result.err, HasSubstr("ardvrelayctl: warning: the device has no identity without"));
    EXPECT_THAT(result.err, HasSubstr("/etc.defaults/ardvinfo.conf"));
    WriteText(kFactorySettings, "upnpmodelname=\"AV-220\"\n");
    const auto json = Identity({"init", "--force", "--json"});
    EXPECT_EQ(json.exitCode, 0);
    const auto report = JsonOf(json.out);
    EXPECT_EQ(report["file"], kIdentityFile);
    EXPECT_EQ(report["valid"], false);
    EXPECT_THAT(report["warning"].asString(), HasSubstr("identity init --mac")) << "there is no wired interface";
    EXPECT_FALSE(report.isMember("error"));
    EXPECT_FALSE(JsonOf(Init({"--force", "--json"}).out).isMember("warning"));
}

}  // namespace
}  // namespace ardv::test
