// SPDX-License-Identifier: Apache-2.0
#include <ardv/error.h>

#include <gtest/gtest.h>

#include <string>
#include <thread>

#include <ardv/key_value_file.h>

#include "made_file.h"

namespace ARDV::Platform::Test {

namespace {

struct Triple {
    int code;
    std::string file;
    int line;
};

Triple LastError() {
    return {ALIBCErrGet(), ALIBCErrorGetFile(), ALIBCErrorGetLine()};
}

Triple LastErrorOfANewThread() {
    Triple triple{};
    std::thread([&triple] { triple = LastError(); }).join();
    return triple;
}

int ReadMissingFile() {
    char value[8];
    return ALIBCFileGetKeyValue("/nowhere/at/all.conf", "key", value, sizeof(value), 0);
}

}  // namespace

TEST(LastError, IsEmptyOnAThreadWhereNothingFailed) {
    const Triple triple = LastErrorOfANewThread();
    EXPECT_EQ(triple.code, ARDV_ERR_NONE);
    EXPECT_EQ(triple.file, "");
    EXPECT_EQ(triple.line, 0);
}

TEST(LastError, NamesCodeFileAndLineOfAFailure) {
    ASSERT_LT(ReadMissingFile(), 0);
    const Triple triple = LastError();
    EXPECT_EQ(triple.code, ARDV_ERR_NOT_FOUND);
    EXPECT_NE(triple.file, "");
    EXPECT_EQ(triple.file.find('/'), std::string::npos) << "a base name is wanted, not " << triple.file;
    EXPECT_GT(triple.line, 0);
}

TEST(LastError, BelongsToItsThread) {
    ASSERT_LT(ALIBCFileSetKeyValue(nullptr, "key", "value", 0), 0);
    std::thread([] {
        EXPECT_LT(ReadMissingFile(), 0);
        EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_NOT_FOUND);
    }).join();
    EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(LastErrorOfANewThread().code, ARDV_ERR_NONE);
}

TEST(LastError, StaysAfterSuccessAndAbsence) {
    const ScratchFolder folder;
    const std::string file = MakeFile(folder, "settings.conf", "a=1\n");
    ASSERT_LT(ReadMissingFile(), 0);
    const int line = ALIBCErrorGetLine();

    char value[8];
    EXPECT_EQ(ALIBCFileGetKeyValue(file.c_str(), "a", value, sizeof(value), 0), 1);
    EXPECT_EQ(ALIBCFileGetKeyValue(file.c_str(), "b", value, sizeof(value), 0), 0);
    EXPECT_EQ(ALIBCFileCheckKeyValue(file.c_str(), "a", "2", 0), 0);
    EXPECT_EQ(ALIBCFileSetKeyValue(folder.File("new.conf").c_str(), "a", "1", 0), 0);
    EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_NOT_FOUND);
    EXPECT_EQ(ALIBCErrorGetLine(), line);
}

TEST(LastError, HasCodesThatFitFourHexadecimalDigits) {
    for (const int code : {ARDV_ERR_INVALID_ARGUMENT, ARDV_ERR_IO, ARDV_ERR_CRYPTO}) {
        EXPECT_GT(code, 0);
        EXPECT_LT(code, 0x10000);
    }
}

}  // namespace ARDV::Platform::Test
