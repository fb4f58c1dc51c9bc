// SPDX-License-Identifier: Apache-2.0
#include <ardvw3/nginx_conf_register.h>

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/file_text.h"
#include "support/folder_faults.h"
#include "support/killed_at_call.h"
#include "support/nginx_server.h"
#include "support/scratch_folder.h"

namespace ardvw3 {

static void PrintTo(W3Code code, std::ostream* stream) {
    *stream << "code " << static_cast<int>(code);
}

}  // namespace ardvw3

namespace {

using namespace ardv::test;
using namespace ardvw3;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr const char* kFolder = "/etc/ardv/nginx.d";
constexpr const char* kLock = ".nginx.d.lock";
constexpr const char* kServerBlock = "/etc/nginx/conf.d/ardv.conf";

std::string PathOf(const std::string& name) {
    return std::string(kFolder) + "/" + name;
}

/** A fragment by which "/PATH" is answered with a text. */
std::string Answering(const std::string& text, const std::string& path = "a") {
    return "location = /" + path + " { return 200 \"" + text + "\"; }\n";
}

std::set<std::string> Registered() {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(kFolder)) {
        names.insert(entry.path().filename().string());
    }
    names.erase(kLock);
    return names;
}

std::string Fetch(const std::string& target) {
    const WebAnswer answer = NginxServer::Get(target);
    return answer.status == 200 ? answer.body : std::to_string(answer.status);
}

class NginxRegistry : public testing::Test {
protected:
    void SetUp() override {
        if (!NginxServer::IsInstalled()) {
            GTEST_SKIP() << "nginx isn't installed";
        }
    }

    static W3Code Do(const std::shared_ptr<NginxConfRegAction>& action, std::string* message = nullptr,
                     bool force = false) {
        const auto result = NginxConfRegister().DoAction(action, force);
        EXPECT_TRUE(result.GetValue()["message"].isString());
        if (message) {
            *message = result.GetValue()["message"].asString();
        }
        return result.GetCode();
    }

    W3Code Register(const std::string& name, const std::string& text, std::string* message = nullptr,
                    bool force = false) const {
        WriteText(folder.File("source"), text);
        return Do(std::make_shared<NginxConfRegActionRegAndEnable>(folder.File("source"), name), message, force);
    }

    static W3Code RegisterFile(const std::string& path) {
        return Do(std::make_shared<NginxConfRegActionRegAndEnable>(path, "a.conf"));
    }

    static W3Code Remove(const std::string& name, std::string* message = nullptr, bool force = false) {
        return Do(std::make_shared<NginxConfRegActionDisableAndUnReg>(name), message, force);
    }

    ScratchFolder folder;
    NginxServer nginx;
};

TEST_F(NginxRegistry, CopiesAFragmentAndPutsItInForce) {
    nginx.Start();
    std::string message;
    ASSERT_EQ(Register("a.conf", Answering("one"), &message), W3Code::kSuccess);
    EXPECT_EQ(message, "");
    EXPECT_EQ(Fetch("/a"), "one");
    EXPECT_EQ(ReadText(PathOf("a.conf")), Answering("one"));
    EXPECT_EQ(ModeOf(PathOf("a.conf")), 0644U);
    EXPECT_EQ(ReadText(folder.File("source")), Answering("one"));
    EXPECT_THAT(Registered(), ElementsAre("a.conf"));
}

TEST_F(NginxRegistry, TakesAFragmentOutOfForce) {
    nginx.Start();
    ASSERT_EQ(Register("a.conf", Answering("one")), W3Code::kSuccess);
    ASSERT_EQ(Register("b.conf", Answering("two", "b")), W3Code::kSuccess);
    EXPECT_EQ(Remove("a.conf"), W3Code::kSuccess);
    EXPECT_EQ(Fetch("/a"), "404");
    EXPECT_EQ(Fetch("/b"), "two");
    EXPECT_THAT(Registered(), ElementsAre("b.conf"));
}

TEST_F(NginxRegistry, RemovesWhatIsNotRegistered) {
    std::string message;
    EXPECT_EQ(Remove("a.conf", &message), W3Code::kSuccess);
    EXPECT_EQ(message, "a.conf isn't registered");
}

