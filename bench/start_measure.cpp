// SPDX-License-Identifier: Apache-2.0
#include <cstdio>
#include <functional>
#include <stdexcept>

#include "daemon_measures.h"

namespace ardv::bench {

namespace {

constexpr auto kQuiet = std::chrono::milliseconds(100);
constexpr const char kOutput[] = "/tmp/started.log";

enum class Contestant { kLoading, kInadyn, kRestart, kFirstStart };

struct Race {
    const char* name;
    Scheme scheme;
    Contestant contestant;
    std::vector<nanoseconds> wall = {};
    std::vector<nanoseconds> cpu = {};
};

std::vector<std::string> Prepare(ServiceSide& side, const Race& race, const std::string& serverId) {
    if (race.contestant == Contestant::kInadyn) {
        return side.InadynCommand(race.scheme);
    }
    side.WriteDaemonConfiguration(race.scheme, race.contestant == Contestant::kRestart ? serverId : "");
    return ServiceSide::DaemonCommand();
}

void Run(ServiceSide& side, Race& race, const std::string& serverId) {
    if (race.contestant == Contestant::kLoading) {
        const auto [wall, cpu] = RunToEnd({ARDV_BARE_TOOL});
        race.wall.push_back(wall);
        race.cpu.push_back(cpu);
        return;
    }
    const auto command = Prepare(side, race, serverId);
    auto& server = side.Alias(race.scheme);
    server.Forget();
    const Process process(command, kOutput);
    race.wall.push_back(server.AwaitRequest() - process.StartedAt());
    process.AwaitQuiet(kQuiet);
    race.cpu.push_back(process.Cpu());
}

/** What the control server calls the device, which it learns by its first start. */
std::string LearnServerId(ServiceSide& side) {
    Race first = {"", Scheme::kHttp, Contestant::kFirstStart};
    Run(side, first, "");
    auto serverId = ServiceSide::StoredServerId();
    if (serverId.empty()) {
        throw std::runtime_error(std::string("the daemon has stored no identifier; see ") + kOutput);
    }
    return serverId;
}

const Race& Find(const std::vector<Race>& races, Scheme scheme, Contestant contestant) {
    return *std::find_if(races.begin(), races.end(),
                         [&](const Race& r) { return r.scheme == scheme && r.contestant == contestant; });
}

void Judge(const std::vector<Race>& races, Scheme scheme, const std::string& name, Verdicts& verdicts) {
    const auto cpu = [&](Contestant contestant) { return Milliseconds(Median(Find(races, scheme, contestant).cpu)); };
    verdicts.Judge("start, " + name + ": CPU, times inadyn's", cpu(Contestant::kRestart) / cpu(Contestant::kInadyn));
    verdicts.Judge("start, " + name + ": CPU of a first start, times a restart's",
                   cpu(Contestant::kFirstStart) / cpu(Contestant::kRestart));
}

void PrintTable(const std::vector<Race>& races) {
    std::printf("\nfrom the start to the update at the alias server, medians of %zu\n%-36s %10s %12s %10s\n",
                races.front().wall.size(), "", "wall ms", "least..most", "CPU ms");
    for (const auto& race : races) {
        const auto [least, most] = std::minmax_element(race.wall.begin(), race.wall.end());
        std::printf("%-36s %10.1f %5.1f..%5.1f %10.1f\n", race.name, Milliseconds(Median(race.wall)),
                    Milliseconds(*least), Milliseconds(*most), Milliseconds(Median(race.cpu)));
    }
}

}  // namespace

void MeasureStart(ServiceSide& side, int rounds, Verdicts& verdicts) {
    std::vector<Race> races = {
        {"floor: loads the library, no more", Scheme::kHttp, Contestant::kLoading},
        {"HTTP   inadyn", Scheme::kHttp, Contestant::kInadyn},
        {"HTTP   ardvrelayd, restart", Scheme::kHttp, Contestant::kRestart},
        {"HTTP   ardvrelayd, first start", Scheme::kHttp, Contestant::kFirstStart},
        {"HTTPS  inadyn", Scheme::kHttps, Contestant::kInadyn},
        {"HTTPS  ardvrelayd, restart", Scheme::kHttps, Contestant::kRestart},
        {"HTTPS  ardvrelayd, first start", Scheme::kHttps, Contestant::kFirstStart},
    };
    const auto serverId = LearnServerId(side);
    for (int round = 0; round < rounds; ++round) {
        for (auto& race : races) {
            Run(side, race, serverId);
        }
        std::reverse(races.begin(), races.end());
    }
    std::sort(races.begin(), races.end(), [](const Race& one, const Race& other) {
        return std::pair(one.scheme, one.contestant) < std::pair(other.scheme, other.contestant);
    });
    PrintTable(races);
    Judge(races, Scheme::kHttp, "HTTP", verdicts);
    Judge(races, Scheme::kHttps, "HTTPS", verdicts);
    verdicts.Judge("start, HTTP: CPU, times loading alone",
                   Milliseconds(Median(Find(races, Scheme::kHttp, Contestant::kRestart).cpu)) /
                       Milliseconds(Median(races.front().cpu)));
}

}  // namespace ardv::bench
