// SPDX-License-Identifier: Apache-2.0
// Fragments of nginx's configuration where a change of one is interrupted, or can't be ended.
#include "nginx_registry_fixture.h"

#include <filesystem>
#include <memory>
#include <set>
#include <string>

#include <gmock/gmock.h>

#include "support/folder_faults.h"
#include "support/killed_at_call.h"

namespace {

using namespace ardv::test;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

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

}  // namespace
