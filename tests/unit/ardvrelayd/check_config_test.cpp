// SPDX-License-Identifier: Apache-2.0
#include "check_config.h"

#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "exit_code.h"
#include "support/device_test.h"
#include "support/program.h"
#include "support/scratch_folder.h"

using namespace ardv::test;
using namespace ardv::daemon;
using testing::HasSubstr;

namespace {

namespace fs = std::filesystem;

class CheckConfigTest : public DeviceTest {
protected:
    ProgramResult Check(const std::string& text) const {
        WriteText(path_, text);
        const auto before = fs::last_write_time(path_);
        auto result = Check();
        EXPECT_EQ(ReadText(path_), text) << "the file stays as it is";
        EXPECT_EQ(fs::last_write_time(path_), before);
        EXPECT_THAT(folder_.Names(), testing::ElementsAre("x.conf"));
        return result;
    }

    ProgramResult Check() const { return RunProgram({ARDV_DAEMON, "--check-config", "--config", path_}); }

    void ExpectRefusal(const ProgramResult& result, const std::string& reason) const {
        EXPECT_EQ(result.exitCode, kExitConfig) << reason;
        EXPECT_EQ(result.out, "");
        EXPECT_THAT(result.err, HasSubstr(path_ + ": " + reason));
    }

    ScratchFolder folder_;
    std::string path_ = folder_.File("x.conf");
};

}  // namespace

TEST_F(CheckConfigTest, SaysThatAFileCanBeUsed) {
    const auto result = Check(R"({"tethra":{"enabled":true},"server_alias":{"alias":"attic"},"own":[1,2]})");
    EXPECT_EQ(result.exitCode, kExitSuccess);
    EXPECT_EQ(result.out, path_ + ": can be used\n");
    EXPECT_EQ(result.err, "");
}

TEST_F(CheckConfigTest, AllowsComments) {
    EXPECT_EQ(Check("// of mine\n{ \"log_level\" : 5 /* more */ }\n").exitCode, kExitSuccess);
}

TEST_F(CheckConfigTest, TakesTheUsualFileWhereNoneIsNamed) {
    WriteText(kConfigFile, "{}");
    const auto result = RunProgram({ARDV_DAEMON, "-t"});
    EXPECT_EQ(result.exitCode, kExitSuccess);
    EXPECT_EQ(result.out, std::string(kConfigFile) + ": can be used\n");
}

TEST_F(CheckConfigTest, FindsNoFaultInAMissingFile) {
    const auto result = Check();
    EXPECT_EQ(result.exitCode, kExitSuccess);
    EXPECT_EQ(result.out, path_ + ": is not there; the defaults can be used\n");
    EXPECT_FALSE(fs::exists(path_));
}

TEST_F(CheckConfigTest, TellsWhereAFileIsDamaged) {
    const auto result = Check("{\n  \"tethra\": {\n");
    ExpectRefusal(result, "is damaged:\n");
    EXPECT_THAT(result.err, HasSubstr("Line 3"));
    ExpectRefusal(Check(""), "is damaged:\n");
}

TEST_F(CheckConfigTest, SurvivesValuesWithinEachOtherTooDeeply) {
    ExpectRefusal(Check(std::string(5000, '[') + std::string(5000, ']')), "is damaged:\n");
}

TEST_F(CheckConfigTest, RefusesWhatIsNoObject) {
    for (const char* text : {"[]", "null", "7", "\"x\""}) {
        ExpectRefusal(Check(text), "is no JSON object");
    }
}

TEST_F(CheckConfigTest, SaysWhichSettingsCannotBeUsed) {
    const auto result = Check(R"({"server_control":{"protocol":"gopher"}})");
    ExpectRefusal(result, "its settings cannot be used");
    EXPECT_THAT(result.err, HasSubstr("wrong control server config"));
}

TEST_F(CheckConfigTest, NamesAServiceThatIsLeftOut) {
    const auto result = Check(R"({"service":[{"id":"no-such-service","port":-1}]})");
    EXPECT_EQ(result.exitCode, kExitSuccess);
    EXPECT_THAT(result.err, HasSubstr("invalid service config: 0"));
}

TEST_F(CheckConfigTest, TakesOneMebibyteAndNoMore) {
    EXPECT_EQ(Check("{}" + std::string(1048574, ' ')).exitCode, kExitSuccess);
    ExpectRefusal(Check("{}" + std::string(1048575, ' ')), "is no file that can be read, or larger than 1 MiB");
}

TEST_F(CheckConfigTest, IsNotHeldUpByWhatIsNoFile) {
    ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
    ExpectRefusal(Check(), "is no file that can be read");
    fs::remove(path_);
    fs::create_directory(path_);
    ExpectRefusal(Check(), "is no file that can be read");
    fs::remove(path_);
    fs::create_symlink("/dev/zero", path_);
    ExpectRefusal(Check(), "is no file that can be read");
}

TEST_F(CheckConfigTest, TellsWhyAFileCannotBeOpened) {
    fs::create_symlink("x.conf", path_);
    ExpectRefusal(Check(), "Too many levels of symbolic links");
}

TEST_F(CheckConfigTest, FollowsALink) {
    WriteText(folder_.File("real"), "{}");
    fs::create_symlink("real", path_);
    EXPECT_EQ(Check().exitCode, kExitSuccess);
    EXPECT_TRUE(fs::is_symlink(path_));
}
