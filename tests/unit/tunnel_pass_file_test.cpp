// SPDX-License-Identifier: Apache-2.0
// The file that hands the password to OpenVPN.
#include <sys/stat.h>

#include <string>

#include "support/child_faults.h"
#include "tunnel_fixture.h"

namespace ARDV::Relay {

namespace {

using namespace ardv::test;
using testing::ElementsAre;
using testing::IsEmpty;
namespace fs = std::filesystem;

class TunnelPassFile : public TunnelTest {
protected:
    void SetUser(const std::string& user) {
        Json::Value settings;
        settings["relay_user"] = user;
        tunnel.Overwrite(settings);
    }

    /** Expects that no tunnel is tried for want of the file. */
    void ExpectNoFile(const std::string& message) {
        const CapturedLog log;
        EXPECT_FALSE(tunnel.RunVPNTunnel(Candidate("udp")));
        EXPECT_THAT(log.Messages(), ElementsAre(message, "tunnel.cpp Write pass file failed"));
        EXPECT_EQ(tunnel.GetStatus(), TUNNEL_STATUS_NONE);
        EXPECT_EQ(tunnel.GetPid(), -1);
        EXPECT_EQ(alarm(0), 0U);
        EXPECT_THAT(programs.Calls(), IsEmpty());
    }
};

}  // namespace

TEST_F(TunnelPassFile, HasUserAndPasswordForItsOwnerAlone) {
    for (const mode_t mask : {0U, 077U, 0777U}) {
        const mode_t original = umask(mask);
        EXPECT_TRUE(tunnel.WritePassFile(kPassFile));
        umask(original);
        EXPECT_EQ(ReadText(kPassFile), "u1\nsecret 1");
        EXPECT_EQ(ModeOf(kPassFile), 0600U);
    }
    EXPECT_THAT(PassFiles(), ElementsAre(kPassFile));
}

TEST_F(TunnelPassFile, IsPrivateFromItsFirstByteOn) {
    ChildFaults faults;
    bool isLookedAt = false;
    faults.onChmod = [&isLookedAt](int fd) {
        struct stat status = {};
        fstat(fd, &status);
        EXPECT_EQ(status.st_mode & 07777U, 0600U);
        EXPECT_EQ(status.st_size, 0);
        isLookedAt = true;
    };
    const mode_t original = umask(0);
    EXPECT_TRUE(tunnel.WritePassFile(kPassFile));
    umask(original);
    EXPECT_TRUE(isLookedAt);
}

TEST_F(TunnelPassFile, IsWrittenByteForByte) {
    Json::Value settings;
    settings["relay_user"] = "a b\"'\\$(id)\xC3\xA9";
    settings["relay_pass"] = std::string("p\0q\n\xFF\r ", 7);
    tunnel.Overwrite(settings);
    EXPECT_TRUE(tunnel.WritePassFile("/tmp/.tunnel.other"));
    EXPECT_EQ(ReadText("/tmp/.tunnel.other"),
              settings["relay_user"].asString() + "\n" + settings["relay_pass"].asString());
}

TEST_F(TunnelPassFile, ReplacesAnEarlierFile) {
    WriteText(kPassFile, "a longer text than what will be written here");
    fs::permissions(kPassFile, fs::perms(0666));
    fs::create_hard_link(kPassFile, "/tmp/.tunnel.kept");
    EXPECT_TRUE(tunnel.WritePassFile(kPassFile));
    EXPECT_EQ(ReadText(kPassFile), "u1\nsecret 1");
    EXPECT_EQ(ModeOf(kPassFile), 0600U);
    EXPECT_EQ(ReadText("/tmp/.tunnel.kept"), "a longer text than what will be written here");
}

TEST_F(TunnelPassFile, FollowsNoLink) {
    WriteText("/tmp/.tunnel.target", "of somebody else");
    for (const char* target : {"/tmp/.tunnel.target", "/tmp/.tunnel.missing"}) {
        fs::create_symlink(target, kPassFile);
        EXPECT_TRUE(tunnel.WritePassFile(kPassFile));
        EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(kPassFile)));
        fs::remove(kPassFile);
    }
    EXPECT_EQ(ReadText("/tmp/.tunnel.target"), "of somebody else");
    EXPECT_FALSE(fs::exists("/tmp/.tunnel.missing"));
}

