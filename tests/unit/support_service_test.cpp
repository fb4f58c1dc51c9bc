// SPDX-License-Identifier: Apache-2.0
#include <relay/config/support_service.h>

#include <cstddef>
#include <iterator>
#include <string>
#include <type_traits>

#include <relay/config/config.h>

#include "support/service_device.h"

namespace ARDV::Relay {

namespace {

using namespace ardv::test;

/** A record as it must be; an absent text is empty. */
struct Expected {
    const char* id;
    const char* file;
    const char* key;
    const char* value;
    int isDefault;
    const char* package;
    const char* unit;
    int group;
    bool hasCheck;
};

constexpr const char kWebDav[] = "/var/packages/WebDAVServer/target/etc/webdav.cfg";

constexpr Expected kExpected[] = {
    {"hos", "", "", "", 1, "", "", 1, false},
    {"hos_https", "", "", "", 0, "", "", 1, false},
    {"webdav_http", kWebDav, "enable_http", "yes", 0, "WebDAVServer", "", 1, false},
    {"webdavs_https", kWebDav, "enable_https", "yes", 0, "WebDAVServer", "", 1, false},
    {"http", "", "", "", 0, "", "", -1, false},
    {"https", "", "", "", 0, "", "", -1, false},
    {"telnet", "", "", "", 0, "", "inetd.service", -1, false},
    {"ssh", "/etc/ardvinfo.conf", "supportssh", "yes", 0, "", "sshd.service", -1, false},
    {"dms_https", "", "", "", 0, "", "", 8, false},
    {"file_sharing", "", "", "", 1, "", "", 8, false},
    {"file_sharing_https", "", "", "", 0, "", "", 8, false},
    {"hos_portal", "", "", "no", 1, "", "", 16, true},
    {"hos_portal_https", "", "", "", 0, "", "", 16, false},
    {"hos_portal_http2", "", "", "", 0, "", "", 16, false},
    {"photo_portal_http", "", "", "", 0, "Pictara", "", 32, false},
    {"photo_portal_https", "", "", "", 0, "Pictara", "", 32, false},
    {"photo_portal_http2", "", "", "", 0, "Pictara", "", 32, false},
    {"audio_http", "", "", "", 1, "Sonara", "", 1, false},
    {"audio_https", "", "", "", 0, "Sonara", "", 1, false},
    {"photo_http", "", "", "", 0, "Pictara", "", 2, false},
    {"photo_https", "", "", "", 0, "Pictara", "", 2, false},
    {"filara", "", "", "", 0, "Filara", "", 4, false},
    {"filara", "", "", "", 0, "Drivara", "", 4, false},
};

void ExpectText(const char* text, const char* expected, const char* field) {
    if (*expected == '\0') {
        EXPECT_EQ(text, nullptr) << field << ": absent, which is not empty";
    } else {
        EXPECT_STREQ(text, expected) << field;
    }
}

class SupportServiceRecord : public testing::TestWithParam<std::size_t> {};

TEST_P(SupportServiceRecord, IsAsItsUsersKnowIt) {
    const auto& expected = kExpected[GetParam()];
    const auto& record = grgszSupportService[GetParam()];
    ASSERT_STREQ(record.id, expected.id);
    ExpectText(record.conf_file, expected.file, "conf_file");
    ExpectText(record.conf_key, expected.key, "conf_key");
    ExpectText(record.conf_value, expected.value, "conf_value");
    EXPECT_EQ(record.is_default, expected.isDefault);
    ExpectText(record.package, expected.package, "package");
    ExpectText(record.unit, expected.unit, "unit");
    EXPECT_EQ(record.group, expected.group);
    EXPECT_EQ(record.check != nullptr, expected.hasCheck);
}

INSTANTIATE_TEST_SUITE_P(Table, SupportServiceRecord, testing::Range<std::size_t>(0, std::size(kExpected)),
                         [](const auto& row) {
                             return "Row" + std::to_string(row.param + 1) + "_" + kExpected[row.param].id;
                         });

TEST(SupportServiceTable, EndsWithARecordWithoutAnIdentifier) {
    std::size_t count = 0;
    while (grgszSupportService[count].id) {
        ++count;
    }
    EXPECT_EQ(count, std::size(kExpected));
}

TEST(SupportServiceTable, HasRecordsOfAFixedLayout) {
    EXPECT_EQ(offsetof(SupportService, conf_file), 1 * sizeof(void*));
    EXPECT_EQ(offsetof(SupportService, conf_key), 2 * sizeof(void*));
    EXPECT_EQ(offsetof(SupportService, conf_value), 3 * sizeof(void*));
    EXPECT_EQ(offsetof(SupportService, is_default), 4 * sizeof(void*));
    EXPECT_EQ(offsetof(SupportService, package), 5 * sizeof(void*));
    EXPECT_EQ(offsetof(SupportService, unit), 6 * sizeof(void*));
    EXPECT_EQ(offsetof(SupportService, group), 7 * sizeof(void*));
    EXPECT_EQ(offsetof(SupportService, check), 8 * sizeof(void*));
    EXPECT_TRUE(std::is_signed_v<decltype(SupportService::group)>);
}

using PortalService = ServiceDevice;

const SupportService& Portal() {
    const auto* record = grgszSupportService;
    while (record->id != std::string("hos_portal")) {
        ++record;
    }
    return *record;
}

TEST_F(PortalService, IsCheckedByWhetherTheWebServerRedirectsToHttpsByItsOwnSettings) {
    EXPECT_FALSE(Portal().check());
    WriteText(kWebSettings, "https_redirect=\"yes\"\n");
    EXPECT_TRUE(Portal().check());
    WriteText(kWebSettings, "https_redirect=\"yes\"\nhttp_default_conf=\"yes\"\n");
    EXPECT_FALSE(Portal().check());
    WriteText(kWebSettings, "https_redirect=\"no\"\nhttp_default_conf=\"no\"\n");
    EXPECT_FALSE(Portal().check());
}

TEST(SupportServiceTable, NoServiceHasARunKey) {
    for (const auto* record = grgszSupportService; record->id; ++record) {
        EXPECT_FALSE(RelaydConf::CheckServiceRunKey(record)) << record->id;
    }
    EXPECT_FALSE(RelaydConf::CheckServiceRunKey(nullptr));
}

}  // namespace

}  // namespace ARDV::Relay
