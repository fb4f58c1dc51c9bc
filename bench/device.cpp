// SPDX-License-Identifier: Apache-2.0
#include "device.h"

#include <filesystem>
#include <fstream>
#include <set>

#include <relay/config/support_service.h>

#include "process.h"

namespace ardv::bench {

namespace {

constexpr const char kTrusted[] = "/etc/ssl/certs/ca-certificates.crt";

std::set<std::string> SupportedServices() {
    std::set<std::string> ids;
    for (const auto* service = ARDV::Relay::grgszSupportService; service->id; ++service) {
        ids.insert(service->id);
    }
    return ids;
}

}  // namespace

void WriteFile(const std::string& path, const std::string& text) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path) << text;
}

Json::Value OfferEveryService() {
    std::string firewall;
    int port = 5000;
    for (const char* name :
         {"dms", "dms_https", "http", "https", "telnet", "ssh", "webdav_http", "webdavs_https", "drivara"}) {
        firewall += std::string(firewall.empty() ? "[" : ",") + R"({"service":")" + name + R"(","display_name":")" +
                    name + R"(","ports":[")" + std::to_string(port++) + "\"]}";
    }
    WriteFile(kServices, firewall + "]");
    WriteFile(kWebSettings, "http_port=\"5000\"\nhttps_port=\"5001\"\nhttp2=\"yes\"\nwww_http2=\"yes\"\n");
    WriteFile(kDeviceSettings, "timezone=\"Europe/Berlin\"\nsupportssh=\"yes\"\nssh_port=\"22\"\n");
    WriteFile(kPhotoSettings, "external_port_photo_http=\"80\"\nexternal_port_photo_https=\"443\"\n");
    Json::Value services;
    for (const auto& id : SupportedServices()) {
        services.append(Json::objectValue)["id"] = id;
    }
    return services;
}

void BecomeDevice() {
    WriteFile("/etc/ardv/identity.conf",
              "serial=\"AV0000000001\"\ntoken=\"0123456789abcdef0123456789abcdef\"\napi_key=\"example\"\n"
              "mac=\"02:00:5e:10:00:01\"\n");
    std::filesystem::permissions("/etc/ardv/identity.conf", std::filesystem::perms(0600));
    WriteFile("/etc.defaults/ardvinfo.conf", "upnpmodelname=\"AV-220\"\n");
}

void MakeTrustedNames(const std::string& folder) {
    RunToEnd({ARDV_MAKE_CERTIFICATES, folder, "localhost", kHost});
    std::ofstream(kTrusted, std::ios::app) << std::ifstream(folder + "/ca.pem").rdbuf();
    std::ofstream("/etc/hosts", std::ios::app) << "127.0.0.1 " << kHost << '\n';
}

}  // namespace ardv::bench
