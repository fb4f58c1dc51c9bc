// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include <ardv/error.h>
#include <ardv/system_service.h>

#include "error_mark.h"
#include "made_file.h"

namespace ARDV::Platform::Test {

namespace {

namespace fs = std::filesystem;

constexpr const char* kFile = "/etc/inetd.conf";
constexpr const char* kFolder = "/etc/inetd.d";

struct InetdText {
    const char* name;
    std::string text;
    int result;
};

void PrintTo(const InetdText& text, std::ostream* stream) {
    *stream << text.name;
}

std::string NameOf(const testing::TestParamInfo<InetdText>& info) {
    return info.param.name;
}

const std::string kTelnet = "telnet stream tcp nowait root /usr/sbin/in.telnetd in.telnetd\n";

const std::vector<InetdText> kTexts = {
    {"TheServerItself", "telnet stream tcp nowait root /usr/sbin/telnetd telnetd -i\n", 1},
    {"TheServerWithItsInternetName", kTelnet, 1},
    {"TheServerWithoutArguments", "telnet\tstream tcp  nowait root /usr/sbin/in.telnetd", 1},
    {"TheServerBehindTheAccessCheck", "telnet stream tcp nowait telnetd /usr/sbin/tcpd /usr/sbin/in.telnetd\n", 1},
    {"TheServerAsAnAppletOfMany", "telnet stream tcp nowait root /bin/busybox telnetd\n", 1},
    {"AnotherServiceRunningTheServer", "debug stream tcp6 nowait.40 root.adm telnetd\n", 1},
    {"AnEntryAfterOthers", "# services\n\nftp stream tcp nowait root /usr/sbin/tcpd in.ftpd\n" + kTelnet, 1},
    {"LinesThatEndWithCarriageReturn", "telnet stream tcp nowait root telnetd\r\n", 1},
    {"AnIndentedEntry", " \t" + kTelnet, 1},
    {"AComment", "#" + kTelnet, 0},
    {"AnIndentedComment", "  # " + kTelnet, 0},
    {"AnEntrySwitchedOff", "#<off># " + kTelnet, 0},
    {"AnEntryThatIsTooShort", "telnet stream tcp nowait root\n", 0},
    {"TheNameAsUserOnly", "telnet stream tcp nowait telnetd /usr/sbin/other telnetd\n", 0},
    {"AnotherServerBehindTheAccessCheck", "telnet stream tcp nowait root /usr/sbin/tcpd in.ftpd telnetd\n", 0},
    {"TheAccessCheckWithoutAServer", "telnet stream tcp nowait root /usr/sbin/tcpd\n", 0},
    {"ALongerName", "telnet stream tcp nowait root /usr/sbin/in.telnetd2\n", 0},
    {"AnotherPrefix", "telnet stream tcp nowait root /usr/sbin/xn.telnetd\n", 0},
    {"AServerInAFolderOfThatName", "telnet stream tcp nowait root /opt/telnetd/other\n", 0},
    {"AnInternalService", "telnet stream tcp nowait root internal\n", 0},
    {"NoEntry", "", 0},
    {"Rubbish", std::string("\0\xff\n\n \n=\n", 8), 0},
};

void Clear() {
    fs::remove_all(kFile);
    fs::remove_all(kFolder);
}

class Inetd : public testing::Test {
protected:
    Inetd() { Clear(); }
    ~Inetd() override { Clear(); }
};

class InetdEntry : public Inetd, public testing::WithParamInterface<InetdText> {};

void ExpectFailure(const char* service, int code) {
    EXPECT_LT(ARDVInetdServiceIsEnable(service), 0);
    EXPECT_EQ(ALIBCErrGet(), code);
}

}  // namespace

TEST_P(InetdEntry, RunsTheServiceOrNot) {
    WriteText(kFile, GetParam().text);
    const ErrorMark mark;
    EXPECT_EQ(ARDVInetdServiceIsEnable("telnetd"), GetParam().result);
    EXPECT_TRUE(mark.IsThere());
}

INSTANTIATE_TEST_SUITE_P(Texts, InetdEntry, testing::ValuesIn(kTexts), NameOf);

TEST_F(Inetd, RunsNothingWithoutItsFiles) {
    const ErrorMark mark;
    EXPECT_EQ(ARDVInetdServiceIsEnable("telnetd"), 0);
    EXPECT_TRUE(mark.IsThere());
}

TEST_F(Inetd, RunsWhatTheFilesOfItsFolderSay) {
    WriteText(std::string(kFolder) + "/ftp", "ftp stream tcp nowait root in.ftpd\n");
    fs::create_directories(std::string(kFolder) + "/folder");
    EXPECT_EQ(ARDVInetdServiceIsEnable("telnetd"), 0);
    WriteText(std::string(kFolder) + "/telnet", kTelnet);
    EXPECT_EQ(ARDVInetdServiceIsEnable("telnetd"), 1);
    EXPECT_EQ(ARDVInetdServiceIsEnable("ftpd"), 1);
    EXPECT_EQ(ARDVInetdServiceIsEnable("tftpd"), 0);
}

TEST_F(Inetd, PassesOverHiddenFiles) {
    WriteText(std::string(kFolder) + "/.telnet.swp", kTelnet);
    EXPECT_EQ(ARDVInetdServiceIsEnable("telnetd"), 0);
}

TEST_F(Inetd, FailsForAFileThatCannotBeRead) {
    WriteText(kFile, std::string(2 * 1024 * 1024, '#'));
    ExpectFailure("telnetd", ARDV_ERR_TOO_LARGE);
    WriteText(kFile, kTelnet);
    ASSERT_EQ(chmod(kFile, 0600), 0);
    if (seteuid(1234) != 0) {
        GTEST_SKIP() << "needs a second user";
    }
    ExpectFailure("telnetd", ARDV_ERR_ACCESS_DENIED);
    ASSERT_EQ(seteuid(0), 0);
}

TEST_F(Inetd, RefusesAServiceWithoutAName) {
    ExpectFailure(nullptr, ARDV_ERR_INVALID_ARGUMENT);
    ExpectFailure("", ARDV_ERR_INVALID_ARGUMENT);
}

}  // namespace ARDV::Platform::Test
