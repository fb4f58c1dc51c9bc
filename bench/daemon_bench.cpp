// SPDX-License-Identifier: Apache-2.0
#include <getopt.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iostream>
#include <string>

#include "daemon_measures.h"
#include "support/private_root.h"

namespace {

using namespace ardv::bench;

constexpr int kStatusRoundsPerRound = 5;

struct Options {
    std::chrono::seconds idle{60};
    int rounds = 11;
    std::string only;  // one measurement; empty for all
};

constexpr const char kUsage[] = "usage: ardv_daemon_bench [--idle SECONDS] [--rounds N] [--only idle|start|status]\n";

bool ReadOptions(int argc, char** argv, Options& options) {
    const option list[] = {{"idle", required_argument, nullptr, 'i'},
                           {"rounds", required_argument, nullptr, 'r'},
                           {"only", required_argument, nullptr, 'o'},
                           {}};
    for (int letter = 0; (letter = getopt_long(argc, argv, "", list, nullptr)) != -1;) {
        if (letter == 'i') {
            options.idle = std::chrono::seconds(std::atoi(optarg));
        } else if (letter == 'r') {
            options.rounds = std::atoi(optarg);
        } else if (letter == 'o') {
            options.only = optarg;
        } else {
            return false;
        }
    }
    return optind == argc && options.idle.count() > 0 && options.rounds > 0;
}

void PrintLoad(const char* when) {
    std::string load;
    std::getline(std::ifstream("/proc/loadavg"), load);
    std::printf("load %s: %s\n", when, load.c_str());
}

bool Measure(const Options& options) {
    const auto isWanted = [&](const char* name) { return options.only.empty() || options.only == name; };
    ServiceSide side;
    Verdicts verdicts;
    PrintLoad("at the beginning");
    if (isWanted("start")) {
        MeasureStart(side, options.rounds, verdicts);
    }
    if (isWanted("status")) {
        MeasureStatus(side, options.rounds * kStatusRoundsPerRound, verdicts);
    }
    if (isWanted("idle")) {
        MeasureIdle(side, options.idle, verdicts);
    }
    verdicts.Print();
    PrintLoad("at the end");
    return !verdicts.HasMissed();
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    std::string why;
    if (!ReadOptions(argc, argv, options)) {
        std::cerr << kUsage;
        return 2;
    }
    if (!ardv::test::EnterPrivateRoot({ARDV_SOURCE_DIR}, why)) {
        std::cerr << "not run: this machine grants no private root (" << why << ")\n";
        return 1;
    }
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    try {
        return Measure(options) ? 0 : 1;
    } catch (const std::exception& problem) {
        std::cerr << "not measured: " << problem.what() << '\n';
        return 1;
    }
}
