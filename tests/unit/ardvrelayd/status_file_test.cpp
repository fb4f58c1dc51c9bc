// SPDX-License-Identifier: Apache-2.0
#include "status_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <ctime>
#include <filesystem>
#include <memory>
#include <string>

#include <relay/daemon/daemon.h>

#include "support/device_test.h"

using namespace ardv::test;
using namespace ardv::daemon;
using namespace ARDV::Relay;

namespace {

namespace fs = std::filesystem;

const std::string kFile = Daemon::kStatusFile;

Status LoggedIn() {
    Status status;
    status.state = RELAYD_STATE_LOGIN;
    return status;
}

ino_t InodeOf(const std::string& path) {
    struct stat facts = {};
    return stat(path.c_str(), &facts) == 0 ? facts.st_ino : 0;
}

/** No status file at first, and the daemon's umask. */
class StatusFileTest : public testing::Test {
protected:
    StatusFileTest() : mask_(umask(077)) { fs::remove_all(kFile); }

    void TearDown() override {
        fs::remove_all(kFile);
        umask(mask_);
    }

    static Json::Value Published() { return JsonOf(ReadText(kFile)); }

    mode_t mask_;
};

}  // namespace

TEST_F(StatusFileTest, IsNotThereBeforeTheFirstStatus) {
    const StatusFile file;
    EXPECT_FALSE(fs::exists(kFile));
    EXPECT_EQ(file.Writes(), 0U);
}

TEST_F(StatusFileTest, HasEachMember) {
    StatusFile file;
    const auto before = std::time(nullptr);
    file.Publish({RELAYD_STATE_DIRECT_CONNECT, RELAYD_RET_ERR_NETWORK, "box-1", "attic", {"ssh", "hos_https"}});
    auto document = Published();
    EXPECT_GE(document["since"].asInt64(), before);
    EXPECT_LE(document["since"].asInt64(), std::time(nullptr));
    EXPECT_TRUE(document["version"].isString());
    document.removeMember("since");
    document.removeMember("version");
    EXPECT_EQ(document, JsonOf(R"({"pid":)" + std::to_string(getpid()) +
                               R"(,"state":4,"error":6,"serverID":"box-1","alias":"attic",
                               "service":[{"id":"ssh"},{"id":"hos_https"}]})"));
}

TEST_F(StatusFileTest, HasTheTunnelWhereThereIsOne) {
    StatusFile file;
    Status status;
    file.Publish(status);
    EXPECT_FALSE(Published().isMember("tunnel"));
    status.tunnel = JsonOf(R"({"status":"READY","open":[{"id":"hos","port":5000}]})");
    file.Publish(status);
    EXPECT_EQ(Published()["tunnel"], status.tunnel);
    file.Publish(status);
    EXPECT_EQ(file.Writes(), 2U);
}

TEST_F(StatusFileTest, LeavesOutWhatThereIsNone) {
    StatusFile file;
    file.Publish(Status());
    const auto document = Published();
    EXPECT_FALSE(document.isMember("serverID"));
    EXPECT_FALSE(document.isMember("alias"));
    EXPECT_EQ(document["service"], Json::Value(Json::arrayValue));
    EXPECT_EQ(document["state"], RELAYD_STATE_STARTING);
    EXPECT_EQ(document["error"], 0);
}

TEST_F(StatusFileTest, IsUnderstoodByTheLibrary) {
    StatusFile file;
    auto status = LoggedIn();
    status.serverId = "box-1";
    status.services = {"ssh"};
    file.Publish(status);
    std::string id;
    std::string state;
    std::string error;
    EXPECT_TRUE(Daemon::GetStatus(id, state, error, "ssh"));
    EXPECT_EQ(id + "/" + state + "/" + error, "box-1/login/success");
}

TEST_F(StatusFileTest, IsReadableByEverybodyAndWritableByTheDaemonAlone) {
    StatusFile file;
    file.Publish(Status());
    EXPECT_EQ(ModeOf(kFile), 0644U);
}

