// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "made_file.h"

extern "C" int CountWorkingCallsFromC(const char* file);

namespace ARDV::Platform::Test {

TEST(PlatformHeaders, ServeACallerWrittenInC) {
    const ScratchFolder folder;
    WriteText("/etc/ardv/services.d/only.json", R"([{"service": "dms", "ports": ["5000"]}])");
    EXPECT_EQ(CountWorkingCallsFromC(folder.File("settings.conf").c_str()), 22);
}

}  // namespace ARDV::Platform::Test