TEST_F(NginxRegistry, RefusesNamesThatAreNoneOfAFragment) {
    const std::string longest = std::string(195, 'a') + ".conf";
    for (const std::string& name :
         {std::string(), std::string(".conf"), std::string("a"), std::string("a.conf "), std::string("../a.conf"),
          std::string("b/a.conf"), std::string(".a.conf"), std::string("a\n.conf"), std::string("a*.conf"),
          std::string("a\0.conf", 7), std::string("a.CONF"), "a" + longest}) {
        EXPECT_EQ(Register(name, Answering("one")), W3Code::kInvalidArgument) << name;
        EXPECT_EQ(Remove(name), W3Code::kInvalidArgument) << name;
    }
    EXPECT_FALSE(std::filesystem::exists(kFolder));
    EXPECT_EQ(Register(longest, Answering("one")), W3Code::kSuccess);
    EXPECT_EQ(Register("A-b_c.0.conf", Answering("one", "b")), W3Code::kSuccess);
}

TEST_F(NginxRegistry, NeedsAnAction) {
    std::string message;
    EXPECT_EQ(Do(nullptr, &message), W3Code::kInvalidArgument);
    EXPECT_EQ(message, "there is no action");
}

TEST_F(NginxRegistry, LetsNoExceptionPass) {
    class Throwing : public NginxConfRegAction {
        ardvw3::Result<W3Code, Json::Value> Run(bool /*force*/) override { throw std::runtime_error("a reason"); }
    };
    const auto result = NginxConfRegister().DoAction(std::make_shared<Throwing>(), false);
    EXPECT_EQ(result.GetCode(), W3Code::kInternal);
    EXPECT_TRUE(result.GetValue().isNull());
}

TEST_F(NginxRegistry, RefusesASourceThatIsNoRegularFile) {
    WriteText(folder.File("file"), Answering("one"));
    std::filesystem::create_symlink(folder.File("file"), folder.File("link"));
    ASSERT_EQ(mkfifo(folder.File("pipe").c_str(), 0600), 0);
    for (const std::string& source :
         {folder.File("absent"), folder.File("link"), folder.File("pipe"), folder.Path(), folder.File(""),
          folder.File("file") + "/x", std::string(), std::string("file")}) {
        EXPECT_EQ(RegisterFile(source), W3Code::kSourceUnreadable) << source;
    }
    EXPECT_EQ(RegisterFile(folder.File("file")), W3Code::kSuccess);
}

TEST_F(NginxRegistry, RefusesASourceThatOthersMayHaveWritten) {
    WriteText(folder.File("file"), Answering("one"));
    for (const mode_t mode : {0664U, 0646U}) {
        ASSERT_EQ(chmod(folder.File("file").c_str(), mode), 0);
        EXPECT_EQ(RegisterFile(folder.File("file")), W3Code::kSourceUnreadable);
    }
    ASSERT_EQ(chmod(folder.File("file").c_str(), 0644), 0);
    if (chown(folder.File("file").c_str(), 1234, 0) != 0) {
        GTEST_SKIP() << "needs root";
    }
    EXPECT_EQ(RegisterFile(folder.File("file")), W3Code::kSourceUnreadable);
}

TEST_F(NginxRegistry, RefusesASourceBeyondItsBound) {
    constexpr std::size_t kBound = 1024UL * 1024;
    EXPECT_EQ(Register("a.conf", std::string(kBound + 1, '#')), W3Code::kSourceUnreadable);
    std::string text;
    while (text.size() < kBound) {
        text += "# comment line\n#";
    }
    EXPECT_EQ(Register("a.conf", text), W3Code::kSuccess);
    EXPECT_EQ(text.size(), kBound);
}

TEST_F(NginxRegistry, PutsAFragmentInPlaceForTheNextStart) {
    std::string message;
    ASSERT_EQ(Register("a.conf", Answering("one"), &message), W3Code::kSuccess);
    EXPECT_EQ(message, "nginx isn't running");
    EXPECT_THAT(Registered(), ElementsAre("a.conf"));
    nginx.Start();
    EXPECT_EQ(Fetch("/a"), "one");
    nginx.Stop();
    EXPECT_EQ(Remove("a.conf"), W3Code::kSuccess);
    nginx.Start();
    EXPECT_EQ(Fetch("/a"), "404");
}