TEST_F(StatusFileTest, IsWrittenOnlyForAChange) {
    StatusFile file;
    file.Publish(LoggedIn());
    const auto inode = InodeOf(kFile);
    file.Publish(LoggedIn());
    EXPECT_EQ(InodeOf(kFile), inode);
    EXPECT_EQ(file.Writes(), 1U);
    auto other = LoggedIn();
    other.alias = "attic";
    file.Publish(other);
    EXPECT_EQ(Published()["alias"], "attic");
    other.services = {"ssh"};
    file.Publish(other);
    EXPECT_EQ(file.Writes(), 3U);
}

TEST_F(StatusFileTest, IsReplacedAsAWhole) {
    StatusFile file;
    file.Publish(LoggedIn());
    const int reader = open(kFile.c_str(), O_RDONLY | O_CLOEXEC);
    const auto inode = InodeOf(kFile);
    file.Publish(Status());
    EXPECT_NE(InodeOf(kFile), inode) << "who reads the old one reads it to its end";
    close(reader);
    EXPECT_FALSE(fs::exists(TemporaryOf(kFile)));
}

TEST_F(StatusFileTest, TellsSinceWhenStateAndErrorStand) {
    StatusFile file;
    file.Publish(LoggedIn());
    const auto since = Published()["since"].asInt64();
    while (std::time(nullptr) == since) {
        usleep(10'000);  // until the clock shows another second
    }
    auto status = LoggedIn();
    status.alias = "attic";
    file.Publish(status);
    EXPECT_EQ(Published()["since"].asInt64(), since) << "an alias is neither";
    status.error = RELAYD_RET_ERR_NETWORK;
    file.Publish(status);
    EXPECT_GT(Published()["since"].asInt64(), since);
}

TEST_F(StatusFileTest, IsGoneWithItsObject) {
    auto file = std::make_unique<StatusFile>();
    file->Publish(Status());
    ASSERT_TRUE(fs::exists(kFile));
    file.reset();
    EXPECT_FALSE(fs::exists(kFile));
}

TEST_F(StatusFileTest, IsLeftAloneByAnObjectThatPublishedNothing) {
    WriteText(kFile, "another daemon's");
    { const StatusFile file; }
    EXPECT_EQ(ReadText(kFile), "another daemon's");
}

TEST_F(StatusFileTest, ReplacesALinkInItsPlaceAndLeavesItsTargetAlone) {
    WriteText("/tmp/target", "precious");
    fs::create_symlink("/tmp/target", kFile);
    fs::create_symlink("/tmp/target", TemporaryOf(kFile));
    StatusFile file;
    file.Publish(LoggedIn());
    EXPECT_EQ(ReadText("/tmp/target"), "precious");
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(kFile)));
    EXPECT_EQ(Published()["state"], RELAYD_STATE_LOGIN);
    fs::remove("/tmp/target");
}

TEST_F(StatusFileTest, IsTriedAgainAfterAFailure) {
    fs::create_directory(TemporaryOf(kFile));
    StatusFile file;
    const auto messages = MessagesAt(LOG_ERR, [&] { file.Publish(LoggedIn()); });
    EXPECT_THAT(messages, testing::Contains("status_file.cpp the status is not published"));
    EXPECT_EQ(file.Writes(), 0U);
    fs::remove(TemporaryOf(kFile));
    file.Publish(LoggedIn());
    EXPECT_EQ(Published()["state"], RELAYD_STATE_LOGIN);
}

TEST_F(StatusFileTest, IsTriedAgainAfterAFolderStoodInItsPlace) {
    fs::create_directory(kFile);
    StatusFile file;
    const auto messages = MessagesAt(LOG_ERR, [&] { file.Publish(LoggedIn()); });
    EXPECT_THAT(messages, testing::Contains("status_file.cpp the status is not published"));
    EXPECT_EQ(file.Writes(), 0U);
    fs::remove(kFile);
    file.Publish(LoggedIn());
    EXPECT_EQ(Published()["state"], RELAYD_STATE_LOGIN);
}