TEST_F(TunnelPassFile, FolderInItsPlaceIsAFailure) {
    fs::create_directory(kPassFile);
    ExpectNoFile("tunnel.cpp open [/tmp/.tunnel.u1] failed, File exists");
    ExpectMessage(3, "tunnel.cpp open [/tmp/.tunnel.u1] failed, File exists",
                  [this] { tunnel.WritePassFile(kPassFile); });
}

TEST_F(TunnelPassFile, FailureOfAnAttemptIsAnError) {
    SetUser("x/y");
    EXPECT_THAT(MessagesAt(3, [this] { tunnel.RunVPNTunnel(Candidate("udp")); }),
                ElementsAre("tunnel.cpp open [/tmp/.tunnel.x/y] failed, Invalid argument",
                            "tunnel.cpp Write pass file failed"));
    EXPECT_THAT(MessagesAt(2, [this] { tunnel.RunVPNTunnel(Candidate("udp")); }), IsEmpty());
}

TEST_F(TunnelPassFile, MissingFolderIsAFailure) {
    ExpectMessage(3, "tunnel.cpp open [/tmp/no/such] failed, No such file or directory",
                  [this] { EXPECT_FALSE(tunnel.WritePassFile("/tmp/no/such")); });
}

TEST_F(TunnelPassFile, RefusesAUserThatIsNoPartOfAPathOrNoLine) {
    fs::create_directory("/tmp/.tunnel.x");
    SetUser("x/y");
    ExpectNoFile("tunnel.cpp open [/tmp/.tunnel.x/y] failed, Invalid argument");
    SetUser("x/../y");
    ExpectNoFile("tunnel.cpp open [/tmp/.tunnel.x/../y] failed, Invalid argument");
    SetUser("a\nb");
    ExpectNoFile("tunnel.cpp open [/tmp/.tunnel.a?b] failed, Invalid argument");
    SetUser("a\rb");
    ExpectNoFile("tunnel.cpp open [/tmp/.tunnel.a?b] failed, Invalid argument");
    SetUser(std::string("a\0b", 3));
    ExpectNoFile("tunnel.cpp open [/tmp/.tunnel.a?b] failed, Invalid argument");
    EXPECT_THAT(PassFiles(), ElementsAre("/tmp/.tunnel.x"));
    EXPECT_TRUE(fs::is_empty("/tmp/.tunnel.x"));
}

TEST_F(TunnelPassFile, WritesForNoSuchUserToAnotherPathEither) {
    SetUser("a\nb");
    EXPECT_FALSE(tunnel.WritePassFile("/tmp/.tunnel.other"));
    EXPECT_THAT(PassFiles(), IsEmpty());
}

TEST_F(TunnelPassFile, DeletesNothingThatAUserNameLeadsAstrayTo) {
    fs::create_directory("/tmp/.tunnel.x");
    WriteText("/tmp/.tunnel.victim", "kept");
    WriteText("/tmp/.tunnel.x/inner", "kept");
    for (const std::string& user :
         {std::string("x/../.tunnel.victim"), std::string("x/inner"), std::string("victim\0y", 8)}) {
        SetUser(user);
        tunnel.UnlinkTunnelPassFile();
        tunnel.RunVPNTunnel(Candidate("udp"));
        tunnel.UpdateTunnelStatus();
        tunnel.Destroy();
    }
    EXPECT_EQ(ReadText("/tmp/.tunnel.victim"), "kept");
    EXPECT_EQ(ReadText("/tmp/.tunnel.x/inner"), "kept");
}

TEST_F(TunnelPassFile, NameOfAUserIsCutWithItsPath) {
    SetUser(std::string(2000, 'u'));
    ExpectNoFile("tunnel.cpp open [/tmp/.tunnel." + std::string(1023 - 13, 'u') + "] failed, File name too long");
}