TEST_F(NginxRegistry, FailsAndChangesNothingWithoutNginx) {
    ASSERT_EQ(Register("a.conf", Answering("one")), W3Code::kSuccess);
    WriteText(folder.File("no program"), "");
    const MountedFile hidden(folder.File("no program"), "/usr/sbin/nginx");
    std::string message;
    EXPECT_EQ(Register("a.conf", Answering("two"), &message), W3Code::kServerMissing);
    EXPECT_EQ(message, "/usr/sbin/nginx can't be run");
    EXPECT_EQ(Register("b.conf", Answering("two", "b")), W3Code::kServerMissing);
    EXPECT_EQ(Remove("a.conf"), W3Code::kServerMissing);
    EXPECT_THAT(Registered(), ElementsAre("a.conf"));
    EXPECT_EQ(ReadText(PathOf("a.conf")), Answering("one"));
}

TEST_F(NginxRegistry, TakesABrokenFragmentOutAgain) {
    nginx.Start();
    std::string message;
    EXPECT_EQ(Register("a.conf", "nonsense;\n", &message), W3Code::kRefused);
    EXPECT_THAT(message, AllOf(HasSubstr("unknown directive \"nonsense\""), HasSubstr("/etc/ardv/nginx.d/a.conf:1")));
    EXPECT_THAT(Registered(), testing::IsEmpty());
    EXPECT_EQ(Fetch("/a"), "404");
}

TEST_F(NginxRegistry, BringsTheOldFragmentBackWhereTheNewOneIsBroken) {
    nginx.Start();
    ASSERT_EQ(Register("a.conf", Answering("one")), W3Code::kSuccess);
    struct stat before = {};
    struct stat after = {};
    ASSERT_EQ(stat(PathOf("a.conf").c_str(), &before), 0);
    EXPECT_EQ(Register("a.conf", "location {"), W3Code::kRefused);
    ASSERT_EQ(stat(PathOf("a.conf").c_str(), &after), 0);
    EXPECT_EQ(before.st_ino, after.st_ino);
    EXPECT_EQ(before.st_mtim.tv_nsec, after.st_mtim.tv_nsec);
    EXPECT_EQ(ReadText(PathOf("a.conf")), Answering("one"));
    EXPECT_THAT(Registered(), ElementsAre("a.conf"));
    EXPECT_EQ(Fetch("/a"), "one");
    EXPECT_EQ(Register("a.conf", Answering("two")), W3Code::kSuccess);
    EXPECT_EQ(Fetch("/a"), "two");
}

TEST_F(NginxRegistry, ChangesNothingWhereAnotherFragmentIsBroken) {
    nginx.Start();
    ASSERT_EQ(Register("a.conf", Answering("one")), W3Code::kSuccess);
    WriteText(PathOf("other.conf"), "nonsense;\n");
    EXPECT_EQ(Register("a.conf", Answering("two")), W3Code::kRefused);
    EXPECT_EQ(Register("b.conf", Answering("two", "b")), W3Code::kRefused);
    EXPECT_EQ(Remove("a.conf"), W3Code::kRefused);
    EXPECT_THAT(Registered(), ElementsAre("a.conf", "other.conf"));
    EXPECT_EQ(ReadText(PathOf("a.conf")), Answering("one"));
    EXPECT_EQ(ReadText(PathOf("other.conf")), "nonsense;\n");
    EXPECT_EQ(Fetch("/a"), "one");
    EXPECT_EQ(Remove("other.conf"), W3Code::kSuccess) << "the broken one can be taken out";
}

