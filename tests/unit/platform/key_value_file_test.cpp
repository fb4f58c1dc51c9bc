// SPDX-License-Identifier: Apache-2.0
#include <ardv/key_value_file.h>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <set>
#include <string>

#include <ardv/error.h>

#include "made_file.h"

namespace ARDV::Platform::Test {

namespace {

using namespace std::string_literals;

struct Answer {
    int result;
    std::string value;
    bool operator==(const Answer&) const = default;
};

void PrintTo(const Answer& answer, std::ostream* stream) {
    *stream << answer.result << " \"" << answer.value << '"';
}

Answer Get(const std::string& file, const char* key = "k", std::size_t size = 64) {
    std::string buffer(size + 1, 'x');
    const int result = ALIBCFileGetKeyValue(file.c_str(), key, buffer.data(), size, 0);
    EXPECT_EQ(buffer[size], 'x') << "written past the end";
    return {result, buffer.substr(0, buffer.find('\0'))};
}

void ExpectUnreadable(const std::string& file, int code) {
    EXPECT_EQ(Get(file), (Answer{-1, ""}));
    EXPECT_EQ(ALIBCErrGet(), code) << file;
    EXPECT_EQ(ALIBCFileCheckKeyValue(file.c_str(), "k", "", 0), 0);
}

int Set(const std::string& file, const char* key, const char* value) {
    return ALIBCFileSetKeyValue(file.c_str(), key, value, 0);
}

}  // namespace

class KeyValueFile : public testing::Test {
protected:
    ScratchFolder folder_;
};

TEST_F(KeyValueFile, TellsPresentEmptyAndAbsentKeysApart) {
    const std::string file = MakeFile(folder_, "a.conf", "k=\"v\"\nempty=\n");
    EXPECT_EQ(Get(file), (Answer{1, "v"}));
    EXPECT_EQ(Get(file, "empty"), (Answer{1, ""}));
    EXPECT_EQ(Get(file, "other"), (Answer{0, ""}));
}

TEST_F(KeyValueFile, CutsALongValueAndStillCallsItPresent) {
    const std::string file = MakeFile(folder_, "a.conf", "k=\"12345678\"\n");
    EXPECT_EQ(Get(file, "k", 9), (Answer{1, "12345678"}));
    EXPECT_EQ(Get(file, "k", 8), (Answer{1, "1234567"}));
    EXPECT_EQ(Get(file, "k", 2), (Answer{1, "1"}));
    EXPECT_EQ(Get(file, "k", 1), (Answer{1, ""}));
}

TEST_F(KeyValueFile, ShowsAValueWithANulByteUpToIt) {
    EXPECT_EQ(Get(MakeFile(folder_, "a.conf", "k=v\0w\n"s)), (Answer{1, "v"}));
}

TEST_F(KeyValueFile, FailsToReadWhatIsNoRegularFile) {
    ASSERT_EQ(mkfifo(folder_.File("pipe").c_str(), 0600), 0);
    ExpectUnreadable(folder_.File("absent.conf"), ARDV_ERR_NOT_FOUND);
    ExpectUnreadable(MakeFile(folder_, "a.conf", "k=v") + "/b.conf", ARDV_ERR_NOT_FOUND);
    ExpectUnreadable(folder_.Path(), ARDV_ERR_NOT_REGULAR);
    ExpectUnreadable(folder_.File("pipe"), ARDV_ERR_NOT_REGULAR);
    ExpectUnreadable("/dev/zero", ARDV_ERR_NOT_REGULAR);
}

TEST_F(KeyValueFile, FailsToReadAFileBeyondTheBound) {
    const std::string file = MakeFile(folder_, "a.conf", "k=v\n");
    ASSERT_EQ(truncate(file.c_str(), ARDV_KEY_VALUE_FILE_MAX), 0);
    EXPECT_EQ(Get(file), (Answer{1, "v"}));
    ASSERT_EQ(truncate(file.c_str(), ARDV_KEY_VALUE_FILE_MAX + 1), 0);
    ExpectUnreadable(file, ARDV_ERR_TOO_LARGE);
}

TEST_F(KeyValueFile, ReadsAFileWhoseSizeIsNotKnownBefore) {
    const std::string file = "/proc/sys/kernel/ostype";
    EXPECT_EQ(Get(file).result, 0);
    EXPECT_GT(Get("/proc/self/status", "Name").result, -1);
}

TEST_F(KeyValueFile, RefusesBadArgumentsOfGet) {
    const std::string file = MakeFile(folder_, "a.conf", "k=v\n");
    char value[8] = "x";
    const auto get = [&value](const char* path, const char* key, int flags) {
        std::strcpy(value, "x");
        return ALIBCFileGetKeyValue(path, key, value, sizeof(value), flags);
    };
    const char* path = file.c_str();
    for (const int result :
         {get(nullptr, "k", 0), get("", "k", 0), get(path, nullptr, 0), get(path, "", 0), get(path, "k", 1)}) {
        EXPECT_LT(result, 0);
    }
    EXPECT_STREQ(value, "");
    EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_INVALID_ARGUMENT);
    EXPECT_LT(ALIBCFileGetKeyValue(path, "k", nullptr, 8, 0), 0);
    std::strcpy(value, "x");
    EXPECT_LT(ALIBCFileGetKeyValue(path, "k", value, 0, 0), 0);
    EXPECT_STREQ(value, "x") << "a buffer of size 0 must not be touched";
}

