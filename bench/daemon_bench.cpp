// SPDX-License-Identifier: Apache-2.0
#include <getopt.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

#include "daemon_measures.h"
#include "support/private_root.h"

namespace {

using namespace ardv::bench;

constexpr long kMaxNumber = 1'000'000;
constexpr int kStatusRoundsPerRound = 5;  // a run of a program is short

struct Options {
    long idle = 60;    // seconds
    long rounds = 11;  // of the starts
    std::string only;  // one measurement; empty for all
};

struct Measurement {
    const char* name;
    void (*run)(ServiceSide& side, const Options& options, Verdicts& verdicts);
};

constexpr Measurement kMeasurements[] = {
    {"start", [](ServiceSide& side, const Options& options,
                 Verdicts& verdicts) { MeasureStart(side, static_cast<int>(options.rounds), verdicts); }},
    {"status",
     [](ServiceSide& side, const Options& options, Verdicts& verdicts) {
         MeasureStatus(side, static_cast<int>(options.rounds) * kStatusRoundsPerRound, verdicts);
     }},
    {"idle", [](ServiceSide& side, const Options& options,
                Verdicts& verdicts) { MeasureIdle(side, std::chrono::seconds(options.idle), verdicts); }},
};

constexpr char kUsage[] = "usage: ardv_daemon_bench [--idle SECONDS] [--rounds N] [--only start|status|idle]\n";

bool ReadNumber(const char* text, long& number) {
    char* end = nullptr;
    number = std::strtol(text, &end, 10);
    return *end == '\0' && number > 0 && number < kMaxNumber;
}

bool IsMeasurement(const std::string& name) {
    return std::any_of(std::begin(kMeasurements), std::end(kMeasurements),
                       [&](const Measurement& m) { return m.name == name; });
}

bool ReadOption(int letter, const char* value, Options& options) {
    switch (letter) {
        case 'i':
            return ReadNumber(value, options.idle);
        case 'r':
            return ReadNumber(value, options.rounds);
        case 'o':
            options.only = value;
            return IsMeasurement(value);
        default:
            return false;
    }
}

bool ReadOptions(int argc, char** argv, Options& options) {
    const option list[] = {{"idle", required_argument, nullptr, 'i'},
                           {"rounds", required_argument, nullptr, 'r'},
                           {"only", required_argument, nullptr, 'o'},
                           {}};
    for (int letter = 0; (letter = getopt_long(argc, argv, "", list, nullptr)) != -1;) {
        if (!ReadOption(letter, optarg, options)) {
            return false;
        }
    }
    return optind == argc;
}

void PrintLoad(const char* when) {
    std::string load;
    std::getline(std::ifstream("/proc/loadavg"), load);
    std::printf("load %s: %s\n", when, load.c_str());
}

bool Measure(const Options& options) {
    ServiceSide side;
    Verdicts verdicts;
    PrintLoad("at the beginning");
    for (const auto& measurement : kMeasurements) {
        if (options.only.empty() || options.only == measurement.name) {
            measurement.run(side, options, verdicts);
        }
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