TEST_F(NginxRegistry, BoundsTheWordsOfNginx) {
    std::string message;
    EXPECT_EQ(Register("a.conf", std::string(100'000, 'x') + ";\n", &message), W3Code::kRefused);
    EXPECT_LE(message.size(), 4096U);
}

TEST_F(NginxRegistry, FailsWhereTheServerDoesNotIncludeTheFragment) {
    WriteText(kServerBlock, "server { listen 5000; }\n");
    std::string message;
    EXPECT_EQ(Register("a.conf", Answering("one"), &message), W3Code::kNotIncluded);
    EXPECT_EQ(message, "nginx's configuration doesn't include /etc/ardv/nginx.d/a.conf");
    EXPECT_THAT(Registered(), testing::IsEmpty());
}

TEST_F(NginxRegistry, FailsWhereTheFolderCannotBeUsed) {
    WriteText(kFolder, "a file");
    EXPECT_EQ(Register("a.conf", Answering("one")), W3Code::kFileSystem);
    EXPECT_EQ(ReadText(kFolder), "a file");
}

TEST_F(NginxRegistry, MakesItsFoldersForAllToReadWhateverTheUmask) {
    for (const mode_t mask : {0U, 077U}) {
        std::filesystem::remove_all("/etc/ardv");
        WriteText(folder.File("source"), Answering("one"));
        const mode_t before = umask(mask);
        EXPECT_EQ(RegisterFile(folder.File("source")), W3Code::kSuccess);
        umask(before);
        EXPECT_EQ(ModeOf("/etc/ardv"), 0755U) << mask;
        EXPECT_EQ(ModeOf(kFolder), 0755U) << mask;
        EXPECT_EQ(ModeOf(PathOf("a.conf")), 0644U) << mask;
    }
}

TEST_F(NginxRegistry, DoesNothingInAFolderThatOthersMayWriteTo) {
    for (const char* open : {kFolder, "/etc/ardv"}) {
        ASSERT_EQ(Register("a.conf", Answering("one")), W3Code::kSuccess);
        for (const mode_t mode : {0775U, 0757U, 01777U}) {
            ASSERT_EQ(chmod(open, mode), 0);
            EXPECT_EQ(Register("a.conf", Answering("two")), W3Code::kFileSystem) << open;
            EXPECT_EQ(Remove("a.conf"), W3Code::kFileSystem) << open;
            EXPECT_EQ(ModeOf(open), mode) << "it's for the operator to close it";
        }
        ASSERT_EQ(chmod(open, 0755), 0);
        EXPECT_EQ(ReadText(PathOf("a.conf")), Answering("one"));
    }
}

TEST_F(NginxRegistry, LeavesAFolderInThePlaceOfTheFragmentAlone) {
    WriteText(PathOf("a.conf") + "/file", "of somebody else");
    EXPECT_EQ(Register("a.conf", Answering("one")), W3Code::kFileSystem);
    EXPECT_THAT(Registered(), ElementsAre("a.conf"));
    EXPECT_EQ(ReadText(PathOf("a.conf") + "/file"), "of somebody else");
}

TEST_F(NginxRegistry, LeavesTheTargetOfALinkInThePlaceOfTheFragmentAlone) {
    WriteText("/etc/ardv/precious", "# keep\n");
    std::filesystem::create_directories(kFolder);
    std::filesystem::create_symlink("/etc/ardv/precious", PathOf("a.conf"));
    EXPECT_EQ(Register("a.conf", "nonsense;\n"), W3Code::kRefused);
    EXPECT_TRUE(std::filesystem::is_symlink(PathOf("a.conf")));
    EXPECT_EQ(Register("a.conf", Answering("one")), W3Code::kSuccess);
    EXPECT_FALSE(std::filesystem::is_symlink(PathOf("a.conf")));
    EXPECT_EQ(ReadText("/etc/ardv/precious"), "# keep\n");
}

TEST_F(NginxRegistry, ReloadsForTheSameFragmentOnlyWhenForced) {
    nginx.Start();
    ASSERT_EQ(Register("a.conf", Answering("one")), W3Code::kSuccess);
    const std::set<pid_t> workers = nginx.Workers();
    ASSERT_EQ(Register("a.conf", Answering("one")), W3Code::kSuccess);
    EXPECT_EQ(nginx.Workers(), workers);
    ASSERT_EQ(Remove("b.conf"), W3Code::kSuccess);
    EXPECT_EQ(nginx.Workers(), workers);
    ASSERT_EQ(Register("a.conf", Answering("one"), nullptr, true), W3Code::kSuccess);
    EXPECT_NE(nginx.Workers(), workers);
}

TEST_F(NginxRegistry, ServesManyProgramsAtOnce) {
    nginx.Start();
    std::vector<std::thread> programs;
    std::atomic<int> succeeded = 0;
    for (int program = 0; program < 4; ++program) {
        const std::string path = "p" + std::to_string(program);
        WriteText(folder.File(path), Answering(path, path));
        programs.emplace_back([this, path, &succeeded] {
            for (const std::string& name : {path + ".conf", std::string("shared.conf")}) {
                WriteText(folder.File(path + name),
                          name == "shared.conf" ? Answering(path, "shared") : Answering(path, path));
                const auto action = std::make_shared<NginxConfRegActionRegAndEnable>(folder.File(path + name), name);
                succeeded += NginxConfRegister().DoAction(action, false).GetCode() == W3Code::kSuccess ? 1 : 0;
            }
        });
    }
    for (std::thread& program : programs) {
        program.join();
    }
    EXPECT_EQ(succeeded, 8);
    EXPECT_EQ(Fetch("/p0") + Fetch("/p1") + Fetch("/p2") + Fetch("/p3"), "p0p1p2p3");
    EXPECT_EQ(ReadText(PathOf("shared.conf")), Answering(Fetch("/shared"), "shared"));
    EXPECT_THAT(Registered(), ElementsAre("p0.conf", "p1.conf", "p2.conf", "p3.conf", "shared.conf"));
}

TEST_F(NginxRegistry, LetsNoProgramSufferFromTheBrokenFragmentOfAnother) {
    std::atomic<bool> isOver = false;
    WriteText(folder.File("broken"), "nonsense;\n");
    std::thread other([&] {
        const auto action = std::make_shared<NginxConfRegActionRegAndEnable>(folder.File("broken"), "broken.conf");
        while (!isOver) {
            EXPECT_EQ(NginxConfRegister().DoAction(action, false).GetCode(), W3Code::kRefused);
        }
    });
    for (int round = 0; round < 20; ++round) {
        EXPECT_EQ(Register("a.conf", Answering(std::to_string(round))), W3Code::kSuccess);
    }
    isOver = true;
    other.join();
    EXPECT_THAT(Registered(), ElementsAre("a.conf"));
}

TEST_F(NginxRegistry, DisturbsNoRequestOfOthers) {
    nginx.Start();
    ASSERT_EQ(Register("other.conf", Answering("other", "other")), W3Code::kSuccess);
    std::atomic<bool> isOver = false;
    std::atomic<int> failures = 0;
    std::thread client([&] {
        while (!isOver) {
            failures += Fetch("/other") == "other" ? 0 : 1;
        }
    });
    for (int round = 0; round < 10; ++round) {
        EXPECT_EQ(Register("a.conf", Answering(std::to_string(round))), W3Code::kSuccess);
    }
    isOver = true;
    client.join();
    EXPECT_EQ(failures, 0);
}

TEST_F(NginxRegistry, MakesUpForAReloadThatNginxDidNotDo) {
    nginx.Start();
    ASSERT_EQ(Register("a.conf", Answering("one")), W3Code::kSuccess);
    ASSERT_EQ(kill(nginx.Pid(), SIGSTOP), 0);
    std::string message;
    EXPECT_EQ(Register("a.conf", Answering("two"), &message), W3Code::kTimeout);
    ASSERT_EQ(kill(nginx.Pid(), SIGCONT), 0);
    EXPECT_EQ(message, "nginx hasn't taken over the new configuration in time");
    EXPECT_THAT(Registered(), ElementsAre(".a.conf.pending", "a.conf"));
    EXPECT_EQ(Register("a.conf", Answering("two")), W3Code::kSuccess);
    EXPECT_EQ(Fetch("/a"), "two");
    EXPECT_THAT(Registered(), ElementsAre("a.conf"));
}

TEST_F(NginxRegistry, TellsThatNginxEndedBeforeItReloaded) {
    nginx.Start();
    ASSERT_EQ(kill(nginx.Pid(), SIGSTOP), 0);
    std::thread operatorsHand([this] {
        nginx.AwaitSignal(SIGHUP);
        nginx.Kill();
    });
    std::string message;
    EXPECT_EQ(Register("a.conf", Answering("one"), &message), W3Code::kReloadFailed);
    operatorsHand.join();
    EXPECT_EQ(message, "nginx ended while it was to reload");
    EXPECT_EQ(ReadText(PathOf("a.conf")), Answering("one")) << "it counts at the next start";
}

TEST_F(NginxRegistry, GoesBackBehindAChangeThatWasInterrupted) {
    WriteText(PathOf("a.conf"), "nonsense;\n");
    WriteText(PathOf(".a.conf.old"), Answering("one"));
    EXPECT_EQ(Register("a.conf", "more nonsense;\n"), W3Code::kRefused);
    EXPECT_THAT(Registered(), ElementsAre("a.conf"));
    EXPECT_EQ(ReadText(PathOf("a.conf")), Answering("one"));
}

TEST_F(NginxRegistry, GoesOnBehindAChangeThatHadHardlyBegun) {
    WriteText(PathOf("a.conf"), Answering("one"));
    std::filesystem::create_hard_link(PathOf("a.conf"), PathOf(".a.conf.old"));
    EXPECT_EQ(Register("a.conf", "nonsense;\n"), W3Code::kRefused);
    EXPECT_THAT(Registered(), ElementsAre("a.conf"));
    EXPECT_EQ(ReadText(PathOf("a.conf")), Answering("one"));
}

TEST_F(NginxRegistry, TakesAFirstFragmentOutWhoseRegistrationWasInterrupted) {
    WriteText(PathOf("a.conf"), "nonsense;\n");
    WriteText(PathOf(".a.conf.none"), "");
    EXPECT_EQ(Register("a.conf", "more nonsense;\n"), W3Code::kRefused);
    EXPECT_THAT(Registered(), testing::IsEmpty());
}

TEST_F(NginxRegistry, GoesBackBehindInterruptedChangesOfOtherNames) {
    WriteText(PathOf("b.conf"), "nonsense;\n");
    WriteText(PathOf(".b.conf.old"), Answering("two", "b"));
    WriteText(PathOf("c.conf"), "nonsense;\n");
    WriteText(PathOf(".c.conf.none"), "");
    EXPECT_EQ(Register("a.conf", Answering("one")), W3Code::kSuccess);
    EXPECT_THAT(Registered(), ElementsAre("a.conf", "b.conf"));
    EXPECT_EQ(ReadText(PathOf("b.conf")), Answering("two", "b"));
}

TEST_F(NginxRegistry, LeavesFilesAloneThatOnlyLookLikeThoseOfAChange) {
    for (const char* name : {"c.conf.none", ".c.none", ".conf.none", ".c.conf.none.txt", ".c.conf.older"}) {
        WriteText(PathOf(name), "mine");
    }
    const std::set<std::string> before = Registered();
    ASSERT_EQ(Register("a.conf", Answering("one")), W3Code::kSuccess);
    ASSERT_EQ(Remove("a.conf"), W3Code::kSuccess);
    EXPECT_EQ(Registered(), before);
}

TEST_F(NginxRegistry, GoesBackWhereverABrokenRegistrationIsInterrupted) {
    WriteText(folder.File("broken"), "nonsense;\n");
    const auto action = std::make_shared<NginxConfRegActionRegAndEnable>(folder.File("broken"), "broken.conf");
    const auto registerBroken = [&action] { NginxConfRegister().DoAction(action, false); };
    ASSERT_EQ(Register("a.conf", Answering("0")), W3Code::kSuccess);
    int stop = 1;
    for (Ending ending = Ending::kKilled; ending == Ending::kKilled; ++stop) {
        ending = RunKilledAt(stop, registerBroken);
        if (ending == Ending::kNotPermitted) {
            GTEST_SKIP() << "this machine lets nobody trace a process";
        }
        ASSERT_EQ(Register("a.conf", Answering(std::to_string(stop))), W3Code::kSuccess) << stop;
        ASSERT_FALSE(std::filesystem::exists(PathOf("broken.conf"))) << stop;
        ASSERT_FALSE(std::filesystem::exists(PathOf(".broken.conf.none"))) << stop;
    }
    EXPECT_GT(stop, 50);
}

TEST_F(NginxRegistry, GoesBackWhereTheOldFragmentCannotBeDropped) {
    nginx.Start();
    ASSERT_EQ(Register("a.conf", Answering("one")), W3Code::kSuccess);
    {
        FolderFaults faults;
        faults.undeletable = ".a.conf.old";
        std::string message;
        EXPECT_EQ(Register("a.conf", Answering("two"), &message), W3Code::kFileSystem);
        EXPECT_THAT(message, HasSubstr("what was there before isn't dropped"));
        EXPECT_EQ(ReadText(PathOf("a.conf")), Answering("one"));
        faults.undeletable = ".b.conf.none";
        EXPECT_EQ(Register("b.conf", Answering("two", "b")), W3Code::kInternal) << "nor can the way back be ended";
        EXPECT_FALSE(std::filesystem::exists(PathOf("b.conf")));
    }
    EXPECT_EQ(Fetch("/a"), "one");
    EXPECT_EQ(Register("b.conf", Answering("two", "b")), W3Code::kSuccess);
    EXPECT_EQ(Fetch("/b"), "two");
    EXPECT_THAT(Registered(), ElementsAre("a.conf", "b.conf"));
}

TEST_F(NginxRegistry, TellsThatAChangeCannotBeTakenBack) {
    nginx.Start();
    ASSERT_EQ(Register("a.conf", Answering("one")), W3Code::kSuccess);
    {
        FolderFaults faults;
        faults.immovable = ".a.conf.old";
        std::string message;
        EXPECT_EQ(Register("a.conf", "nonsense;\n", &message), W3Code::kInternal);
        EXPECT_THAT(message, AllOf(HasSubstr("nonsense"), HasSubstr("what was there isn't back")));
    }
    EXPECT_EQ(Register("b.conf", Answering("two", "b")), W3Code::kSuccess);
    EXPECT_EQ(ReadText(PathOf("a.conf")), Answering("one"));
    EXPECT_EQ(Fetch("/a") + Fetch("/b"), "onetwo");
}

TEST_F(NginxRegistry, SignalsNoOtherProcessByAStalePidFile) {
    for (const std::string& text :
         {std::to_string(getpid()) + "\n", std::string("1\n"), std::string("-1\n"), std::string("0\n"),
          std::string("999999999999\n"), std::string("x\n"), std::string()}) {
        WriteText("/run/nginx.pid", text);
        std::string message;
        EXPECT_EQ(Register("a.conf", Answering("one"), &message, true), W3Code::kSuccess);
        EXPECT_EQ(message, "nginx isn't running") << text;
    }
}

struct Place {
    const char* name;
    const char* configuration;
    const char* pidFile;
};

class NginxPlace : public testing::TestWithParam<Place> {};

TEST_P(NginxPlace, IsFound) {
    if (!NginxServer::IsInstalled()) {
        GTEST_SKIP() << "nginx isn't installed";
    }
    const ScratchFolder folder;
    WriteText("/etc/ardv/web.conf", std::string("nginx_conf=\"") + GetParam().configuration + "\"\n");
    NginxServer nginx(GetParam().configuration, GetParam().pidFile);
    nginx.Start();
    WriteText(folder.File("source"), Answering("one"));
    const auto action = std::make_shared<NginxConfRegActionRegAndEnable>(folder.File("source"), "a.conf");
    EXPECT_EQ(NginxConfRegister().DoAction(action, false).GetCode(), W3Code::kSuccess);
    EXPECT_EQ(Fetch("/a"), "one");
}

INSTANTIATE_TEST_SUITE_P(Configurations, NginxPlace,
                         testing::Values(Place{"OfItsOwn", "/etc/ardv/web/main.conf", "/run/ardv-web.pid"},
                                         Place{"WithoutAPidFile", "/etc/nginx/nginx.conf", ""},
                                         Place{"WithAnEmptySetting", "", "/run/nginx.pid"}),
                         [](const auto& place) { return place.param.name; });

}  // namespace