TEST_F(KeyValueFile, ChecksForExactlyOneValue) {
    const std::string file = MakeFile(folder_, "a.conf", "k='Yes'\nempty=\nk=no\n");
    const auto check = [&file](const char* key, const char* value) {
        return ALIBCFileCheckKeyValue(file.c_str(), key, value, 0);
    };
    EXPECT_EQ(check("k", "Yes"), 1);
    EXPECT_EQ(check("k", "yes"), 0);
    EXPECT_EQ(check("k", "Yes "), 0);
    EXPECT_EQ(check("k", "Ye"), 0);
    EXPECT_EQ(check("k", "no"), 0) << "the first entry counts";
    EXPECT_EQ(check("empty", ""), 1);
    EXPECT_EQ(check("absent", ""), 0);
}

TEST_F(KeyValueFile, AnswersNoToBadArgumentsOfCheck) {
    const std::string file = MakeFile(folder_, "a.conf", "k=v\n");
    EXPECT_EQ(ALIBCFileCheckKeyValue(file.c_str(), "k", "v", 0), 1);
    EXPECT_EQ(ALIBCFileCheckKeyValue(file.c_str(), "k", "v", 1), 1);
    EXPECT_EQ(ALIBCFileCheckKeyValue(file.c_str(), "k", "v", 2), 0);
    EXPECT_EQ(ALIBCFileCheckKeyValue(file.c_str(), "k", nullptr, 0), 0);
    EXPECT_EQ(ALIBCFileCheckKeyValue(file.c_str(), nullptr, "v", 0), 0);
    EXPECT_EQ(ALIBCFileCheckKeyValue(nullptr, "k", "v", 0), 0);
    EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_INVALID_ARGUMENT);
}

TEST_F(KeyValueFile, FindsTheLastLineOfALargeFile) {
    std::string text;
    for (int line = 0; text.size() < 10'000'000; ++line) {
        text += "setting_" + std::to_string(line) + "=\"value " + std::to_string(line) + "\"\n";
    }
    const std::string file = MakeFile(folder_, "a.conf", text + "k=v");
    EXPECT_EQ(Get(file), (Answer{1, "v"}));
    EXPECT_EQ(Get(file, "setting_100000"), (Answer{1, "value 100000"}));
    EXPECT_EQ(Get(file, "setting_"), (Answer{0, ""}));
    ASSERT_EQ(Set(file, "k", "w"), 0);
    EXPECT_TRUE(ReadText(file) == text + "k=\"w\"");
}

