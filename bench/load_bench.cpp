// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <json/json.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <string>

#include <relay/config/config.h>
#include <relay/config/support_service.h>

#include "counted_run.h"

namespace ardv::bench {
namespace {

using namespace ARDV::Relay;

constexpr const char kMainFile[] = "/usr/ardv/etc/ardvrelayd/ardvrelayd.conf";
constexpr const char kServices[] = "/etc/ardv/services.d/bench.json";
constexpr const char kWebSettings[] = "/etc/ardv/web.conf";
constexpr const char kDeviceSettings[] = "/etc/ardvinfo.conf";
constexpr const char kPhotoSettings[] = "/var/packages/Pictara/etc/settings.conf";
constexpr const char* kDeviceFiles[] = {kServices, kWebSettings, kDeviceSettings, kPhotoSettings};

void WriteFile(const std::string& path, const std::string& text) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path) << text;
}

std::set<std::string> SupportedServices() {
    std::set<std::string> ids;
    for (const auto* service = grgszSupportService; service->id; ++service) {
        ids.insert(service->id);
    }
    return ids;
}

/** A device that offers every service there is, and a main file that names them all. */
std::size_t MakeDeviceWithEveryService() {
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
    Json::Value main;
    for (const auto& id : SupportedServices()) {
        main["service"].append(Json::objectValue)["id"] = id;
    }
    WriteFile(kMainFile, main.toStyledString());
    return SupportedServices().size();
}

bool ReadOnce(const char* path) {
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    struct stat status = {};
    char block[4096];
    bool isRead = fstat(fd, &status) == 0;
    while (isRead && read(fd, block, sizeof block) > 0) {
    }
    return close(fd) == 0 && isRead;
}

void ParseAndReadOnce(benchmark::State& state) {
    MakeDeviceWithEveryService();
    Run(state, [] {
        std::ifstream stream(kMainFile);
        Json::Value value;
        bool done = Json::Reader().parse(stream, value, false);
        for (const char* file : kDeviceFiles) {
            done = ReadOnce(file) && done;
        }
        return done;
    });
}

void LoadMainFile(benchmark::State& state) {
    const auto count = MakeDeviceWithEveryService();
    Run(state, [count] { return RelaydConf(kMainFile).GetServices().size() == count; });
}

BENCHMARK(ParseAndReadOnce)->Name("load/floor: jsoncpp on the main file, each device file read once");
BENCHMARK(LoadMainFile)->Name("load/RelaydConf with every service");

}  // namespace
}  // namespace ardv::bench
