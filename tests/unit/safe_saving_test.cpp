// SPDX-License-Identifier: Apache-2.0
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <functional>
#include <string>

#include <relay/config/config.h>
#include <relay/service/service_permission.h>

#include "support/device_test.h"
#include "support/killed_at_call.h"
#include "support/systemd_calls.h"

namespace ARDV::Relay {

namespace {

namespace fs = std::filesystem;

using namespace ardv::test;

constexpr const char kPermissionFile[] = "/usr/ardv/etc/ardvrelayd/services.conf";

/** One way of saving a file, of which there are two contents. */
struct Saver {
    const char* name;
    const char* file;
    /** Gets everything ready for the content, and gives what saves it. */
    std::function<std::function<bool()>(bool isSecond)> prepare;
};

// Lengths differ, so that a file that is overwritten in its place would show rests of the other content.
std::string ServerId(bool isSecond) {
    return isSecond ? std::string(20'000, 'b') : std::string(9'000, 'a');
}

std::function<bool()> PrepareWhole(bool isSecond) {
    RelaydConf conf(kConfigFile);
    Json::Value value;
    value["serverID"] = ServerId(isSecond);
    conf.Overwrite(value);
    return [conf]() mutable { return conf.WriteConfig(); };
}

std::function<bool()> PrepareEdit(bool isSecond) {
    RelaydConf conf(nullptr);
    Json::Value value;
    value["serverID"] = ServerId(isSecond);
    conf.Overwrite(value);
    return [conf]() mutable { return conf.WriteServerId(kConfigFile); };
}

std::function<bool()> PreparePermissions(bool isSecond) {
    for (const char* package : {"Pictara", "Filara", "Drivara"}) {
        fs::remove_all(std::string("/var/packages/") + package);
        if (isSecond) {
            WriteText(std::string("/var/packages/") + package + "/enabled", "");
        }
    }
    return [] {
        ServicePermission(false).GenPermissionConf();
        return true;
    };
}

const Saver kSavers[] = {
    {"WholeConfiguration", kConfigFile, &PrepareWhole},
    {"EditOfOneKey", kConfigFile, &PrepareEdit},
    {"Permissions", kPermissionFile, &PreparePermissions},
};

/** Two ends of a pipe. */
class Pipe {
public:
    Pipe() {
        if (pipe(ends_.data()) != 0) {
            throw std::runtime_error("no pipe");
        }
    }
    ~Pipe() {
        close(ends_[0]);
        close(ends_[1]);
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    /** Lets `Wait` return. */
    void Tell() const { EXPECT_EQ(write(ends_[1], "x", 1), 1); }

    void Wait() const {
        char byte = 0;
        EXPECT_EQ(read(ends_[0], &byte, 1), 1);
    }

private:
    std::array<int, 2> ends_ = {};
};

class SafeSaving : public DeviceTest, public testing::WithParamInterface<Saver> {
protected:
    SafeSaving() {
        // Keys that an edit must keep, and so much of them that a write in pieces would show.
        WriteText(kConfigFile, R"({"mine":[1,2,3],"log_level":5,"log_file":")" + std::string(30'000, 'c') + "\"}");
        fs::remove_all("/var/packages");
    }

    ~SafeSaving() override { fs::remove_all("/var/packages"); }

    static const char* File() { return GetParam().file; }
    static std::function<bool()> Prepare(bool isSecond) { return GetParam().prepare(isSecond); }

    /** The file as it is once the content was saved. */
    static std::string Saved(bool isSecond) {
        EXPECT_TRUE(Prepare(isSecond)());
        return ReadText(File());
    }

    static std::size_t FilesInFolder() {
        const fs::directory_iterator all(kConfigFolder);
        return static_cast<std::size_t>(std::distance(all, fs::directory_iterator()));
    }

    SystemdCalls systemd_;
};

/** Reads the file over and over until it is told to end. Exits with 0 if each time it saw one content or the other. */
[[noreturn]] void ReadAgainAndAgain(const char* file, const std::array<std::string, 2>& contents, const Pipe& ready) {
    static volatile std::sig_atomic_t isOver = 0;
    std::signal(SIGTERM, [](int) { isOver = 1; });
    bool isGood = true;
    for (bool isFirst = true; isGood; isFirst = false) {
        const bool isLast = isOver != 0;
        const auto seen = ReadText(file);
        isGood = seen == contents[0] || seen == contents[1];
        if (isFirst) {
            ready.Tell();
        }
        if (isLast) {
            break;
        }
    }
    _exit(isGood ? 0 : 1);
}

TEST_P(SafeSaving, ReaderSeesOneContentOrTheOtherThroughAThousandSaves) {
    const std::array<std::string, 2> contents = {Saved(false), Saved(true)};
    ASSERT_NE(contents[0], contents[1]);
    const Pipe ready;
    const pid_t reader = fork();
    ASSERT_GE(reader, 0);
    if (reader == 0) {
        ReadAgainAndAgain(File(), contents, ready);
    }
    ready.Wait();
    for (int i = 0; i < 1000; ++i) {
        ASSERT_TRUE(Prepare(i % 2 != 0)()) << i;
    }
    kill(reader, SIGTERM);
    int status = -1;
    ASSERT_EQ(waitpid(reader, &status, 0), reader);
    EXPECT_EQ(status, 0) << "a torn or missing file was seen";
    EXPECT_EQ(ReadText(File()), contents[1]);
    EXPECT_EQ(FilesInFolder(), GetParam().file == std::string(kConfigFile) ? 1U : 2U) << "no temporary file is left";
}

TEST_P(SafeSaving, FileIsTheOldOneOrTheNewOneWhereverTheWriterIsKilled) {
    const auto wanted = Saved(true);
    const auto old = Saved(false);
    ASSERT_NE(old, wanted);
    int stop = 1;
    int oldOnes = 0;
    for (;; ++stop) {
        ASSERT_EQ(Saved(false), old) << "a save works after a writer was killed at stop " << stop - 1;
        const auto save = Prepare(true);
        const auto ending = RunKilledAt(stop, [&save] {
            if (!save()) {
                throw std::runtime_error("not saved");
            }
        });
        if (ending == Ending::kNotPermitted) {
            GTEST_SKIP() << "this machine does not let a test trace a process";
        }
        const auto seen = ReadText(File());
        ASSERT_TRUE(seen == old || seen == wanted) << "at stop " << stop << ", " << seen.size() << " bytes";
        oldOnes += seen == old ? 1 : 0;
        ASSERT_TRUE(save()) << "after the writer was killed at stop " << stop;
        ASSERT_EQ(ReadText(File()), wanted);
        if (ending == Ending::kFinished) {
            ASSERT_EQ(seen, wanted);
            break;
        }
    }
    RecordProperty("stops", stop - 1);
    RecordProperty("stops_before_the_new_content", oldOnes);
    EXPECT_GT(oldOnes, 10) << "reading, writing, flushing and renaming come before the new content";
    EXPECT_GT(stop - oldOnes, 1) << "the rename is not the last call";
}

INSTANTIATE_TEST_SUITE_P(Savers, SafeSaving, testing::ValuesIn(kSavers),
                         [](const auto& saver) { return std::string(saver.param.name); });

}  // namespace

}  // namespace ARDV::Relay
