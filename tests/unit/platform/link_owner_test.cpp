// SPDX-License-Identifier: Apache-2.0
// A link is followed where its owner was looked at, not where another one leads that came into its place meanwhile.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <string>

#include <ardv/key_value_file.h>

#include "made_file.h"
#include "support/real_function.h"

namespace {

/// What somebody else does right before a link's text is read.
std::function<void()> beforeReading;

}  // namespace

// Takes the place of readlinkat, which the system's headers may define themselves.
extern "C" __attribute__((visibility("default"))) ssize_t ReadLinkAt(int folder, const char* path, char* text,
                                                                     size_t size) __asm__("readlinkat");

ssize_t ReadLinkAt(int folder, const char* path, char* text, size_t size) {
    static const auto real = ardv::test::RealFunction<ssize_t (*)(int, const char*, char*, size_t)>("readlinkat");
    if (beforeReading) {
        beforeReading();
    }
    return real(folder, path, text, size);
}

namespace ARDV::Platform::Test {

TEST(LinkOwner, IsThatOfTheLinkThatIsFollowed) {
    const ScratchFolder folder;
    const std::string meant = MakeFile(folder, "meant.conf", "k=old\n");
    const std::string victim = MakeFile(folder, "victim.conf", "k=old\n");
    const std::string open = folder.File("open");
    const std::string link = open + "/a.conf";
    std::filesystem::create_directory(open);
    std::filesystem::permissions(open, std::filesystem::perms::all);
    std::filesystem::create_symlink(meant, link);
    beforeReading = [&] {
        beforeReading = nullptr;
        std::filesystem::remove(link);
        std::filesystem::create_symlink(victim, link);
    };
    EXPECT_EQ(ALIBCFileSetKeyValue(link.c_str(), "k", "new", 0), 0);
    EXPECT_EQ(beforeReading, nullptr) << "the link was read in another way";
    EXPECT_EQ(ReadText(victim), "k=old\n");
    EXPECT_EQ(ReadText(meant), "k=\"new\"\n");
}

}  // namespace ARDV::Platform::Test
