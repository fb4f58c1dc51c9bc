// SPDX-License-Identifier: Apache-2.0
#include "verdicts.h"

#include <cstdio>
#include <stdexcept>

namespace ardv::bench {

namespace {

struct Aim {
    const char* name;
    double most;
};

constexpr Aim kAims[] = {
    {"idle: wake-ups", 0},
    {"idle: times on a processor", 0},
    {"idle: writing system calls", 0},
    {"idle: files written", 0},
    {"idle: threads", 1},
    {"idle: anonymous memory, times the bare program's", 2.5},
    {"idle: anonymous memory, times inadyn's", 1.0},
    {"start, HTTP: CPU, times loading alone", 1.6},
    {"start, HTTP: CPU, times inadyn's", 4.5},
    {"start, HTTP: CPU of a first start, times a restart's", 1.2},
    {"start, HTTPS: CPU, times inadyn's", 3.5},
    {"start, HTTPS: CPU of a first start, times a restart's", 1.2},
    {"status: CPU, times a bare program of the library", 1.5},
};

double AimOf(const std::string& name) {
    const auto* aim = std::find_if(std::begin(kAims), std::end(kAims), [&](const Aim& a) { return a.name == name; });
    if (aim == std::end(kAims)) {
        throw std::logic_error("there is no aim for " + name);
    }
    return aim->most;
}

}  // namespace

void Verdicts::Judge(const std::string& name, double value) {
    verdicts_.push_back({name, value, AimOf(name)});
}

void Verdicts::Print() const {
    std::printf("\n%-56s %10s %8s\n", "against the aims", "value", "at most");
    for (const auto& verdict : verdicts_) {
        std::printf("%-56s %10.2f %8.2f   %s\n", verdict.name.c_str(), verdict.value, verdict.aim,
                    verdict.value > verdict.aim ? "beyond the aim" : "within the aim");
    }
}

bool Verdicts::HasMissed() const {
    return std::any_of(verdicts_.begin(), verdicts_.end(), [](const Verdict& v) { return v.value > v.aim; });
}

}  // namespace ardv::bench
