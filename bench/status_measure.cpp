// SPDX-License-Identifier: Apache-2.0
#include <cstdio>

#include "daemon_measures.h"

namespace ardv::bench {

namespace {

struct Row {
    const char* name;
    std::vector<std::string> command;
    std::vector<nanoseconds> wall = {};
    std::vector<nanoseconds> cpu = {};
    int calls = 0;
};

void Run(Row& row) {
    const auto [wall, cpu] = RunToEnd(row.command);
    row.wall.push_back(wall);
    row.cpu.push_back(cpu);
}

void PrintTable(const std::vector<Row>& rows) {
    std::printf("\none run of a program, medians of %zu\n%-44s %8s %8s %13s\n", rows.front().wall.size(), "", "wall ms",
                "CPU ms", "system calls");
    for (const auto& row : rows) {
        std::printf("%-44s %8.2f %8.2f %13d\n", row.name, Milliseconds(Median(row.wall)), Milliseconds(Median(row.cpu)),
                    row.calls);
    }
}

}  // namespace

void MeasureStatus(ServiceSide& side, int rounds, Verdicts& verdicts) {
    side.WriteDaemonConfiguration(Scheme::kHttp, ServiceSide::StoredServerId());
    const Process daemon(ServiceSide::DaemonCommand(), "/tmp/daemon.log");
    RunToEnd({ARDV_TOOL, "wait", "--for=login"});
    RunToEnd({ARDV_TOOL, "wait", "--for=alias"});
    std::vector<Row> rows = {{"floor: prints the status file, bare C", {ARDV_BARE_STATUS}},
                             {"floor: loads the library and its own, no more", {ARDV_BARE_TOOL}},
                             {"ardvrelayctl --version", {ARDV_TOOL, "--version"}},
                             {"ardvrelayctl status", {ARDV_TOOL, "status"}},
                             {"ardvrelayctl status --json", {ARDV_TOOL, "status", "--json"}}};
    for (auto& row : rows) {
        row.calls = CountSystemCalls(row.command);
    }
    for (int round = 0; round < rounds; ++round) {
        for (std::size_t i = 0; i < rows.size(); ++i) {
            Run(rows[round % 2 == 0 ? i : rows.size() - 1 - i]);
        }
    }
    PrintTable(rows);
    verdicts.Judge("status: CPU, times a bare program of the library",
                   Milliseconds(Median(rows[3].cpu)) / Milliseconds(Median(rows[1].cpu)));
}

}  // namespace ardv::bench