TEST_F(TunnelPassFile, IsGoneIfItsModeCannotBeSet) {
    ChildFaults faults;
    faults.chmodFails = true;
    ExpectNoFile("tunnel.cpp chmod [/tmp/.tunnel.u1] failed, Operation not permitted");
    EXPECT_THAT(PassFiles(), IsEmpty());
    ExpectMessage(3, "tunnel.cpp chmod [/tmp/.tunnel.u1] failed, Operation not permitted",
                  [this] { tunnel.WritePassFile(kPassFile); });
}

TEST_F(TunnelPassFile, IsGoneIfItCannotBeWrittenWhole) {
    ChildFaults faults;
    faults.writesUntilFull = 0;
    ExpectNoFile("tunnel.cpp write pass failed, No space left on device");
    EXPECT_THAT(PassFiles(), IsEmpty());
    faults.writeAtMost = 3;
    faults.writesUntilFull = 3;
    ExpectNoFile("tunnel.cpp write pass failed, No space left on device");
    EXPECT_THAT(PassFiles(), IsEmpty());
    ExpectMessage(3, "tunnel.cpp write pass failed, No space left on device", [this, &faults] {
        faults.writesUntilFull = 0;
        tunnel.WritePassFile(kPassFile);
    });
}

TEST_F(TunnelPassFile, IsGoneIfItCannotBeClosed) {
    ChildFaults faults;
    faults.closeFails = true;
    ExpectNoFile("tunnel.cpp write pass failed, Input/output error");
    EXPECT_THAT(PassFiles(), IsEmpty());
}

TEST_F(TunnelPassFile, IsWrittenWholeInSmallPieces) {
    ChildFaults faults;
    faults.writeAtMost = 3;
    EXPECT_TRUE(tunnel.WritePassFile(kPassFile));
    EXPECT_EQ(ReadText(kPassFile), "u1\nsecret 1");
}

TEST_F(TunnelPassFile, IsDeletedThoughTheUserHasAnotherName) {
    ASSERT_TRUE(tunnel.RunVPNTunnel(Candidate("udp")));
    SetUser("u2");
    WriteText("/tmp/.tunnel.u2", "of the new name");
    tunnel.UnlinkTunnelPassFile();
    EXPECT_THAT(PassFiles(), IsEmpty());
}

TEST_F(TunnelPassFile, EarlierAttemptLeavesNone) {
    ASSERT_TRUE(tunnel.RunVPNTunnel(Candidate("udp")));
    SetUser("u2");
    ASSERT_TRUE(tunnel.RunVPNTunnel(Candidate("udp")));
    EXPECT_THAT(PassFiles(), ElementsAre("/tmp/.tunnel.u2"));
}

TEST_F(TunnelPassFile, IsGoneAtTheEndOfTheList) {
    ASSERT_TRUE(tunnel.Create(Candidates({"udp"}), true, true));
    SetUser("u2");
    EXPECT_FALSE(tunnel.Create(Candidates({"udp"}), true, true));
    EXPECT_THAT(PassFiles(), IsEmpty());
}

TEST_F(TunnelPassFile, IsGoneAfterACandidateThatIsOfNoUse) {
    ASSERT_TRUE(tunnel.RunVPNTunnel(Candidate("udp")));
    EXPECT_FALSE(tunnel.RunVPNTunnel(Candidate("no such")));
    EXPECT_THAT(PassFiles(), IsEmpty());
}

TEST_F(TunnelPassFile, IsDeletedOnlyOnce) {
    ASSERT_TRUE(tunnel.RunVPNTunnel(Candidate("udp")));
    SetUser("u2");
    tunnel.UnlinkTunnelPassFile();
    WriteText(kPassFile, "of another tunnel");
    tunnel.UnlinkTunnelPassFile();
    EXPECT_EQ(ReadText(kPassFile), "of another tunnel");
}

}  // namespace ARDV::Relay
