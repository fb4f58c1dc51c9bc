// SPDX-License-Identifier: Apache-2.0
#include <json/json.h>
#include <sys/stat.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "daemon_measures.h"
#include "process_figures.h"

namespace ardv::bench {

namespace {

namespace fs = std::filesystem;

constexpr auto kSettled = std::chrono::seconds(25);  // a connection's time limit ends after 20
constexpr auto kAfterReport = std::chrono::seconds(1);

// Wherever the daemon writes; the servers and inadyn have folders of their own.
constexpr const char* kWrittenFolders[] = {"/usr/ardv", "/etc/ardv", "/run", "/var/log"};
constexpr const char* kWrittenFiles[] = {"/tmp/.ardvrelayd.status", "/tmp/nubo_alias.status", "/tmp/daemon.log"};

using Stamps = std::map<std::string, std::pair<std::int64_t, std::int64_t>>;

void AddStamp(const fs::path& path, Stamps& stamps) {
    struct stat facts = {};
    if (lstat(path.c_str(), &facts) == 0 && S_ISREG(facts.st_mode)) {
        stamps[path] = {facts.st_mtim.tv_sec, facts.st_mtim.tv_nsec};
    }
}

Stamps ReadStamps() {
    Stamps stamps;
    for (const auto* file : kWrittenFiles) {
        AddStamp(file, stamps);
    }
    for (const auto* folder : kWrittenFolders) {
        for (const auto& entry : fs::recursive_directory_iterator(folder)) {
            AddStamp(entry.path(), stamps);
        }
    }
    return stamps;
}

std::size_t CountChanges(const Stamps& before, const Stamps& after) {
    std::size_t changes = 0;
    for (const auto& [path, stamp] : after) {
        const auto old = before.find(path);
        if (old == before.end() || old->second != stamp) {
            ++changes;
            std::printf("written while idle: %s\n", path.c_str());
        }
    }
    return changes;
}

// By the daemon's own account, which a report adds to.
std::int64_t WakeUps() {
    std::istringstream text(OutputOf({ARDV_TOOL, "report", "--json"}));
    Json::Value report;
    text >> report;
    if (!report["wake_ups"].isIntegral()) {
        throw std::runtime_error("the daemon's report does not tell its wake-ups");
    }
    return report["wake_ups"].asInt64();
}

struct Idler {
    const char* name;
    std::unique_ptr<Process> process;
    ProcessFigures before = {};
    ProcessFigures after = {};
};

void PrintTable(const std::array<Idler, 3>& idlers, std::chrono::seconds window) {
    std::printf("\nidle for %lld s, all at once over HTTPS\n%-26s %8s %7s %8s %7s %8s %7s %7s %8s %5s %7s\n",
                static_cast<long long>(window.count()), "", "switches", "slices", "CPU us", "writes", "disk B",
                "RSS kB", "PSS kB", "anon. kB", "fds", "threads");
    for (const auto& [name, process, from, to] : idlers) {
        const auto number = [](std::int64_t value) { return static_cast<long long>(value); };
        std::printf("%-26s %8lld %7lld %8lld %7lld %8lld %7lld %7lld %8lld %5lld %7lld\n", name,
                    number(to.switches - from.switches), number(to.timeSlices - from.timeSlices),
                    number((to.cpu - from.cpu) / 1000), number(to.writes - from.writes),
                    number(to.written - from.written), number(to.rss), number(to.pss), number(to.anonymous),
                    number(to.descriptors), number(to.threads));
    }
}

double Ratio(std::int64_t one, std::int64_t other) {
    return static_cast<double>(one) / static_cast<double>(other);
}

void Judge(const std::array<Idler, 3>& idlers, Verdicts& verdicts) {
    const auto& [daemon, bare, inadyn] = idlers;
    const auto number = [](std::int64_t value) { return static_cast<double>(value); };
    verdicts.Judge("idle: times on a processor", number(daemon.after.timeSlices - daemon.before.timeSlices));
    verdicts.Judge("idle: writing system calls", number(daemon.after.writes - daemon.before.writes));
    verdicts.Judge("idle: threads", number(daemon.after.threads));
    verdicts.Judge("idle: anonymous memory, times the bare program's",
                   Ratio(daemon.after.anonymous, bare.after.anonymous));
    verdicts.Judge("idle: anonymous memory, times inadyn's", Ratio(daemon.after.anonymous, inadyn.after.anonymous));
}

void Watch(std::array<Idler, 3>& idlers, std::chrono::seconds window, Verdicts& verdicts) {
    const auto stamps = ReadStamps();
    for (auto& idler : idlers) {
        idler.before = ReadFigures(idler.process->Pid());
    }
    std::this_thread::sleep_for(window);
    for (auto& idler : idlers) {
        idler.after = ReadFigures(idler.process->Pid());
    }
    verdicts.Judge("idle: files written", static_cast<double>(CountChanges(stamps, ReadStamps())));
}

std::unique_ptr<Process> StartUpdating(const std::vector<std::string>& command, const std::string& output,
                                       AnsweringServer& server) {
    server.Forget();
    auto process = std::make_unique<Process>(command, output);
    server.AwaitRequest();
    return process;
}

}  // namespace

void MeasureIdle(ServiceSide& side, std::chrono::seconds window, Verdicts& verdicts) {
    auto& alias = side.Alias(Scheme::kHttps);
    side.WriteDaemonConfiguration(Scheme::kHttps, ServiceSide::StoredServerId());
    std::array<Idler, 3> idlers = {
        Idler{"ardvrelayd", StartUpdating(ServiceSide::DaemonCommand(), "/tmp/daemon.log", alias)},
        Idler{"bare program, same libraries",
              std::make_unique<Process>(std::vector<std::string>{ARDV_BARE_LOOP}, "/tmp/bare.log")},
        Idler{"inadyn", StartUpdating(side.InadynCommand(Scheme::kHttps), "/tmp/inadyn.log", alias)}};
    const auto& daemon = *idlers.front().process;
    RunToEnd({ARDV_TOOL, "wait", "--for=login"});
    RunToEnd({ARDV_TOOL, "wait", "--for=alias"});
    daemon.AwaitQuiet(kSettled);
    const auto first = WakeUps();
    const auto second = WakeUps();
    const auto ofOneReport = second - first;
    if (ofOneReport < 1) {
        throw std::runtime_error("the daemon does not count its wake-ups");
    }
    daemon.AwaitQuiet(kAfterReport);
    Watch(idlers, window, verdicts);
    verdicts.Judge("idle: wake-ups", static_cast<double>(WakeUps() - second - ofOneReport));
    PrintTable(idlers, window);
    Judge(idlers, verdicts);
}

}  // namespace ardv::bench
