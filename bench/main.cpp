// SPDX-License-Identifier: Apache-2.0
#include <benchmark/benchmark.h>

#include <cstdio>
#include <iostream>
#include <map>

#include "answering_server.h"
#include "counted_memory.h"
#include "device.h"
#include "servers.h"
#include "support/private_root.h"

namespace {

using namespace ardv::bench;

/** How near to its floor a path is to stay. Processor time varies by some per cent from run to run, allocations do not. */
struct Aim {
    const char* path;
    double cpu;          // times the floor's
    double allocations;  // more than the floor's
};

constexpr double kAnyNumber = 1e9;
constexpr Aim kAims[] = {
    {"http reused/Request", 1.05, 3},
    {"http new/Request", 1.10, 5},
    {"https reused/Request", 0.05, 3},
    {"json read/ReadJsonFile", 1.05, kAnyNumber},
    {"json write/WriteJsonFile", 1.05, kAnyNumber},
    {"load/RelaydConf with every service", 2.0, kAnyNumber},
};

/** The usual table, and below it each path against its floor: CPU as a ratio, allocations as a difference. */
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const auto& run : runs) {
            if (run.aggregate_name == "median") {
                Keep(run);
            }
        }
    }

    void Finalize() override {
        std::printf("\n%-40s %10s %12s\n", "median of each path against its floor", "CPU", "allocations");
        for (const auto& aim : kAims) {
            const auto path = paths_.find(aim.path);
            const auto floor = floors_.find(GroupOf(aim.path));
            if (path != paths_.end() && floor != floors_.end()) {
                Compare(aim, path->second, floor->second);
            }
        }
    }

    /** Whether a path missed its aim. */
    bool HasMissed() const { return missed_; }

private:
    struct Figures {
        double cpu;
        double allocations;
    };

    static std::string GroupOf(const std::string& name) { return name.substr(0, name.find('/')); }

    void Compare(const Aim& aim, const Figures& path, const Figures& floor) {
        const double cpu = path.cpu / floor.cpu;
        const double allocations = path.allocations - floor.allocations;
        const bool missed = cpu > aim.cpu || allocations > aim.allocations;
        missed_ = missed_ || missed;
        std::printf("%-40s %9.3fx %+12.1f   %s\n", aim.path, cpu, allocations,
                    missed ? "beyond the aim" : "within the aim");
    }

    void Keep(const Run& run) {
        const std::string& name = run.run_name.function_name;
        const Figures figures = {run.GetAdjustedCPUTime(), run.counters.at("allocs").value};
        if (name.find("/floor") != std::string::npos) {
            floors_[GroupOf(name)] = figures;
        } else {
            paths_[name] = figures;
        }
    }

    std::map<std::string, Figures> floors_;
    std::map<std::string, Figures> paths_;
    bool missed_ = false;
};

}  // namespace

int main(int argc, char** argv) {
    std::string why;
    if (!ardv::test::EnterPrivateRoot({ARDV_SOURCE_DIR}, why)) {
        std::cerr << "not run: this machine grants no private root (" << why << ")\n";
        return 1;
    }
    MakeTrustedNames("/tmp/certificates");
    const AnsweringServer http("", "");
    const AnsweringServer https("/tmp/certificates/valid.pem", "/tmp/certificates/valid.key");
    gHttpUrl = http.Url() + "/alias_update.php";
    gHttpsUrl = https.Url() + "/alias_update.php";
    CountCurlAllocations();
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return reporter.HasMissed() ? 1 : 0;
}
