// SPDX-License-Identifier: Apache-2.0
#include <relay/utils/portal_check.h>

#include <filesystem>
#include <string>

#include "support/device_test.h"
#include "support/service_faults.h"

namespace ARDV::Relay {

namespace {

using namespace ardv::test;

constexpr const char* kWebSettings = "/etc/ardv/web.conf";

struct Portal {
    const char* name;
    const char* settings;
    bool isRedirected;
};

class PortalRedirection : public testing::TestWithParam<Portal> {};

TEST_P(PortalRedirection, IsInForceUnlessTheServerHasItsDefaultConfiguration) {
    WriteText(kWebSettings, GetParam().settings);
    EXPECT_EQ(IsHttpRedirectedToHttps(), GetParam().isRedirected);
}

INSTANTIATE_TEST_SUITE_P(Settings, PortalRedirection,
                         testing::Values(Portal{"Both", "https_redirect=yes\nhttp_default_conf=yes\n", false},
                                         Portal{"RedirectAlone", "https_redirect=yes\nhttp_default_conf=no\n", true},
                                         Portal{"NothingOfTheDefault", "https_redirect=yes\n", true},
                                         Portal{"DefaultAlone", "https_redirect=no\nhttp_default_conf=yes\n", false},
                                         Portal{"Neither", "https_redirect=no\nhttp_default_conf=no\n", false},
                                         Portal{"Empty", "", false}),
                         [](const auto& portal) { return portal.param.name; });

TEST(PortalRedirectionAnswer, IsTheDefaultConfigurationForNoOtherAnswerThanOne) {
    WriteText(kWebSettings, "https_redirect=yes\n");
    ServiceFaults faults;
    for (const int answer : {-1, 0, 2}) {
        faults.httpDefaultConf = answer;
        EXPECT_TRUE(IsHttpRedirectedToHttps()) << answer;
    }
    faults.httpDefaultConf = 1;
    EXPECT_FALSE(IsHttpRedirectedToHttps());
}

TEST(PortalRedirectionFile, MissingIsNoRedirection) {
    std::filesystem::remove(kWebSettings);
    EXPECT_FALSE(IsHttpRedirectedToHttps());
}

}  // namespace

}  // namespace ARDV::Relay
