// SPDX-License-Identifier: Apache-2.0
#include "nginx_registry_fixture.h"

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <csignal>
#include <filesystem>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

namespace {

using namespace ardv::test;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr const char* kServerBlock = "/etc/nginx/conf.d/ardv.conf";

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
    std::string message;
    EXPECT_EQ(Register("a.conf", Answering("one"), &message), W3Code::kFileSystem);
    EXPECT_THAT(message, testing::MatchesRegex(R"(fragments can't be changed: \[0x0400 nginx_fragment\.cpp:[0-9]+\])"));
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

constexpr const char* kPidFile = "/run/nginx.pid";

TEST_F(NginxRegistry, TakesThePidFileOfAnotherProcessForOneOfThePast) {
    for (const std::string& text :
         {std::to_string(getpid()) + "\n", std::string("1\n"), std::to_string(INT_MAX), std::string()}) {
        WriteText(kPidFile, text);
        std::string message;
        EXPECT_EQ(Register("a.conf", Answering("one"), &message, true), W3Code::kSuccess);
        EXPECT_EQ(message, "nginx isn't running") << text;
    }
}

TEST_F(NginxRegistry, SignalsNobodyAndReloadsLaterWhereThePidFileTellsNothing) {
    for (const std::string& text : {std::string("-1\n"), std::string("0\n"), std::string("999999999999\n"),
                                    std::string("x\n"), std::string("\n"), std::string(1000, '1')}) {
        WriteText(kPidFile, text);
        std::string message;
        EXPECT_EQ(Register("a.conf", Answering("one"), &message, true), W3Code::kReloadFailed) << text;
        EXPECT_THAT(message, HasSubstr("it can't be told whether nginx is running"));
        EXPECT_THAT(Registered(), ElementsAre(".a.conf.pending", "a.conf")) << text;
    }
    std::filesystem::remove(kPidFile);
    nginx.Start();
    const std::set<pid_t> workers = nginx.Workers();
    EXPECT_EQ(Register("a.conf", Answering("one")), W3Code::kSuccess);
    EXPECT_NE(nginx.Workers(), workers) << "it is made up for";
    EXPECT_THAT(Registered(), ElementsAre("a.conf"));
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
