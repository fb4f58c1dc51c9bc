// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "platform/linux/nginx_server.h"

namespace ARDV::Platform::Test {

namespace {

std::string PidOf(const std::string& configuration) {
    return FindMainDirective(configuration, "pid").value_or("(none)");
}

}  // namespace

TEST(NginxConfiguration, HasADirectiveOutsideOfBlocks) {
    EXPECT_EQ(PidOf("pid /run/a.pid;"), "/run/a.pid");
    EXPECT_EQ(PidOf("user root;\n\tpid\n  /run/a.pid ;\n"), "/run/a.pid");
    EXPECT_EQ(PidOf("pid \"/run/a b.pid\";"), "/run/a b.pid");
    EXPECT_EQ(PidOf("pid '/run/a;b.pid';"), "/run/a;b.pid");
    EXPECT_EQ(PidOf("events {}\npid /run/a.pid;"), "/run/a.pid");
    EXPECT_EQ(PidOf("http { server { listen 1; } }pid /run/a.pid;pid /run/b.pid;"), "/run/a.pid");
}

TEST(NginxConfiguration, HasNoDirectiveInCommentsBlocksAndArguments) {
    EXPECT_EQ(PidOf(""), "(none)");
    EXPECT_EQ(PidOf("# pid /run/a.pid;\n#\n#"), "(none)");
    EXPECT_EQ(PidOf("http { pid /run/a.pid; }"), "(none)");
    EXPECT_EQ(PidOf("user pid /run/a.pid;"), "(none)");
    EXPECT_EQ(PidOf("pids /run/a.pid;"), "(none)");
    EXPECT_EQ(PidOf("user 'x; pid /run/a.pid; y';"), "(none)");
    EXPECT_EQ(PidOf("http { set $x \"}\"; pid a; }"), "(none)");
    EXPECT_EQ(PidOf("http { set $x ${y}z; pid a; }"), "(none)");
    EXPECT_EQ(PidOf("http { location ~ a\\{ { } pid a; }"), "(none)");
    EXPECT_EQ(PidOf("http { set $x \"\\\"\"; pid a; }"), "(none)");
    EXPECT_EQ(PidOf("pid;"), "(none)");
}

TEST(NginxConfiguration, MayEndAnywhere) {
    const std::string whole = "a \"b\\\"c\" ${d}\\e { # f\n 'g' } pid /run/a.pid;";
    for (std::size_t length = 0; length < whole.size(); ++length) {
        FindMainDirective(std::string_view(whole).substr(0, length), "pid");
    }
    EXPECT_EQ(PidOf(whole), "/run/a.pid");
    EXPECT_EQ(PidOf("x \\"), "(none)");
    EXPECT_EQ(PidOf("x \"\\"), "(none)");
    EXPECT_EQ(PidOf("x $"), "(none)");
}

TEST(NginxConfiguration, IncludesTheFilesThatItNames) {
    NginxConfiguration configuration;
    configuration.text = "# configuration file /etc/nginx/nginx.conf:\nhttp {}\n\n# configuration file /a/b.conf:\n";
    EXPECT_TRUE(configuration.Includes("/a/b.conf"));
    EXPECT_FALSE(configuration.Includes("/a/b"));
    EXPECT_FALSE(configuration.Includes("/b.conf"));
    configuration.isWhole = false;
    EXPECT_TRUE(configuration.Includes("/b.conf")) << "it can't be told";
}

}  // namespace ARDV::Platform::Test
