// SPDX-License-Identifier: Apache-2.0
#include <benchmark/benchmark.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iostream>
#include <map>

#include "answering_server.h"
#include "counted_memory.h"
#include "servers.h"
#include "support/private_root.h"

namespace {

using namespace ardv::bench;

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
        std::printf("\n%-50s %10s %12s\n", "median of each path against its floor", "CPU", "allocations");
        for (const auto& [name, path] : paths_) {
            const auto floor = floors_.find(name.substr(0, name.find('/')));
            if (floor != floors_.end()) {
                std::printf("%-50s %9.3fx %+12.1f\n", name.c_str(), path.cpu / floor->second.cpu,
                            path.allocations - floor->second.allocations);
            }
        }
    }

private:
    struct Figures {
        double cpu;
        double allocations;
    };

    void Keep(const Run& run) {
        const std::string& name = run.run_name.function_name;
        const Figures figures = {run.GetAdjustedCPUTime(), run.counters.at("allocs").value};
        if (name.find("/floor") != std::string::npos) {
            floors_[name.substr(0, name.find('/'))] = figures;
        } else {
            paths_[name] = figures;
        }
    }

    std::map<std::string, Figures> floors_;
    std::map<std::string, Figures> paths_;
};

void MakeTrustedCertificate(const std::string& folder) {
    const pid_t pid = fork();
    if (pid == 0) {
        execl(ARDV_MAKE_CERTIFICATES, ARDV_MAKE_CERTIFICATES, folder.c_str(), "localhost", nullptr);
        _exit(1);
    }
    int status = 0;
    if (waitpid(pid, &status, 0) != pid || status != 0) {
        throw std::runtime_error("cannot make a certificate");
    }
    std::ofstream("/etc/ssl/certs/ca-certificates.crt", std::ios::app) << std::ifstream(folder + "/ca.pem").rdbuf();
}

}  // namespace

int main(int argc, char** argv) {
    std::string why;
    if (!ardv::test::EnterPrivateRoot({ARDV_SOURCE_DIR}, why)) {
        std::cerr << "not run: this machine grants no private root (" << why << ")\n";
        return 1;
    }
    MakeTrustedCertificate("/tmp/certificates");
    const AnsweringServer http("", "");
    const AnsweringServer https("/tmp/certificates/valid.pem", "/tmp/certificates/valid.key");
    gHttpUrl = http.Url() + "/alias_update.php";
    gHttpsUrl = https.Url() + "/alias_update.php";
    CountCurlAllocations();
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
