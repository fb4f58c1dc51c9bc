// SPDX-License-Identifier: Apache-2.0
#include <relay/config/support_service.h>

#include <relay/utils/portal_check.h>

namespace ARDV::Relay {

namespace {

constexpr const char kWebDav[] = "/var/packages/WebDAVServer/target/etc/webdav.cfg";
constexpr const char kDevice[] = "/etc/ardvinfo.conf";
constexpr const char* kNone = nullptr;

constexpr int kAlways = SERVICE_GROUP_ALWAYS;
constexpr int kMobile = SERVICE_GROUP_MOBILE_APPS;
constexpr int kPictara = SERVICE_GROUP_PICTARA;
constexpr int kFilara = SERVICE_GROUP_FILARA;
constexpr int kSharing = SERVICE_GROUP_FILE_SHARING;
constexpr int kPortal = SERVICE_GROUP_HOS_PORTAL;
constexpr int kPhotos = SERVICE_GROUP_PHOTO_PORTAL;

}  // namespace

// "hos_portal" has a value without a file: the value is the answer that its check must give. "filara" stands twice: the
// file-sync service is offered by whichever of its two packages is installed.
//
// clang-format off
const SupportService grgszSupportService[] = {
    // id                 conf_file  conf_key       conf_value default package     unit            group     check
    {"hos",                kNone,    kNone,          kNone,    1, kNone,          kNone,           kMobile,  nullptr},
    {"hos_https",          kNone,    kNone,          kNone,    0, kNone,          kNone,           kMobile,  nullptr},
    {"webdav_http",        kWebDav,  "enable_http",  "yes",    0, "WebDAVServer", kNone,           kMobile,  nullptr},
    {"webdavs_https",      kWebDav,  "enable_https", "yes",    0, "WebDAVServer", kNone,           kMobile,  nullptr},
    {"http",               kNone,    kNone,          kNone,    0, kNone,          kNone,           kAlways,  nullptr},
    {"https",              kNone,    kNone,          kNone,    0, kNone,          kNone,           kAlways,  nullptr},
    {"telnet",             kNone,    kNone,          kNone,    0, kNone,          "inetd.service", kAlways,  nullptr},
    {"ssh",                kDevice,  "supportssh",   "yes",    0, kNone,          "sshd.service",  kAlways,  nullptr},
    {"dms_https",          kNone,    kNone,          kNone,    0, kNone,          kNone,           kSharing, nullptr},
    {"file_sharing",       kNone,    kNone,          kNone,    1, kNone,          kNone,           kSharing, nullptr},
    {"file_sharing_https", kNone,    kNone,          kNone,    0, kNone,          kNone,           kSharing, nullptr},
    {"hos_portal",         kNone,    kNone,          "no",     1, kNone,          kNone,           kPortal,  &IsHttpRedirectedToHttps},
    {"hos_portal_https",   kNone,    kNone,          kNone,    0, kNone,          kNone,           kPortal,  nullptr},
    {"hos_portal_http2",   kNone,    kNone,          kNone,    0, kNone,          kNone,           kPortal,  nullptr},
    {"photo_portal_http",  kNone,    kNone,          kNone,    0, "Pictara",      kNone,           kPhotos,  nullptr},
    {"photo_portal_https", kNone,    kNone,          kNone,    0, "Pictara",      kNone,           kPhotos,  nullptr},
    {"photo_portal_http2", kNone,    kNone,          kNone,    0, "Pictara",      kNone,           kPhotos,  nullptr},
    {"audio_http",         kNone,    kNone,          kNone,    1, "Sonara",       kNone,           kMobile,  nullptr},
    {"audio_https",        kNone,    kNone,          kNone,    0, "Sonara",       kNone,           kMobile,  nullptr},
    {"photo_http",         kNone,    kNone,          kNone,    0, "Pictara",      kNone,           kPictara, nullptr},
    {"photo_https",        kNone,    kNone,          kNone,    0, "Pictara",      kNone,           kPictara, nullptr},
    {"filara",             kNone,    kNone,          kNone,    0, "Filara",       kNone,           kFilara,  nullptr},
    {"filara",             kNone,    kNone,          kNone,    0, "Drivara",      kNone,           kFilara,  nullptr},
    {kNone,                kNone,    kNone,          kNone,    0, kNone,          kNone,           0,        nullptr},
};
// clang-format on

}  // namespace ARDV::Relay
