// SPDX-License-Identifier: Apache-2.0
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <json/json.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>

#include <relay/config/config.h>

#include "counted_run.h"

namespace ardv::bench {
namespace {

using ARDV::Relay::RelaydConf;

constexpr const char kFile[] = "/tmp/bench.conf";
constexpr const char kTemporary[] = "/tmp/bench.conf.tmp";

/** A configuration of the usual size, about 4.5 kB. */
Json::Value Configuration() {
    Json::Value value;
    for (const char* server : {"server_global", "server_control", "server_waitcmd"}) {
        value[server]["host"] = "global.tethra.example";
    }
    value["server_alias"]["alias"] = "attic";
    value["serverID"] = "box-1";
    for (int i = 0; i < 23; ++i) {
        Json::Value service;
        service["id"] = "service_" + std::to_string(i);
        service["local_port"] = 5000 + i;
        service["external_port"] = 15000 + i;
        service["protocol"] = "https";
        service["enabled"] = true;
        value["service"].append(service);
    }
    return value;
}

void ReaderOnAStream(benchmark::State& state) {
    RelaydConf::WriteJsonFile(kFile, Configuration());
    Run(state, [] {
        std::ifstream stream(kFile);
        Json::Value value;
        return Json::Reader().parse(stream, value, false);
    });
}

void ReadJsonFile(benchmark::State& state) {
    RelaydConf::WriteJsonFile(kFile, Configuration());
    Run(state, [] {
        Json::Value value;
        return RelaydConf::ReadJsonFile(kFile, value);
    });
}

bool Sync(const char* path) {
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    const bool synced = fsync(fd) == 0;
    close(fd);
    return synced;
}

void StreamWriterAndRename(benchmark::State& state) {
    const auto value = Configuration();
    Run(state, [&] {
        std::ofstream stream(kTemporary);
        Json::StyledStreamWriter("   ").write(stream, value);
        stream.close();
        return Sync(kTemporary) && chmod(kTemporary, 0644) == 0 && std::rename(kTemporary, kFile) == 0 && Sync("/tmp");
    });
}

void WriteJsonFile(benchmark::State& state) {
    const auto value = Configuration();
    Run(state, [&] { return RelaydConf::WriteJsonFile(kFile, value); });
}

BENCHMARK(ReaderOnAStream)->Name("json read/floor: jsoncpp on a stream");
BENCHMARK(ReadJsonFile)->Name("json read/ReadJsonFile");
BENCHMARK(StreamWriterAndRename)->Name("json write/floor: jsoncpp to a stream, flush, rename");
BENCHMARK(WriteJsonFile)->Name("json write/WriteJsonFile");

}  // namespace
}  // namespace ardv::bench