TEST_F(KeyValueFile, ReadsALineOfManyMegabytes) {
    const std::string file = MakeFile(folder_, "a.conf", "long=" + std::string(8'000'000, '#') + "\nk=v\n");
    EXPECT_EQ(Get(file), (Answer{1, "v"}));
    EXPECT_EQ(Get(file, "long", 5), (Answer{1, "####"}));
}

TEST_F(KeyValueFile, KeepsCommentsAndOrderWhenAKeyIsSet) {
    const std::string file = MakeFile(folder_, "a.conf", "# head\n\nx = 'y' # note\r\nk=old # why\nno entry\nz=\"1\"");
    ASSERT_EQ(Set(file, "k", "new \"one\""), 0);
    EXPECT_EQ(ReadText(file), "# head\n\nx = 'y' # note\r\nk=\"new \\\"one\\\"\" # why\nno entry\nz=\"1\"");
    ASSERT_EQ(Set(file, "added", ""), 0);
    EXPECT_TRUE(ReadText(file).ends_with("z=\"1\"\nadded=\"\"\n"));
    EXPECT_EQ(Get(file), (Answer{1, "new \"one\""}));
}

TEST_F(KeyValueFile, LeavesAFileAloneThatHasTheValueAlready) {
    const std::string file = MakeFile(folder_, "a.conf", "k=v\n");
    struct stat before {};
    struct stat after {};
    ASSERT_EQ(stat(file.c_str(), &before), 0);
    EXPECT_EQ(Set(file, "k", "v"), 0);
    ASSERT_EQ(stat(file.c_str(), &after), 0);
    EXPECT_EQ(before.st_ino, after.st_ino);
    EXPECT_EQ(before.st_mtim.tv_nsec, after.st_mtim.tv_nsec);
    EXPECT_EQ(ReadText(file), "k=v\n");
}

TEST_F(KeyValueFile, RefusesKeysAndValuesThatCouldNotBeReadBack) {
    const std::string file = MakeFile(folder_, "a.conf", "k=v\n");
    for (const char* key : {"", "a=b", "a b", "#a", "a\"", "'a", "a\nb", "a\tb", "a\rb"}) {
        EXPECT_LT(Set(file, key, "v"), 0) << key;
        EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_INVALID_ARGUMENT);
    }
    for (const char* value : {"a\nb", "\n", "a\r", "\r\n"}) {
        EXPECT_LT(Set(file, "k", value), 0) << value;
        EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_INVALID_ARGUMENT);
    }
    EXPECT_EQ(ReadText(file), "k=v\n");
}

TEST_F(KeyValueFile, RefusesBadArgumentsOfSet) {
    const std::string file = MakeFile(folder_, "a.conf", "k=v\n");
    const char* path = file.c_str();
    EXPECT_LT(ALIBCFileSetKeyValue(nullptr, "k", "v", 0), 0);
    EXPECT_LT(ALIBCFileSetKeyValue("", "k", "v", 0), 0);
    EXPECT_LT(ALIBCFileSetKeyValue(path, nullptr, "v", 0), 0);
    EXPECT_LT(ALIBCFileSetKeyValue(path, "k", nullptr, 0), 0);
    EXPECT_LT(ALIBCFileSetKeyValue(path, "k", "w", 1), 0);
    EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(ReadText(file), "k=v\n");
    EXPECT_EQ(folder_.Names(), std::set<std::string>{"a.conf"});
}

TEST_F(KeyValueFile, ReplacesEachValueExactlyByTheNext) {
    const std::string file = folder_.File("a.conf");
    for (const char* value :
         {"plain", "", " led and trailed ", "#", "a # b", "\"", "\\", "\\\"", "'", "a=b", "\t", "\xc3\xa9\xff"}) {
        ASSERT_EQ(Set(file, "k", value), 0);
        EXPECT_EQ(Get(file), (Answer{1, value}));
        EXPECT_EQ(ALIBCFileCheckKeyValue(file.c_str(), "k", value, 0), 1);
    }
}

}  // namespace ARDV::Platform::Test
