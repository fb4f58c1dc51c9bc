// SPDX-License-Identifier: Apache-2.0
#include <sys/stat.h>

#include <cstdint>
#include <cstring>
#include <set>
#include <string>
#include <utility>

#include <openssl/evp.h>

#include <relay/utils/utils.h>

#include "support/device_test.h"
#include "support/platform_faults.h"
#include "support/scratch_folder.h"

namespace ARDV::Relay::Utils {

namespace {

using namespace ardv::test;
using testing::ElementsAre;
using testing::IsEmpty;

std::uint32_t NumberOf(const char (&bytes)[5]) {
    std::uint32_t number = 0;
    std::memcpy(&number, bytes, sizeof number);
    return number;
}

TEST(Random, DrawsDifferentNumbers) {
    const CapturedLog log;
    std::set<std::uint32_t> drawn;
    for (int i = 0; i < 8; ++i) {
        drawn.insert(Random());
    }
    EXPECT_GT(drawn.size(), 1U);
    EXPECT_EQ(log.Text(), "");
}

TEST(Random, IsFourBytesOfTheKernelsDeviceInTheMachinesOrder) {
    const ScratchFolder folder;
    WriteText(folder.File("bytes"), "\x01\x80\xfe\x7f and more");
    const MountedFile device(folder.File("bytes"), "/dev/urandom");
    EXPECT_EQ(Random(), NumberOf("\x01\x80\xfe\x7f"));
}

TEST(Random, IsZeroWithAMessageOfLevelThreeWithoutTheDevice) {
    const MountedDisk emptyDevices("/dev", 4096);
    const CapturedLog log(3);
    EXPECT_EQ(Random(), 0U);
    EXPECT_THAT(log.Lines(), ElementsAre("utils.cpp:106 failed to open /dev/urandom"));
    EXPECT_THAT(MessagesAt(2, Random), IsEmpty());
}

TEST(Random, ReturnsWhatCameWithAMessageOfLevelThreeWhereBytesAreMissing) {
    const ScratchFolder folder;
    WriteText(folder.File("bytes"), "\x01\x02");
    const MountedFile device(folder.File("bytes"), "/dev/urandom");
    const CapturedLog log(3);
    EXPECT_EQ(Random(), NumberOf("\x01\x02\0\0"));
    EXPECT_THAT(log.Lines(), ElementsAre("utils.cpp:112 failed to read bytes from /dev/urandom"));
    EXPECT_THAT(MessagesAt(2, Random), IsEmpty());
}

TEST(Random, IsZeroWithAMessageWhereTheDeviceCannotBeRead) {
    PlatformFaults faults;
    faults.readFails = true;
    const CapturedLog log;
    EXPECT_EQ(Random(), 0U);
    EXPECT_THAT(faults.inheritable, IsEmpty());
    EXPECT_THAT(log.Lines(), ElementsAre("utils.cpp:112 failed to read bytes from /dev/urandom"));
}

TEST(Random, LeavesNoDescriptorBehind) {
    const auto before = OpenDescriptors();
    Random();
    EXPECT_EQ(OpenDescriptors(), before);
}

class Md5 : public testing::TestWithParam<std::pair<std::string, std::string>> {};

TEST_P(Md5, IsThatOfTheStandardInLowerCase) {
    const auto& [text, digest] = GetParam();
    EXPECT_EQ(GetMD5Hex(text.data(), text.size()), digest);
}

INSTANTIATE_TEST_SUITE_P(
    Vectors, Md5,
    testing::Values(std::pair("", "d41d8cd98f00b204e9800998ecf8427e"),
                    std::pair("a", "0cc175b9c0f1b6a831c399e269772661"),
                    std::pair("abc", "900150983cd24fb0d6963f7d28e17f72"),
                    std::pair("message digest", "f96b697d7cb7938d525a2f31aaf161d0"),
                    std::pair("abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"),
                    std::pair("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
                              "d174ab98d277d9f5a5611c2c9f419d9f"),
                    std::pair("1234567890123456789012345678901234567890123456789012345678901234567890"
                              "1234567890",
                              "57edf4a22be3c955ac49da2e2107b67a")),
    [](const auto& vector) { return "Of" + std::to_string(vector.param.first.size()) + "Bytes"; });

TEST(Md5, TakesBytesPastANul) {
    EXPECT_EQ(GetMD5Hex("\0", 1), "93b885adfe0da089cdf634904fd59f71");
    EXPECT_NE(GetMD5Hex("a\0b", 3), GetMD5Hex("a", 1));
}

TEST(Md5, OfNothingNeedsNoData) {
    EXPECT_EQ(GetMD5Hex(nullptr, 0), "d41d8cd98f00b204e9800998ecf8427e");
}

TEST(Md5, IsEmptyWhereTheLibraryRefusesIt) {
    ASSERT_EQ(EVP_set_default_properties(nullptr, "fips=yes"), 1);
    const auto digest = GetMD5Hex("a", 1);
    ASSERT_EQ(EVP_set_default_properties(nullptr, ""), 1);
    EXPECT_EQ(digest, "");
    EXPECT_EQ(GetMD5Hex("a", 1).size(), 32U);
}

TEST(DeviceIdentifier, IsTheMd5OfTheText) {
    EXPECT_EQ(GetNuid("abc"), "900150983cd24fb0d6963f7d28e17f72");
}

TEST(DeviceIdentifier, OfAnEmptyTextIsTheMd5OfNothing) {
    EXPECT_EQ(GetNuid(""), "d41d8cd98f00b204e9800998ecf8427e");
}

TEST(DeviceIdentifier, EndsAtTheFirstNulByte) {
    EXPECT_EQ(GetNuid(std::string("abc\0def", 7)), GetNuid("abc"));
    EXPECT_EQ(GetNuid(std::string("\0def", 4)), GetNuid(""));
}

class FailoverSwitch : public testing::TestWithParam<std::pair<const char*, bool>> {};

TEST_P(FailoverSwitch, IsOnExactlyWhereTheSettingIsTrue) {
    const auto& [settings, isOn] = GetParam();
    WriteText(kDeviceSettings, settings);
    EXPECT_EQ(IsFailoverEnable(), isOn);
}

INSTANTIATE_TEST_SUITE_P(Settings, FailoverSwitch,
                         testing::Values(std::pair("tethra_enable_failover=\"true\"\n", true),
                                         std::pair("tethra_enable_failover=true", true),
                                         std::pair("tethra_enable_failover=\"false\"\n", false),
                                         std::pair("tethra_enable_failover=\"True\"\n", false),
                                         std::pair("tethra_enable_failover=\"yes\"\n", false),
                                         std::pair("tethra_enable_failover=\"\"\n", false),
                                         std::pair("other=\"true\"\n", false), std::pair("", false)));

TEST(FailoverSwitchFile, IsOnForNoOtherAnswerThanOne) {
    PlatformFaults faults;
    for (const int result : {-1, 0, 2}) {
        faults.keyValueResult = result;
        EXPECT_FALSE(IsFailoverEnable()) << result;
    }
    faults.keyValueResult = 1;
    EXPECT_TRUE(IsFailoverEnable());
}

TEST(FailoverSwitchFile, MissingIsOff) {
    std::remove(kDeviceSettings);
    PlatformFaults faults;
    EXPECT_FALSE(IsFailoverEnable());
    EXPECT_THAT(faults.calls, ElementsAre("CheckKeyValue /etc/ardvinfo.conf tethra_enable_failover true 0"));
}

}  // namespace

}  // namespace ARDV::Relay::Utils
