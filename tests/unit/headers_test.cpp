// SPDX-License-Identifier: Apache-2.0
// That each public header compiles alone, as C++17 and as C++20, shows when this program is built: a source for each
// header and standard is part of it. What is tested here is the list itself.
#include <algorithm>
#include <filesystem>
#include <iterator>
#include <regex>
#include <set>
#include <sstream>
#include <string>

#include "support/device_test.h"

namespace ARDV::Relay {

namespace {

namespace fs = std::filesystem;

const fs::path kSources = ARDV_SOURCE_DIR;

std::set<std::string> PublicHeaders() {
    std::istringstream list(ARDVRELAYD_PUBLIC_HEADERS);
    return {std::istream_iterator<std::string>(list), {}};
}

std::set<std::string> ProjectHeadersIn(const std::string& text) {
    static const std::regex include("#include [<\"]((relay|ardv)/[^>\"]+)[>\"]");
    std::set<std::string> found;
    for (auto match = std::sregex_iterator(text.begin(), text.end(), include); match != std::sregex_iterator();
         ++match) {
        found.insert((*match)[1]);
    }
    return found;
}

TEST(PublicHeaders, AreThoseThatExportSomething) {
    std::set<std::string> exporting;
    for (const auto& entry : fs::recursive_directory_iterator(kSources / "relay")) {
        if (entry.path().extension() == ".h" &&
            ardv::test::ReadText(entry.path()).find("ARDVRELAYD_API") != std::string::npos) {
            exporting.insert(fs::relative(entry.path(), kSources));
        }
    }
    exporting.insert("relay/tunnel/tunnel_names.h");  // has constants alone
    EXPECT_EQ(exporting, PublicHeaders());
}

TEST(PublicHeaders, IncludeNoOtherHeadersOfTheProject) {
    const auto headers = PublicHeaders();
    ASSERT_FALSE(headers.empty());
    for (const auto& header : headers) {
        for (const auto& included : ProjectHeadersIn(ardv::test::ReadText(kSources / header))) {
            EXPECT_TRUE(headers.contains(included)) << header << " includes " << included;
        }
    }
}

}  // namespace

}  // namespace ARDV::Relay
