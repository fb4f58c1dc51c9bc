// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <json/json.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include <relay/config/config.h>

#include "counted_run.h"
#include "device.h"

namespace ardv::bench {
namespace {

using namespace ARDV::Relay;

constexpr const char* kDeviceFiles[] = {kServices, kWebSettings, kDeviceSettings, kPhotoSettings};

/** A device that offers every service there is, and a main file that names them all. */
std::size_t MakeDeviceWithEveryService() {
    Json::Value main;
    main["service"] = OfferEveryService();
    WriteFile(kMainFile, main.toStyledString());
    return main["service"].size();
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
